#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The example of the test kit, built and tested from an installed vos in an empty directory. Its tests must also find the
# faults that they are there for.
#
#     exampleTest.sh SOURCE BUILD
set -euo pipefail
source=$1
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
cmake --install "$2" --prefix "$stage/prefix" >/dev/null
cp -r "$source/examples/daemon" "$stage/daemon"
cmake -S "$stage/daemon" -B "$stage/build" -DCMAKE_PREFIX_PATH="$stage/prefix" >/dev/null
cmake --build "$stage/build" >/dev/null
failures=0
# The tests wait more than they compute, so they run at the same time.
failed_tests() { # what ctest says of the tests that fail, by name
    ctest --test-dir "$stage/build" --parallel 6 "$@" 2>&1 | tee "$stage/log" | sed -n 's/^\t *[0-9]* - \([^ ]*\) .*/\1/p' | sort | tr '\n' ' '
}
expect() { # WHAT ACTUAL EXPECTED
    if [ "$2" = "$3" ]; then
        echo "ok: $1"
    else
        echo "FAILED: $1: is '$2', not '$3'"
        cat "$stage/log"
        failures=$((failures + 1))
    fi
}
expect "all tests pass" "$(failed_tests --output-on-failure)" ""
expect "their number" "$(sed -n 's/.*tests passed, 0 tests failed out of //p' "$stage/log")" 6

spoiled() { # SED-COMMAND, then the names of tests that must find the fault
    sed -i "$1" "$stage/daemon/thermod.c"
    ! cmp -s "$stage/daemon/thermod.c" "$source/examples/daemon/thermod.c" || { echo "FAILED: nothing is spoiled by $1"; exit 1; }
    cmake --build "$stage/build" >/dev/null
    expect "what finds: $1" "$(failed_tests -E eachCallFails)" "$2"
    cp "$source/examples/daemon/thermod.c" "$stage/daemon/"
}
spoiled 's/newPath = "[^"]*"/newPath = "\/flash\/limit"/' 'fullFlash powerCuts '
spoiled 's/&temperature, 500/\&temperature, 0/' 'sensor '
spoiled 's/VOS_ERROR;$/VOS_OK;/' 'fullFlash '
[ $failures = 0 ]
