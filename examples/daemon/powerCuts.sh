# SPDX-License-Identifier: MIT
# The power goes before each change of the flash in its turn. After the next start the limit is the old one or the new one.
#
#     powerCuts.sh SANDBOX PREFIX-OF-VOS DIRECTORY-OF-THE-PROGRAMS DIRECTORY-OF-THE-TESTS
sandbox=$1 prefix=$2 programs=$3 tests=$4
kept=$(mktemp -d)
trap 'rm -rf "$kept"' EXIT
mkdir "$kept/flash"
run() { # [OPTION]... COMMAND...
    "$sandbox" --keep "$kept" --readable "$prefix" --readable "$programs" --readable "$tests" "$@"
}
talk="PATH=$programs:\$PATH; thermod >/dev/null & until ask thermod limit >/dev/null; do sleep 0.01; done;"
status=124
cuts=0
while [ $status = 124 ]; do
    echo 25 >"$kept/flash/limit"
    cuts=$((cuts + 1))
    run --cut-at-write $cuts sh -c "$talk ask thermod 'limit 30' >/dev/null; ask thermod stop >/dev/null"
    status=$?
    limit=$(run sh -c "$talk ask thermod limit | tail -n 1; ask thermod stop >/dev/null" | tail -n 1)
    [ "$limit" = 25 ] || [ "$limit" = 30 ] || { echo "after a cut before change $cuts the limit is \"$limit\""; exit 1; }
done
echo "$((cuts - 1)) cuts"
[ $status = 0 ] && [ "$limit" = 30 ] && [ $cuts -gt 1 ]
