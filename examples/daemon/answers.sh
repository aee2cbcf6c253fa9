# SPDX-License-Identifier: MIT
# The daemon answers, keeps its limit over a restart, and ends when it is told to.
#
#     answers.sh DIRECTORY-OF-THE-PROGRAMS
PATH=$1:$PATH
rm -f /flash/*

begin() {
    rm -f /tmp/ended
    { thermod >/dev/null; echo $? >/tmp/ended; } &
    until ask thermod limit >/dev/null; do # nothing tells that it is ready
        [ ! -e /tmp/ended ] || { echo "it has ended"; exit 1; }
        sleep 0.01
    done
}
stop() {
    expect stop 0
    wait
    [ "$(cat /tmp/ended)" = 0 ] || { echo "its status is not 0"; exit 1; }
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
stop
begin
expect limit 30
stop
