/* SPDX-License-Identifier: MIT */
/* A program in C++ of somebody who has installed the library. */
#include <vos.hpp>

int main() {
    if (!vos::process::init("consumer")) return 1;
    vos::log(vos::level::error)("linked and running.");
    return vos::process::name() == "consumer" ? 0 : 1;
}
