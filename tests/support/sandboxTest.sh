#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The sandbox seen from outside: its namespaces are not ours, what happens inside stays inside, exit statuses come
# through, and an ordinary user gets the same sandbox.
set -euo pipefail

# A copy that every user may read, wherever this checkout is.
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
mkdir -p "$stage"/tests/support
cp "$(dirname "$0")"/sandbox "$stage"/tests/support/
chmod -R a+rX "$stage"
sandbox=$stage/tests/support/sandbox
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
expect "a sandbox that cannot be made fails the run" "$(status "$sandbox" --writable /no/such/directory true)" 1
expect "a missing bubblewrap fails the run" "$(PATH=/nowhere status "$BASH" "$sandbox" true)" 125
[ $failures = 0 ]
