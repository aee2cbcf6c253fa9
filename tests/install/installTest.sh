#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs into an empty prefix, then builds and runs a consumer with pkg-config and another with find_package. Then
# installs below another root, and uninstalls: nothing is left.
#
#     installTest.sh BUILD_DIRECTORY
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
sandbox=$here/../../testkit/vos-sandbox
prefix=$build/install-test
rm -rf "$prefix"
fail() { echo "FAILED: $*"; exit 1; }
has() { # DIRECTORY FILE...
    local directory=$1 file
    shift
    for file in "$@"; do
        [ -f "$directory/$file" ] || fail "$directory/$file is not installed"
    done
}
cmake --install "$build" --prefix "$prefix" >/dev/null
has "$prefix" include/vos/vos.h include/vos/vos.hpp include/vos/vosTypes.h bin/vosctl bin/vos-sandbox bin/vos-faults include/vos-testkit/vosFaults.h \
    include/vos-testkit/vosTest.hpp libexec/vos/vos-cut share/bash-completion/completions/vosctl \
    share/zsh/site-functions/_vosctl share/fish/vendor_completions.d/vosctl.fish share/man/man1/vosctl.1 share/man/man1/vos-sandbox.1 share/man/man1/vos-faults.1 share/man/man3/vosMsg.3
[ "$(find "$prefix/include/vos" -name '*.h*' | wc -l)" = "$(find "$here/../../include" -name '*.h*' | wc -l)" ]
library=$(dirname "$(find "$prefix" -name libvos.so)")
[ -f "$library/libvos.a" ] && [ -e "$library/libvos.so.1" ] && [ -f "$library/wireshark/plugins/vos.lua" ]

expect_line() { # COMMAND...: runs a consumer and looks for its log line
    local output
    output=$("$sandbox" --writable "$build" "$@")
    case $output in
    *"consumer("*") main:linked and running."*) echo "ok: $*" ;;
    *)
        echo "FAILED: $* printed '$output'"
        exit 1
        ;;
    esac
}

export PKG_CONFIG_PATH=$library/pkgconfig
flags=()
eval "flags=($(pkg-config --cflags --libs vos))" # quoted as for a shell, for directories with blanks
${CC:-cc} -std=c17 -Wall -Wextra -Werror -o "$prefix/with-pkg-config" "$here/consumer.c" "${flags[@]}" \
    -Wl,-rpath,"$library"
expect_line "$prefix/with-pkg-config"
${CXX:-c++} -std=c++17 -Wall -Wextra -Werror -o "$prefix/cpp-with-pkg-config" "$here/consumer.cpp" "${flags[@]}" \
    -Wl,-rpath,"$library"
expect_line "$prefix/cpp-with-pkg-config"

cmake -S "$here" -B "$prefix/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/consumer" >/dev/null
expect_line "$prefix/consumer/consumer"
expect_line "$prefix/consumer/consumer-static"
expect_line "$prefix/consumer/consumer-cpp"
expect_line "$prefix/consumer/consumer-cpp-static"

# zsh and fish of the distribution look in other directories than those of the administrator.
export DESTDIR=$build/install-test-root
rm -rf "$DESTDIR"
cmake --install "$build" --prefix /usr >/dev/null
has "$DESTDIR/usr" share/zsh/vendor-completions/_vosctl share/fish/vendor_completions.d/vosctl.fish bin/vosctl
touch "$DESTDIR/usr/include/vos/somebody-elses.h"
cmake --build "$build" --target uninstall >/dev/null
left=$(cd "$DESTDIR" && find . -type f -o -type l)
[ "$left" = ./usr/include/vos/somebody-elses.h ] || fail "after uninstalling these are left: $left"
if cmake --build "$build" --target uninstall >/dev/null; then fail "something was uninstalled twice"; fi
cmake --install "$build" --prefix /usr >/dev/null
rm "$DESTDIR/usr/include/vos/somebody-elses.h"
cmake --build "$build" --target uninstall >/dev/null
left=$(find "$DESTDIR" -name vos)
[ -z "$left" ] || fail "after uninstalling these directories are left: $left"
echo "ok: uninstalled"
