/* SPDX-License-Identifier: MIT */
/* Counts the blocks of the C library's heap. Nothing is kept of a block, so a program may also release what it has
 * taken before this library was there. */
#include "heap.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>

extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void *block);
}

namespace vosfaults {
std::atomic<int> liveBlocks;
}

namespace {

void *taken(void *block) {
    if (block != nullptr) vosfaults::liveBlocks.fetch_add(1, std::memory_order_relaxed);
    return block;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

void *malloc(std::size_t size) { return taken(__libc_malloc(size)); }

void *calloc(std::size_t count, std::size_t size) { return taken(__libc_calloc(count, size)); }

void *realloc(void *block, std::size_t size) {
    void *const moved = __libc_realloc(block, size);
    if (block == nullptr) return taken(moved);
    if (moved == nullptr && size == 0) vosfaults::liveBlocks.fetch_sub(1, std::memory_order_relaxed);
    return moved;
}

void free(void *block) {
    if (block != nullptr) vosfaults::liveBlocks.fetch_sub(1, std::memory_order_relaxed);
    __libc_free(block);
}

void *memalign(std::size_t alignment, std::size_t size) { return taken(__libc_memalign(alignment, size)); }

void *aligned_alloc(std::size_t alignment, std::size_t size) { return taken(__libc_memalign(alignment, size)); }

int posix_memalign(void **block, std::size_t alignment, std::size_t size) {
    if (alignment % sizeof(void *) != 0 || alignment == 0 || (alignment & (alignment - 1)) != 0) return EINVAL;
    const int before = errno;
    void *const made = taken(__libc_memalign(alignment, size));
    errno = before;
    if (made == nullptr) return ENOMEM;
    *block = made;
    return 0;
}

}  // extern "C"
#pragma GCC visibility pop
