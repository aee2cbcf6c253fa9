/* SPDX-License-Identifier: MIT */
#include "child.h"

namespace vostest {

const std::string &testPrograms() {
    static const std::string directory = TEST_PROGRAMS;
    return directory;
}

}  // namespace vostest
