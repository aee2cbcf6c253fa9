/* SPDX-License-Identifier: MIT */
/* The global offset table of the loaded libvos.so: where it holds the addresses of what the library calls. */
#ifndef TESTKIT_FAULTS_IMPORTS_H
#define TESTKIT_FAULTS_IMPORTS_H

struct link_map;

namespace vosfaults {

/* The loaded libvos.so, or null. */
const link_map *findLibvos();

/* One slot. `own`: the symbol is one that libvos itself exports. */
struct Slot {
    const char *name;
    void **at;
    bool own;
};

/* Calls `visit` with each slot of a function or variable. */
void forEachSlot(const link_map *libvos, void (*visit)(const Slot &slot, void *context), void *context);

/* Stores an address in a slot. False when the page cannot be made writable: it is read-only after relocation. */
bool redirect(const Slot &slot, void *replacement);

}  // namespace vosfaults

#endif
