# shellcheck shell=bash
# SPDX-License-Identifier: MIT
# Bare Debian systems for scripts/surroundings. Each has its own root directory, processes and mounts. Needs root.
#
# The cache keeps what does not change between two runs: the bare root, the packages that apt has fetched, and compiled
# objects. A system is a layer over the bare root, so each begins like a new installation.
cache=${VOS_SURROUNDINGS_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/vos-surroundings}
RELEASE=bookworm
# sudo and locales for the surroundings that need them, and a compiler cache, which saves time.
IN_THE_BASE=ca-certificates,ccache,locales,sudo

# The sources from which this machine gets Debian, each as a line "SITE RELEASE COMPONENT". The base and its systems
# use the same ones.
debian_sources() {
    # shellcheck disable=SC2016  # the names are expanded by apt
    apt-get indextargets --format '$(ORIGIN) $(SITE) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        sed -n "s/^Debian \(.* $RELEASE.*\)/\1/p" | sort -u
}

make_base() {
    [ ! -e "$cache/base.complete" ] || return 0
    local mirror
    mirror=$(debian_sources | awk -v release="$RELEASE" '$2 == release { print $1; exit }')
    [ -n "$mirror" ] || { echo "surroundings: apt knows no archive of Debian's $RELEASE; run apt-get update" >&2; return 1; }
    echo "making a bare Debian, about 40 seconds (once)"
    rm -rf "$cache/base"
    mkdir -p "$cache/archives/partial" "$cache/ccache/tmp"
    chmod 1777 "$cache/ccache" "$cache/ccache/tmp" # every user of every system compiles with it
    debootstrap --variant=minbase --cache-dir="$cache/archives" --include="$IN_THE_BASE" \
        "$RELEASE" "$cache/base" "$mirror" >"$cache/debootstrap.log" ||
        { tail -n 20 "$cache/debootstrap.log" >&2; return 1; }
    debian_sources | sed 's/^/deb /' >"$cache/base/etc/apt/sources.list"
    # The settings of apt, such as proxies. Fetched packages stay in the cache for the next system.
    { apt-config dump | grep '^Acquire::' || true; echo 'APT::Keep-Downloaded-Packages "true";'; } \
        >"$cache/base/etc/apt/apt.conf.d/99machine"
    rm -f "$cache/base/etc/apt/apt.conf.d/docker-clean"
    echo 'de_DE.UTF-8 UTF-8' >"$cache/base/etc/locale.gen"
    chroot "$cache/base" locale-gen >/dev/null
    chroot "$cache/base" useradd --create-home --shell /bin/bash --uid 1000 eve
    chroot "$cache/base" useradd --create-home --shell /bin/bash --uid 1001 bob
    echo 'eve ALL=(ALL) NOPASSWD: ALL' >"$cache/base/etc/sudoers.d/eve"
    touch "$cache/base.complete"
}

# Makes a system: a directory with its own layer, over the layers of another system if one is named.
make_system() { # DIRECTORY [SYSTEM-BELOW]
    mkdir -p "$1"/{root,layer,work}
    echo "${2:+$2/layer:}$cache/base" >"$1/below"
}

# Runs a shell command in a system, in a new login without the caller's environment.
in_system() { # SYSTEM USER COMMAND
    local system=$1
    shift
    # shellcheck disable=SC2016  # expanded by the shell inside
    unshare --mount --pid --ipc --uts --fork --kill-child --propagation private bash -euc '
        system=$1 cache=$2 user=$3 command=$4
        root=$system/root
        mount -t overlay overlay -o "lowerdir=$(cat "$system/below"),upperdir=$system/layer,workdir=$system/work" "$root"
        mount -t proc proc "$root/proc"
        mount --rbind /sys "$root/sys"
        mount -t tmpfs -o mode=755 tmpfs "$root/dev"
        for device in null zero full random urandom tty; do
            touch "$root/dev/$device"
            mount --bind "/dev/$device" "$root/dev/$device"
        done
        mkdir "$root/dev/pts" "$root/dev/shm"
        mount -t devpts -o newinstance,ptmxmode=666,mode=620,gid=5 devpts "$root/dev/pts"
        ln -s pts/ptmx "$root/dev/ptmx"
        ln -s /proc/self/fd "$root/dev/fd"
        ln -s fd/0 "$root/dev/stdin"
        ln -s fd/1 "$root/dev/stdout"
        ln -s fd/2 "$root/dev/stderr"
        mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
        mount --bind "$cache/archives" "$root/var/cache/apt/archives"
        mkdir -p "$root/var/cache/ccache"
        mount --bind "$cache/ccache" "$root/var/cache/ccache"
        cat /etc/resolv.conf >"$root/etc/resolv.conf"
        cd "$root"
        mkdir -p .before
        pivot_root . .before
        umount -l .before
        rmdir .before
        hostname bare
        echo "127.0.0.1 localhost bare" >/etc/hosts
        # The cache of compiled objects is shared by all users.
        exec env -i TERM=dumb PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
            CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_DIR=/var/cache/ccache CCACHE_NOHASHDIR=1 \
            CCACHE_UMASK=000 CCACHE_SLOPPINESS=pch_defines,time_macros ${http_proxy:+http_proxy="$http_proxy"} \
            su "$user" -c "cd && umask 022 && export CCACHE_BASEDIR=\$HOME && $command"
    ' in_system "$system" "$cache" "$@" </dev/null
}

# Clones the committed tree into a home directory.
clone_into() { # SYSTEM HOME DIRECTORY
    local home=$1/layer$2
    mkdir -p "$home"
    git clone -q --no-hardlinks . "$home/$3"
    chown -R --reference="$cache/base$2" "$home"
    chmod --reference="$cache/base$2" "$home"
}
