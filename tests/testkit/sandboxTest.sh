#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The sandbox seen from outside: its namespaces are not ours, what happens inside stays inside, exit statuses come
# through, and an ordinary user gets the same sandbox.
set -euo pipefail

# A copy that every user may read, wherever this checkout is.
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
mkdir -p "$stage"/testkit
cp "$(dirname "$0")"/../../testkit/vos-sandbox "$stage"/testkit/
chmod -R a+rX "$stage"
sandbox=$stage/testkit/vos-sandbox
cd /
failures=0
expect() { # WHAT ACTUAL EXPECTED
    if [ "$2" = "$3" ]; then
        echo "ok: $1"
    else
        echo "FAILED: $1: is '$2', not '$3'"
        failures=$((failures + 1))
    fi
}
status() {
    local result=0
    "$@" >/dev/null 2>&1 || result=$?
    echo $result
}

check_as() { # COMMAND PREFIX...: what is checked for each kind of user
    for kind in mnt net pid ipc uts; do
        outside=$(readlink /proc/self/ns/$kind)
        inside=$("$@" "$sandbox" readlink /proc/self/ns/$kind)
        expect "the $kind namespace is private ($*)" "$([ "$inside" != "$outside" ] && echo private)" private
    done
    expect "the user inside is root ($*)" "$("$@" "$sandbox" id -u)" 0
    expect "an exit status comes through ($*)" "$(status "$@" "$sandbox" sh -c 'exit 42')" 42
    # shellcheck disable=SC2016  # expanded by the shell inside
    expect "TMPDIR names no directory of the outside ($*)" "$(TMPDIR=/nowhere "$@" "$sandbox" sh -c 'echo "${TMPDIR-unset}"')" unset
    expect "flash is empty and writable ($*)" "$("$@" "$sandbox" sh -c 'touch /flash/a && ls /flash')" a
    expect "a tunable is written inside only ($*)" \
        "$("$@" "$sandbox" sh -c 'echo 77 >/proc/sys/net/core/wmem_max && cat /proc/sys/net/core/wmem_max')" 77
    expect "the host name is changed inside only ($*)" "$("$@" "$sandbox" sh -c 'hostname other && hostname')" other
}

before="$(cat /proc/sys/net/core/wmem_max) $(cat /proc/sys/kernel/core_pattern) $(uname -n)"
check_as env
if [ "$(id -u)" = 0 ]; then
    check_as setpriv --reuid 65534 --regid 65534 --clear-groups
    # As in a container that allows user namespaces only.
    check_as setpriv --bounding-set -sys_admin --inh-caps -sys_admin
