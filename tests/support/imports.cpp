/* SPDX-License-Identifier: MIT */
#include "imports.h"

#include <cstdio>
#include <cstdlib>

#include "faults/imports.h"

namespace vostest {

std::vector<Import> importsOfLibvos() {
    const link_map *const libvos = vosfaults::findLibvos();
    if (libvos == nullptr) {
        fprintf(stderr, "libvos.so is not loaded\n");
        abort();
    }
    std::vector<Import> imports;
    vosfaults::forEachSlot(
        libvos,
        [](const vosfaults::Slot &slot, void *context) {
            if (!slot.own) static_cast<std::vector<Import> *>(context)->push_back({slot.name, slot.at});
        },
        &imports);
    return imports;
}

void redirect(const Import &import, void *replacement) {
    if (!vosfaults::redirect({import.name.c_str(), import.slot, false}, replacement)) abort();
}

}  // namespace vostest
