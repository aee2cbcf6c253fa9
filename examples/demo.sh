#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Shows processes that send each other messages. Run it in the sandbox:
#
#     testkit/vos-sandbox bash examples/demo.sh DIRECTORY-OF-THE-BUILT-EXAMPLES
#
# Ends with an error as soon as an output is not as expected.
set -euo pipefail
programs=$1
log=/tmp/server.log

fail() { echo "demo: $*" >&2; exit 1; }
say() { printf '\n== %s\n' "$*"; }
await() { # CONDITION...: at most ten seconds
    for ((i = 0; i < 1000; ++i)); do
        if "$@"; then return; fi
        sleep 0.01
    done
    fail "not so after ten seconds: $*"
}
logged() { tr '\r' '\n' <"$log" | grep -c "$1" || true; }
loggedTimes() { [ "$(logged "$1")" = "$2" ]; }

say "A client sends a request to a server that does not run: it fails at once"
if "$programs/client" server; then fail "somebody answered"; fi

say "The server starts; its channel is two sockets under /tmp/vos"
"$programs/server" >"$log" 2>&1 &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
await test -S /tmp/vos/serverHigh
(cd /tmp/vos && ls -1 server serverHigh)

say "A client sends it a request by name"
"$programs/client" server

say "Another process switches the server's trace on for one request, and off again"
"$programs/control" trace || fail "the trace was not switched"
await loggedTimes 'vosMsgResp:end return 0\.' 1
tr '\r' '\n' <"$log" | grep ' vosMsg\(Recv\|Resp\):' | sed 's/^/    /'
loggedTimes 'vosMsgRecv:receive VOS_MSG_TYPE_SELF' 1 || fail "more than the one request was traced"

say "The other process requests the running configuration"
configuration=$("$programs/control" config) || fail "no configuration came"
printf '%s\n' "$configuration" | sed 's/^/    /'
grep -q '^name server$' <<<"$configuration" || fail "that is not the server's configuration"

say "The server is kept busy through its normal socket; a request to the high-priority socket is answered first"
"$programs/control" busy || fail "the high socket did not come first"

say "The server gets a request to stop; no requester has left a socket behind"
"$programs/control" stop
wait "$server" || fail "the server ended with an error"
trap - EXIT

say "One process may run four loops: main, second, and two threads of its own"
"$programs/threads" | tr '\r' '\n' | grep '^threads:' || fail "a loop did not answer"
if compgen -G '/tmp/vos/client*' >/dev/null; then fail "a socket was left behind"; fi
echo "done"
