#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Step 6: the daemon's own test. Run it in the sandbox:
#
#     testkit/vos-sandbox env PATH="$programs:$tools:$PATH" examples/tutorial/test.sh
set -euo pipefail

expect() { # WANTED GOT
    [ "$1" = "$2" ] || { echo "wanted \"$1\", got \"$2\"" >&2; exit 1; }
}
trap 'kill "$greeter" 2>/dev/null || true' EXIT
ask() { vosctl send greeter "$@" --json=short | sed 's/.*"text":"\([^"]*\)".*/\1/'; }
start() {
    tutorial-5 >>/tmp/greeter.log &
    greeter=$!
    vosctl wait greeter --timeout 5000
}

start
expect hello "$(ask hi)"
expect "guten Tag" "$(ask 'set guten Tag')"
expect "greeting guten Tag" "$(vosctl config-of greeter)"
kill "$greeter"
wait "$greeter"

start # the greeting was kept on flash
expect "guten Tag" "$(ask hi)"
kill "$greeter"
wait "$greeter"
echo "all tests have passed"
