#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the packages into a separate root directory, builds and runs a program with them, and removes them again.
#
#     installTest.sh DIRECTORY-OF-THE-PACKAGES VERSION
set -euo pipefail
packages=$1
here=$(cd "$(dirname "$0")" && pwd)
architecture=$(dpkg --print-architecture)
root=$packages/root
rm -rf "$root"
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
touch "$root/var/lib/dpkg/status"
# The dependencies are those of this machine, not of the root directory. The packages' scripts are not run.
in_root() { dpkg --root="$root" --force-depends --force-script-chrootless --no-triggers "$@" >/dev/null 2>&1; }

echo "== installed, used and removed in a root of its own"
for package in libvos1 libvos-dev vos-tools vos-testkit; do
    in_root --install "$packages/${package}_$2-1_$architecture.deb"
done
library=$(dirname "$(find "$root/usr/lib" -name libvos.so)")
export PKG_CONFIG_LIBDIR=$library/pkgconfig
flags=()
eval "flags=($(pkg-config --cflags --libs vos))" # quoted as for a shell, for directories with blanks
cc -std=c17 -o "$packages/consumer" "$here/../tests/install/consumer.c" "${flags[@]}" -Wl,-rpath,"$library"
c++ -std=c++17 -o "$packages/consumer-cpp" "$here/../tests/install/consumer.cpp" "${flags[@]}" -Wl,-rpath,"$library"
for consumer in consumer consumer-cpp; do
    "$here/../testkit/vos-sandbox" --readable "$packages" "$packages/$consumer" | grep 'linked and running' >/dev/null
done
kit=$root/usr/bin
struck=$("$kit/vos-sandbox" --readable "$packages" "$kit/vos-faults" --verbose vosProcessInit -- "$packages/consumer" 2>&1 || true)
grep 'struck vosProcessInit#1 in consumer' <<<"$struck" >/dev/null # so its exit status is not 0
LD_LIBRARY_PATH=$library "$root/usr/bin/vosctl" --version | grep -x "vosctl $2" >/dev/null
[ -f "$root/usr/share/man/man1/vosctl.1.gz" ]
find "$root/usr/lib" -path '*/wireshark/plugins/vos.lua' | grep . >/dev/null
find "$root/usr/share/man/man3" -name 'vosMsg.3.gz' | grep . >/dev/null
for completion in bash-completion/completions/vosctl zsh/vendor-completions/_vosctl fish/vendor_completions.d/vosctl.fish; do
    [ -f "$root/usr/share/$completion" ]
done
documents=$root/usr/share/doc/libvos-dev
[ -f "$documents/README.md" ] && [ -f "$documents/docs/architecture.md" ]
for example in "$documents"/examples/*.c; do
    cc -std=gnu17 -o "$packages/example" "$example" "${flags[@]}" -pthread
    rm "$packages/example"
done
for example in "$documents"/examples/cpp/*.cpp; do
    c++ -std=c++17 -o "$packages/example" "$example" "${flags[@]}" -pthread
    rm "$packages/example"
done
for package in vos-testkit vos-tools libvos-dev libvos1; do in_root --purge "$package"; done
left=$(find "$root" -path "$root/var" -prune -o -type f -print)
[ -z "$left" ] || { echo "installTest: left behind: $left" >&2; exit 1; }
for package in libvos1 libvos-dev vos-tools vos-testkit; do
    dpkg-deb -f "$packages/${package}_$2-1_arm64.deb" Architecture | grep -x arm64 >/dev/null
done
dpkg-deb --fsys-tarfile "$packages/libvos1_$2-1_arm64.deb" | tar -xO --wildcards '*libvos.so.1.*' 2>/dev/null >"$packages/arm64.so"
readelf -h "$packages/arm64.so" | grep AArch64 >/dev/null
hardened() { # LIBRARY PROCESSOR
    python3 -B "$here/../tests/abi/hardeningTest.py" library "$1" "$2" readelf objdump >&2
}
hardened "$library/libvos.so" "$(uname -m)"
hardened "$packages/arm64.so" aarch64
echo "installed, used and removed"
