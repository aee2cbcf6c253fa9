# shellcheck shell=bash
# SPDX-License-Identifier: MIT
# Builds the source archive and the Debian packages with their bills of materials, for scripts/package and
# packaging/artifacts. The current directory is the root of a checkout, and scripts/lib/progress.sh has been read. The
# files depend on the commit and on the packages of the machine only: not on the time, the path, the user or the locale.

version=$(sed -n 's/^project(vos VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
# The day of the release is the time of all that is made. debian/changelog gets it, and dpkg sets SOURCE_DATE_EPOCH to it.
released=$(sed -n "s/^## $version - //p" CHANGELOG.md)
[ -n "$released" ] || { echo "CHANGELOG.md has no heading with a date for version $version" >&2; exit 1; }
SOURCE_DATE_EPOCH=$(date -ud "$released" +%s)
export SOURCE_DATE_EPOCH

make_source_archive() { # DIRECTORY
    git -c tar.umask=0022 -c core.autocrlf=false archive --format=tar --prefix="vos-$version/" HEAD | gzip -9n >"$1/vos-$version.tar.gz"
}

build_packages() { # DIRECTORY ARCHITECTURE [OPTION-OF-DPKG-BUILDPACKAGE]...
    local out=$1 architecture=$2 work=$1/work-$2 log=$1/build-$2.log built
    shift 2
    mkdir "$work"
    tar -xf "$out/vos-$version.tar.gz" -C "$work"
    cp -r "$work/vos-$version/packaging/debian" "$work/vos-$version/"
    printf 'vos (%s-1) unstable; urgency=medium\n\n  * See /usr/share/doc/libvos-dev/CHANGELOG.md.\n\n -- %s  %s\n' "$version" \
        "$(sed -n 's/^Maintainer: //p' packaging/debian/control)" "$(date -uRd "$released")" >"$work/vos-$version/debian/changelog"
    cp "$out/vos-$version.tar.gz" "$work/vos_$version.orig.tar.gz"
    (cd "$work/vos-$version" && DEB_BUILD_OPTIONS=nocheck dpkg-buildpackage -us -uc "$@") 2>&1 |
        tee "$log" | show_package_build || { tail -n 60 "$log"; return 1; }
    mv "$work"/*.deb "$out"
    built=$(echo "$work/vos-$version"/obj-*)
    /usr/bin/python3 -B packaging/sbom/sbom.py "$built" "$out"/*_"$architecture".deb || return
    rm -rf "$work"
}

# The cross compiler runs on this machine, so the build dependencies of the other architecture are not needed.
build_all_packages() { # DIRECTORY
    local native
    native=$(dpkg --print-architecture)
    echo "== packages for $native, $(length_in_words 165)"
    build_packages "$1" "$native"
    echo "== packages for arm64, $(length_in_words 180)"
    build_packages "$1" arm64 -aarm64 -b -d
}

# What Debian's own check finds, and what a user of the packages does.
check_packages() { # DIRECTORY
    echo "== lintian"
    lintian --fail-on error --suppress-tags bad-distribution-in-changes-file "$1"/*.deb
    packaging/installTest.sh "$1" "$version"
    rm -rf "$1/root" "$1/consumer" "$1/consumer-cpp" "$1/arm64.so"
}
