/* SPDX-License-Identifier: MIT */
/* The two data partitions: a 128-byte header and a body of fixed size. */
#ifndef VOS_SYS_CONFIG_PARTITION_H
#define VOS_SYS_CONFIG_PARTITION_H

#include <cstddef>
#include <cstdint>

#include "vosSysConfig.h"

namespace vos {

/* The first 128 bytes of the file; the body follows. Words are in the machine's byte order. */
struct PartitionHeader {
    uint32_t bodyLength; /* rewritten by every write, never examined */
    uint32_t magic;
    uint32_t checksum; /* Cal_CRC() of the body, all 32 bits */
    uint32_t reserved[2];
    uint8_t unused[44];
    uint32_t zero[16];
};
static_assert(sizeof(PartitionHeader) == 128 && offsetof(PartitionHeader, magic) == 4);
static_assert(offsetof(PartitionHeader, checksum) == 8 && offsetof(PartitionHeader, reserved) == 12);
static_assert(offsetof(PartitionHeader, unused) == 20 && offsetof(PartitionHeader, zero) == 64);

/* Each logs under its own name. Results: VOS_OK; VOS_ERROR; of a read also VOS_ERR_PARAM, VOS_ERR_CHECKSUM and
 * VOS_ERR_MAGIC (wrong magic, or an empty file). A missing file is VOS_ERROR. A failed read leaves the body as it was.
 */
int32_t bootConfigDataInit();
int32_t readBootConfigData(uint8_t *body);
int32_t writeBootConfigData(const uint8_t *body);
int32_t flashAppDataInit();
int32_t readFlashAppData(uint8_t *body);
int32_t writeFlashAppData(const uint8_t *body);

}  // namespace vos

#endif
