/* SPDX-License-Identifier: MIT */
/* The imports of the loaded libvos.so: where its global offset table holds the address of each. */
#ifndef TESTS_SUPPORT_IMPORTS_H
#define TESTS_SUPPORT_IMPORTS_H

#include <string>
#include <vector>

namespace vostest {

struct Import {
    std::string name;
    void **slot;
};

std::vector<Import> importsOfLibvos();

/* Redirects an import to another function. */
void redirect(const Import &import, void *replacement);

}  // namespace vostest

#endif
