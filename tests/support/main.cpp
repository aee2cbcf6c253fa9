/* SPDX-License-Identifier: MIT */
/* Every test program's main: tests only run in the sandbox, so that none of them ever touches the machine. */
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "faults.h"

/* Weak, because a test program may define options of its own. With a sanitizer an allocation that is too large returns
 * null, as that of the C library does. */
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