fi
said_by() { # COMMAND...: what it says where it refuses, and its status
    local said result=0
    said=$("$@" 2>&1) || result=$?
    echo "$result $said"
}
check_options_as() { # COMMAND PREFIX...
    local kept
    kept=$("$@" mktemp -d)
    # shellcheck disable=SC2016  # expanded by the shell inside
    {
        expect "--user is nobody special ($*)" \
            "$("$@" "$sandbox" --user sh -c 'grep -h "Cap[PE]" /proc/self/status | tr -d "\n\t"; id -u; id -un')" \
            $'CapPrm:0000000000000000CapEff:00000000000000001000\nuser'
        expect "--user may write where a device's processes may ($*)" \
            "$("$@" "$sandbox" --user sh -c 'touch /flash/a /app/a /tmp/a /run/a && echo yes')" yes
        "$@" "$sandbox" --keep "$kept" sh -c 'echo one >/flash/a; echo two >/app/b; exit 3' && exit 1
        expect "what is kept is there afterwards ($*)" "$(cat "$kept"/flash/a "$kept"/app/b)" $'one\ntwo'
        expect "and in the next sandbox ($*)" "$("$@" "$sandbox" --keep "$kept" --user sh -c 'cat /flash/a; rm /flash/a')" one
        expect "what was removed is not kept ($*)" "$(ls "$kept"/flash)" ""
        expect "a small flash has its size ($*)" "$("$@" "$sandbox" --flash 64K df --output=size -B1 /flash | tail -n 1 | tr -d ' ')" 65536
        expect "it is full then ($*)" \
            "$("$@" "$sandbox" --flash 64K sh -c 'head -c 1M /dev/zero >/flash/a; stat -c %s /flash/a' 2>/dev/null)" 65536
        expect "a small flash can be kept ($*)" \
            "$(status "$@" "$sandbox" --flash 64K --keep "$kept" sh -c 'echo small >/flash/s; sleep 1000 & exit 5')" 5
        expect "it is there afterwards ($*)" \
            "$("$@" "$sandbox" --flash 64K --keep "$kept" sh -c 'cat /flash/s; rm /flash/s')" small
        expect "what was removed from it is not kept ($*)" "$(ls "$kept"/flash)" ""
        expect "the shell reads commands ($*)" "$(echo 'echo in $VOS_SANDBOX' | "$@" "$sandbox" --shell 2>/dev/null)" "in 1"
        expect "the current directory can be read ($*)" "$(cd "$stage" && "$@" "$sandbox" sh -c 'ls; pwd')" "testkit
$stage"
        expect "but not written ($*)" "$(cd "$stage" && status "$@" "$sandbox" touch probe)" 1
    }
    "$@" "$sandbox" --keep "$kept" sh -c 'head -c 64K /dev/zero >/flash/large'
    expect "what was kept must fit ($*)" "$(said_by "$@" "$sandbox" --flash 4K --keep "$kept" true | tail -n 1)" \
        "vos-sandbox: --keep: a flash of this size does not hold what was kept"
    expect "and is still there then ($*)" "$(stat -c %s "$kept"/flash/large)" 65536
    "$@" rm -rf "$kept"
}
check_options_as env
[ "$(id -u)" != 0 ] || check_options_as setpriv --reuid 65534 --regid 65534 --clear-groups
refused() { # PART OF THE MESSAGE, ARGUMENT...
    local said part=$1
    shift
    said=$(said_by "$sandbox" "$@")
    expect "\"$*\" is refused" "$([[ $said == "125 vos-sandbox: "*"$part"* ]] && echo yes || echo "$said")" yes
}
refused 'no command' --user
refused 'no command' --
refused 'no option "--kep"' --kep x true
refused '--keep needs a value' --keep
refused 'cannot be made' --keep /dev/null true
refused 'no directory is named' --keep '' true
refused 'is no size' --flash '' true
refused 'is no size' --flash 0 true
refused 'is no size' --flash 10X true
refused 'is no size' --flash -5 true
refused 'is no size' --flash 99999999999999999999 true
refused 'more than a flash can have' --flash 99999999999G true
refused 'no directory ""' --readable '' true
refused 'takes no command' --shell true
expect "a command that is not there" "$(status "$sandbox" /no/such/command)" 127
expect "a command that a signal ends" "$(status "$sandbox" sh -c 'kill -SEGV $$')" 139
# Nothing goes on when the sandbox itself is killed.
"$sandbox" --keep "$stage/kept" sh -c 'echo ready >/flash/a; exec sleep 1234567' &
until [ -s "$stage/kept/flash/a" ]; do [ -d "/proc/$!" ] || break; done
kill $!
wait $! || true
for ((try = 0; try < 500; try++)); do grep -qaz 1234567 /proc/[0-9]*/cmdline 2>/dev/null || break; sleep 0.01; done
expect "killed, it takes all its processes along" "$(grep -laz 1234567 /proc/[0-9]*/cmdline 2>/dev/null)" ""
expect "a sandbox can be made here" "$(status "$sandbox" --check)" 0
# As in a container that allows none: all that may be made are used up.
without_namespaces() { # COMMAND...
    # shellcheck disable=SC2016  # expanded by the shell inside
    unshare --user --map-root-user bash -c '
        for kind in user mnt net pid; do echo 0 >"/proc/sys/user/max_${kind}_namespaces"; done; "$@"' bash "$@"
}
expect "where none can be made, the check fails" "$(status without_namespaces "$sandbox" --check)" 125
said=$(without_namespaces "$sandbox" --check 2>&1) || true
for words in 'this system does not allow them' 'docker run --privileged' 'sysctl' 'chroot'; do
    expect "the check says \"$words\"" "$(grep -qF "$words" <<<"$said" && echo yes)" yes
done
mkdir "$stage/bin" # all but bubblewrap
for program in bash cat mkdir mount pivot_root setpriv sh unshare; do ln -s "$(command -v $program)" "$stage/bin/"; done
expect "the check needs no bubblewrap" "$(PATH=$stage/bin status "$sandbox" --check)" 0
expect "nor does it to fail" "$(status without_namespaces env PATH="$stage/bin" "$sandbox" --check)" 125
expect "nothing of the machine has changed" \
    "$(cat /proc/sys/net/core/wmem_max) $(cat /proc/sys/kernel/core_pattern) $(uname -n)" "$before"
expect "a sandbox that cannot be made fails the run" "$(status "$sandbox" --writable /no/such/directory true)" 125
expect "a missing bubblewrap fails the run" "$(PATH=/nowhere status "$BASH" "$sandbox" true)" 125
[ $failures = 0 ]
