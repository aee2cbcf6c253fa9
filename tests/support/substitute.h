/* SPDX-License-Identifier: MIT */
/* Results that no machine returns on demand: a call of libvos is redirected to a function of the test. */
#ifndef TESTS_SUPPORT_SUBSTITUTE_H
#define TESTS_SUPPORT_SUBSTITUTE_H

#include <gtest/gtest.h>

#include <string>

#include "imports.h"

namespace vostest {

/* From here on, in this process, libvos calls `replacement` where it calls `name`. */
template <class Function>
void substitute(const std::string &name, Function *replacement) {
    int found = 0;
    for (const Import &import : importsOfLibvos())
        if (import.name == name) {
            redirect(import, reinterpret_cast<void *>(replacement));
            ++found;
        }
    EXPECT_GT(found, 0) << "libvos does not call " << name;
}

}  // namespace vostest

#endif
