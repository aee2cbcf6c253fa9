#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The sandbox that cuts the power, seen from outside: what is on the kept flash at each moment, and how the next start
# goes on from there.
#
#     cutTest.sh SANDBOX
set -euo pipefail
sandbox=$1
stage=$(mktemp -d)
chmod a+rwx "$stage"
trap 'rm -rf "$stage"' EXIT
cp "$sandbox" "${sandbox%/*}"/vos-cut "$stage"
sandbox=$stage/vos-sandbox
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
said_by() { # COMMAND...: its status, and what it says on standard error
    local said result=0
    said=$("$@" 2>&1 >/dev/null) || result=$?
    echo "$result $said"
}
on_flash() { (cd "$kept/flash" && for file in *; do [ ! -e "$file" ] || echo "$file=$(cat "$file")"; done | tr '\n' ' '); }

saving='mkdir /tmp/d; cd /flash; echo one >a; echo two >new; rm a; mv new a; ln a b; rm a; echo x >/tmp/not-on-flash; : >b'
expected=('' 'a= ' 'a=one ' 'a=one new= ' 'a=one new=two ' 'new=two ' 'a=two ' 'a=two b=two ' 'b=two ')
words=('open /flash/a' 'write /flash/a' 'open /flash/new' 'write /flash/new' 'remove /flash/a' 'rename /flash/new'
    'link /flash/a' 'remove /flash/a' 'open /flash/b')
cuts_at_each_change() { # OPTION...
    local n
    for ((n = 1; n <= ${#words[@]}; n++)); do
        kept=$(mktemp -d -p "$stage")
        expect "change $n is not made ($*)" "$(said_by "$sandbox" "$@" --keep "$kept" --cut-at-write $n sh -c "$saving")" \
            "124 vos-sandbox: cut before change $n of /flash: ${words[n - 1]}"
        expect "what is there then ($*)" "$(on_flash)" "${expected[n - 1]}"
    done
    kept=$(mktemp -d -p "$stage")
    expect "an end before the cut is told ($*)" "$(said_by "$sandbox" "$@" --keep "$kept" --cut-at-write 10 sh -c "$saving; exit 5")" \
        "5 vos-sandbox: not cut: the command has made 9 changes of /flash"
}
cuts_at_each_change
cuts_at_each_change --user
cuts_at_each_change --flash 64K

kept=$(mktemp -d -p "$stage")
"$sandbox" --keep "$kept" --cut-at-write 3 sh -c 'echo 1 >/flash/count; echo 2 >/flash/count' 2>/dev/null || true
expect "the next start goes on from there" "$("$sandbox" --keep "$kept" cat /flash/count)" 1
expect "changes of other processes count" \
    "$(said_by "$sandbox" --cut-at-write 2 sh -c '(mkdir /flash/x) & wait; python3 -c "import os; os.rmdir(\"/flash/x\")"')" \
    "124 vos-sandbox: cut before change 2 of /flash: remove /flash/x"
expect "reading is no change" "$(said_by "$sandbox" --keep "$kept" --cut-at-write 1 sh -c 'cat /flash/count; ls /flash; echo x >/app/x')" \
    "0 vos-sandbox: not cut: the command has made 0 changes of /flash"
expect "a link from elsewhere leads to flash" \
    "$(said_by "$sandbox" --cut-at-write 1 sh -c 'ln -s /flash /tmp/link; echo x >/tmp/link/file')" \
    "124 vos-sandbox: cut before change 1 of /flash: open /flash/file"
before=$(date +%s)
expect "a cut after a time" "$(said_by "$sandbox" --cut-after 200ms sleep 1000)" "124 vos-sandbox: cut after 200 ms"
expect "it takes no longer" "$((($(date +%s) - before) < 60))" 1
expect "the status of a command that ends before" "$(said_by "$sandbox" --cut-after 100s sh -c 'exit 3')" "3 "
expect "of one that a signal ends" "$(said_by "$sandbox" --cut-after 100s sh -c 'kill -SEGV $$')" "139 "
expect "of one that is not there" "$(said_by "$sandbox" --cut-after 100s /no/such 2>&1)" \
    "127 vos-sandbox: /no/such: No such file or directory"
for value in '' x 5 5h -1ms 99999999s; do
    expect "the time \"$value\" is refused" "$(said_by "$sandbox" --cut-after "$value" true)" \
        "125 vos-sandbox: --cut-after: \"$value\" is no time; examples: 200ms, 3s"
done
for value in '' x 0 -1 1x; do
    expect "the number \"$value\" is refused" "$(said_by "$sandbox" --cut-at-write "$value" true)" \
        "125 vos-sandbox: --cut-at-write: \"$value\" is no number from 1"
done
rm "$stage/vos-cut"
expect "without the program that cuts nothing is run" "$(said_by "$sandbox" --cut-after 1s true | cut -c1-25)" "125 vos-sandbox: vos-cut "
[ $failures = 0 ]
