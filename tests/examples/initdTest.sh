#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# initd of the demo device: whatever it cannot start, it ends with an error and leaves no process behind. Told to end, it
# ends with 0. Run in the sandbox as
#
#     initdTest.sh DIRECTORY-OF-THE-BUILT-PROGRAMS
set -euo pipefail
programs=$1
failures=0

fail() { echo "initdTest: $case: $*" >&2; failures=$((failures + 1)); }
await() { # CONDITION...: at most twenty seconds
    local until=$((SECONDS + 20))
    while [ $SECONDS -le $until ]; do
        if "$@"; then return 0; fi
        sleep 0.01
    done
    return 1
}
# The sandbox has a process namespace of its own, so every process in /proc is ours. One that has ended and whose parent
# has not noticed yet has the state Z.
running() { grep -lE "^[0-9]+ \(($1)\) [^Z]" /proc/[0-9]*/stat 2>/dev/null; }
gone() { ! running "$1" >/dev/null; }
has_ended() { ! kill -0 "$1" 2>/dev/null || grep -qs "^State:[[:space:]]*Z" "/proc/$1/status"; }
begin() { # NAME: a directory with both programs
    case=$1
    directory=/tmp/$1
    mkdir "$directory"
    : >"/tmp/$1.log"
    ln -s "$programs/oltd" "$programs/mgmtd" "$directory"
}
ends_with() { # STATUS: initd has ended with it, and so have its processes
    local status=0
    if ! await has_ended "$initd"; then
        fail "initd goes on"
        kill -KILL "$initd"
    fi
    wait "$initd" || status=$?
    [ "$status" = "$1" ] || fail "initd ended with $status, not with $1: $(tr '\r' '\n' <"/tmp/$case.log")"
    if ! await gone 'initd|oltd|mgmtd'; then
        fail "still running: $(running 'initd|oltd|mgmtd')"
        # shellcheck disable=SC2046 # the numbers are words
        kill -KILL $(running 'initd|oltd|mgmtd' | tr -dc '0-9\n')
    fi
}
start() {
    "$programs/initd" "$directory" >"/tmp/$case.log" 2>&1 &
    initd=$!
}
logged() { tr '\r' '\n' <"/tmp/$case.log" | grep -E "$1" >/dev/null; }

begin first-is-missing
rm "$directory/oltd"
start
ends_with 1

begin second-is-missing
rm "$directory/mgmtd"
start
ends_with 1

begin both-are-missing
rm "$directory/oltd" "$directory/mgmtd"
start
ends_with 1

begin second-is-not-executable
rm "$directory/mgmtd"
printf 'no program' >"$directory/mgmtd"
start
ends_with 1

# access() says that these can be executed; exec says no.
begin second-has-no-known-format
rm "$directory/mgmtd"
printf 'no program' >"$directory/mgmtd"
chmod +x "$directory/mgmtd"
start
ends_with 1

begin second-has-no-interpreter
rm "$directory/mgmtd"
printf '#!/no/such/interpreter\n' >"$directory/mgmtd"
chmod +x "$directory/mgmtd"
start
ends_with 1

begin first-has-no-known-format
rm "$directory/oltd"
printf 'no program' >"$directory/oltd"
chmod +x "$directory/oltd"
start
ends_with 1

begin told-to-end
start
await logged 'mgmtd: start complete' || fail "mgmtd did not start"
kill "$initd"
ends_with 0
[ ! -e /tmp/olt-door ] || fail "oltd was not asked to end: its contact is still there"

begin without-real-time-rights
setpriv --bounding-set -sys_nice --inh-caps -sys_nice "$programs/initd" "$directory" >"/tmp/$case.log" 2>&1 &
initd=$!
await logged 'mgmtd: start complete' || fail "mgmtd did not start"
logged 'no right to real-time priorities' || fail "it was not said"
kill "$initd"
ends_with 0

[ $failures = 0 ]
