/* SPDX-License-Identifier: MIT */
/* Every test program's main: tests only run in the sandbox, so that none of them ever touches the machine. */
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "faults.h"

/* Weak: a test program may have options of its own. Under a sanitizer too an allocation that is too large gives null,
 * as the C library's does. */
extern "C" [[gnu::weak]] const char *__asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" [[gnu::weak]] const char *__tsan_default_options() { return "allocator_may_return_null=1"; }

int main(int argc, char **argv) {
    testing::InitGoogleMock(&argc, argv);
    if (getenv("VOS_SANDBOX") == nullptr && !testing::GTEST_FLAG(list_tests)) {
        fprintf(stderr, "run me as: testkit/vos-sandbox %s\n", argv[0]);
        return EXIT_FAILURE;
    }
    vostest::Faults::install();
    return RUN_ALL_TESTS();
}
