#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# A tour of the demo device, an optical line terminal: run in a sandbox, or on a device, as
#
#     story.sh DIRECTORY-OF-THE-BUILT-PROGRAMS [DIRECTORY-OF-VOSCTL]
#
# Shows each command and its output. Ends with an error as soon as an output is not as expected.
set -euo pipefail
programs=$1
PATH=$1:${2:-$1}:$PATH
log=/tmp/olt.log

fail() { echo "story: $*" >&2; exit 1; }
chapter() { printf '\n== %s\n' "$*"; }
# Runs a command, shows it and its output, and checks that the output matches the pattern.
see() { # PATTERN COMMAND...
    local pattern=$1 said status=0
    shift
    printf '$ %s\n' "$*"
    said=$("$@" 2>&1) || status=$?
    tr '\r' '\n' <<<"$said" | grep . | sed 's/^/    /' || true
    grep -qE "$pattern" <<<"$said" || fail "the output does not match \"$pattern\""
    return $status
}
refused() { # PATTERN COMMAND...: the same, of a command that must fail
    if see "$@"; then fail "this command should have failed"; fi
}
await() { # CONDITION...: at most twenty seconds
    local until=$((SECONDS + 20))
    while [ $SECONDS -le $until ]; do
        if "$@"; then return; fi
        sleep 0.01
    done
    fail "not so after twenty seconds: $*"
}
# grep reads to the end. If it stopped at the first match, tr would be ended by a signal.
logged() { tr "\r" "\n" <"$log" | grep -E "$1" >/dev/null; }
boot() {
    : >"$log"
    initd "$programs" >"$log" 2>&1 &
    initd=$!
    await logged 'oltd: .* start complete'
    await logged 'mgmtd: start complete'
}
shutdown() {
    kill "$initd"
    wait "$initd"
    if [ -e /tmp/olt-door ]; then fail "oltd left its door's contact behind"; fi
}
trap 'kill $initd 2>/dev/null || true' EXIT

chapter "Boot: both data partitions are missing, and are made"
boot
tr '\r' '\n' <"$log" | grep -E 'Initialize|start complete' | sed 's/^/    /'
logged 'Initialize factory data partition' || fail "the factory partition was not made"
logged 'Initialize system data partition' || fail "the system partition was not made"
see 'oltd +normal .* reachable' vosctl ps

chapter "Talk: an administrator's session asks mgmtd, which asks oltd"
see 'olt, serial 123456789, .*0 of 4 ports up' olt show
see '^table' vosctl object oltd portLinkChanges
echo -n 1 >/tmp/olt-door
await logged 'mgmtd: alarm of the OLT: door open'
see 'door open' olt alarm
see 'median' vosctl ping oltd -c 100

chapter "See: a slow answer is found, and a circle in which everybody waits for the next"
vosctl monitor --slower 100ms >/tmp/slow &
monitor=$!
slow_answer() { # the monitor may not have begun when the first one comes
    olt selftest >/dev/null
    grep 'oltd .*> mgmtd .*served' /tmp/slow >/dev/null
}
await slow_answer
kill -INT "$monitor"
wait "$monitor"
see 'oltd .*> mgmtd .*answer 0 .*served [0-9.]* m?s' grep -m 1 'oltd .*> mgmtd' /tmp/slow
if vosctl waits >/dev/null 2>&1; then
    olt audit >/tmp/audit 2>&1 &
    audit=$!
    circle() { vosctl waits | grep 'ircle: ' >/dev/null; }
    await circle
    see 'circle: .*oltd .*waits for mgmtd' vosctl waits
    if wait "$audit"; then fail "the audit cannot have been answered"; fi
    see 'the audit got no answer' cat /tmp/audit
else
    echo "(This kernel does not tell who waits for whom: the circle is left out.)"
fi

chapter "Configure: two sessions; a line that makes no sense is refused"
see 'done' olt set name kista
see 'done' olt -s 2 set port 1 enable uplink
refused 'not understood' olt set port 9 enable nowhere
see 'port 1 enable uplink' vosctl config-of oltd

chapter "Save, and start again: the configuration is on flash"
see saved olt save
shutdown
boot
logged 'configured from flash' || fail "nothing was read"
see 'name kista' olt config

chapter "Upgrade: an image is made and checked, and refused when one bit is flipped"
head -c 300000 /dev/urandom >/tmp/software
see 'CRC-32 matches +yes' vosctl image make /tmp/software /tmp/new.bin --type application --compat 7 1
cp /tmp/new.bin /app/hostImage.bin # the application that the factory installed
printf '1.0' >/app/hostImage.bin.ver
see 'fits this device' vosctl image check /tmp/new.bin
cp /tmp/new.bin /tmp/broken.bin
byte=$(od -An -tu1 -j5000 -N1 /tmp/broken.bin)
printf '%b' "\\x$(printf %x $((byte ^ 1)))" | dd of=/tmp/broken.bin bs=1 seek=5000 conv=notrunc status=none
refused 'does not match its CRC-32' vosctl image check /tmp/broken.bin
refused 'refused: its checksum is wrong' olt upgrade /tmp/broken.bin 2.0
vosctl image make /tmp/software /tmp/foreign.bin --type application --compat 8 1 >/dev/null
refused 'refused: it is for another device' olt upgrade /tmp/foreign.bin 2.0
see '2.0 is installed' olt upgrade /tmp/new.bin 2.0
cmp /tmp/new.bin /app/hostImage.bin || fail "that is not the new image"
see 'the backup is version 1.0' olt backup
see 'is the image that was installed last' vosctl --journal /flash/journal image status

chapter "Service: an item is set, and a package brings a file"
see '192.0.2.10' vosctl --journal /flash/journal item set ip-address 192.0.2.10
see '^192.0.2.10$' vosctl --journal /flash/journal item get ip-address
echo 'welcome to kista' >/tmp/welcome
see '/app/oem/welcome' vosctl package make /tmp/welcome.pkg dir:/app/oem file:/app/oem/welcome=/tmp/welcome
see 'installed +yes' vosctl --journal /flash/journal package apply /tmp/welcome.pkg --yes
see 'welcome to kista' cat /app/oem/welcome

chapter "Break a partition: start-up sees it, and makes a new one"
printf 'X' | dd of=/flash/sysdata bs=1 seek=500 conv=notrunc status=none
shutdown
boot
tr '\r' '\n' <"$log" | grep -E 'crc error|Initialize' | sed 's/^/    /'
logged 'readFlashAppData:crc error' || fail "the broken partition was not seen"
logged 'Initialize system data partition' || fail "it was not repaired"
see 'name kista' olt config

chapter "Terminate: mgmtd first, then oltd"
shutdown
refused 'mgmtd does not answer' olt show
echo
echo "The tour is complete; each output was as expected."
