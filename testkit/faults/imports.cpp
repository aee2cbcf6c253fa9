/* SPDX-License-Identifier: MIT */
#include "imports.h"

#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace vosfaults {

namespace {

#if defined(__x86_64__)
constexpr bool isSlot(uint32_t type) {
    return type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT || type == R_X86_64_64;
}
#elif defined(__aarch64__)
constexpr bool isSlot(uint32_t type) {
    return type == R_AARCH64_JUMP_SLOT || type == R_AARCH64_GLOB_DAT || type == R_AARCH64_ABS64;
}
#elif defined(__riscv)
constexpr bool isSlot(uint32_t type) { return type == R_RISCV_JUMP_SLOT || type == R_RISCV_64; }
#elif defined(__s390x__)
constexpr bool isSlot(uint32_t type) { return type == R_390_JMP_SLOT || type == R_390_GLOB_DAT || type == R_390_64; }
#endif

}  // namespace

const link_map *findLibvos() {
    for (const link_map *map = _r_debug.r_map; map != nullptr; map = map->l_next)
        if (strstr(map->l_name, "/libvos.so") != nullptr) return map;
    return nullptr;
}

void forEachSlot(const link_map *libvos, void (*visit)(const Slot &slot, void *context), void *context) {
    const ElfW(Sym) *symbols = nullptr;
    const char *names = nullptr;
    struct {
        const ElfW(Rela) * first;
        std::size_t size;
    } tables[2]{};
    for (const ElfW(Dyn) *entry = libvos->l_ld; entry->d_tag != DT_NULL; ++entry) {
        /* Only on some processors has the loader made addresses of the offsets in the file. */
        const auto offset = entry->d_un.d_ptr;
        const auto *const address =
            reinterpret_cast<const void *>(offset < libvos->l_addr ? libvos->l_addr + offset : offset);
        if (entry->d_tag == DT_SYMTAB) symbols = static_cast<const ElfW(Sym) *>(address);
        if (entry->d_tag == DT_STRTAB) names = static_cast<const char *>(address);
        if (entry->d_tag == DT_JMPREL) tables[0].first = static_cast<const ElfW(Rela) *>(address);
        if (entry->d_tag == DT_PLTRELSZ) tables[0].size = entry->d_un.d_val;
        if (entry->d_tag == DT_RELA) tables[1].first = static_cast<const ElfW(Rela) *>(address);
        if (entry->d_tag == DT_RELASZ) tables[1].size = entry->d_un.d_val;
    }
    for (const auto &table : tables)
        for (std::size_t i = 0; i < table.size / sizeof(ElfW(Rela)); ++i) {
            const ElfW(Rela) &relocation = table.first[i];
            const ElfW(Sym) &symbol = symbols[ELF64_R_SYM(relocation.r_info)];
            if (symbol.st_name == 0 || !isSlot(static_cast<uint32_t>(ELF64_R_TYPE(relocation.r_info)))) continue;
            visit({names + symbol.st_name, reinterpret_cast<void **>(libvos->l_addr + relocation.r_offset),
                   symbol.st_shndx != SHN_UNDEF},
                  context);
        }
}

bool redirect(const Slot &slot, void *replacement) {
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto address = reinterpret_cast<uintptr_t>(slot.at) & ~(page - 1);
    if (mprotect(reinterpret_cast<void *>(address), page, PROT_READ | PROT_WRITE) != 0) return false;
    *slot.at = replacement;
    return true;
}

}  // namespace vosfaults
