/* SPDX-License-Identifier: MIT */
#include "imports.h"

#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <span>

namespace vostest {

namespace {

#if defined(__x86_64__)
constexpr bool isSlot(uint32_t type) {
    return type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT || type == R_X86_64_64;
}
#elif defined(__aarch64__)
constexpr bool isSlot(uint32_t type) {
    return type == R_AARCH64_JUMP_SLOT || type == R_AARCH64_GLOB_DAT || type == R_AARCH64_ABS64;
}
#endif

const link_map *findLibvos() {
    for (const link_map *map = _r_debug.r_map; map != nullptr; map = map->l_next)
        if (std::string(map->l_name).find("/libvos.so") != std::string::npos) return map;
    fprintf(stderr, "libvos.so is not loaded\n");
    abort();
}

void collect(const link_map *map, std::span<const ElfW(Rela)> relocations, const ElfW(Sym) * symbols, const char *names,
             std::vector<Import> &imports) {
    for (const ElfW(Rela) & relocation : relocations) {
        const ElfW(Sym) &symbol = symbols[ELF64_R_SYM(relocation.r_info)];
        const auto type = static_cast<uint32_t>(ELF64_R_TYPE(relocation.r_info));
        if (symbol.st_shndx != SHN_UNDEF || symbol.st_name == 0 || !isSlot(type)) continue;
        imports.push_back({names + symbol.st_name, reinterpret_cast<void **>(map->l_addr + relocation.r_offset)});
    }
}

}  // namespace

std::vector<Import> importsOfLibvos() {
    const link_map *const map = findLibvos();
    std::map<ElfW(Sxword), ElfW(Xword)> dynamic;
    for (const ElfW(Dyn) *entry = map->l_ld; entry->d_tag != DT_NULL; ++entry)
        dynamic[entry->d_tag] = entry->d_un.d_val;

    const auto *const symbols = reinterpret_cast<const ElfW(Sym) *>(dynamic[DT_SYMTAB]);
    const auto *const names = reinterpret_cast<const char *>(dynamic[DT_STRTAB]);
    std::vector<Import> imports;
    const auto part = [&](ElfW(Sxword) table, ElfW(Sxword) size) {
        collect(map, {reinterpret_cast<const ElfW(Rela) *>(dynamic[table]), dynamic[size] / sizeof(ElfW(Rela))},
                symbols, names, imports);
    };
    part(DT_JMPREL, DT_PLTRELSZ);
    part(DT_RELA, DT_RELASZ);
    return imports;
}

void redirect(const Import &import, void *replacement) {
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto address = reinterpret_cast<uintptr_t>(import.slot) & ~(page - 1);
    if (mprotect(reinterpret_cast<void *>(address), page, PROT_READ | PROT_WRITE) != 0)
        abort(); /* read-only after relocation */
    *import.slot = replacement;
}

}  // namespace vostest
