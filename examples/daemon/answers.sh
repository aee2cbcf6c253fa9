# SPDX-License-Identifier: MIT
# The daemon answers, keeps its limit over a restart, and ends when it is told to.
#
#     answers.sh DIRECTORY-OF-THE-PROGRAMS
PATH=$1:$PATH
rm -f /flash/*

begin() {
    thermod >/dev/null &
    daemon=$!
    trap 'kill $daemon 2>/dev/null' EXIT
    tries=0
    until ask thermod limit >/dev/null; do # nothing tells that it is ready
        tries=$((tries + 1))
        [ $tries -lt 100 ] || { echo "it does not answer"; exit 1; }
        sleep 0.01
    done
}
expect() { # QUESTION ANSWER
    answer=$(ask thermod "$1" | tail -n 1)
    [ "$answer" = "$2" ] || { echo "$1: the answer is $answer, not $2"; exit 1; }
}

begin
expect limit 20
expect 'limit 30' 0
expect limit 30
expect 'limit x' -2
expect stop 0
wait $daemon || exit 1
begin
expect limit 30
expect stop 0
wait $daemon
