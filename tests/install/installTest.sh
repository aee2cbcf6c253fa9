#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs into an empty prefix, then builds and runs a consumer with pkg-config and another with find_package.
#
#     installTest.sh BUILD_DIRECTORY
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
sandbox=$here/../support/sandbox
prefix=$build/install-test
rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

for file in include/vos/vos.h include/vos/vosTypes.h bin/vosctl share/bash-completion/completions/vosctl \
    share/zsh/vendor-completions/_vosctl share/fish/vendor_completions.d/vosctl.fish; do
    [ -f "$prefix/$file" ] || { echo "FAILED: $file is not installed"; exit 1; }
done
[ "$(find "$prefix/include/vos" -name '*.h' | wc -l)" = "$(find "$here/../../include" -name '*.h' | wc -l)" ]
library=$(dirname "$(find "$prefix" -name libvos.so)")
[ -f "$library/libvos.a" ] && [ -e "$library/libvos.so.1" ]

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
# shellcheck disable=SC2046  # the flags are words
${CC:-cc} -std=c17 -Wall -Wextra -Werror -o "$prefix/with-pkg-config" "$here/consumer.c" $(pkg-config --cflags --libs vos) \
    -Wl,-rpath,"$library"
expect_line "$prefix/with-pkg-config"

cmake -S "$here" -B "$prefix/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/consumer" >/dev/null
expect_line "$prefix/consumer/consumer"
expect_line "$prefix/consumer/consumer-static"
