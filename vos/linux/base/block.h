/* SPDX-License-Identifier: MIT */
/* One owned heap block. */
#ifndef VOS_BASE_BLOCK_H
#define VOS_BASE_BLOCK_H

#include <cstdint>
#include <memory>

#include "vosDebug.h"

namespace vos {

struct FreeBlock {
    void operator()(void *block) const { vosFree(block); }
};

/* Bytes from vosMalloc(), released at the end of the scope; null when there was no memory. */
using Block = std::unique_ptr<uint8_t[], FreeBlock>;

inline Block allocate(uint32_t size) { return Block{static_cast<uint8_t *>(vosMalloc(size))}; }

}  // namespace vos

#endif
