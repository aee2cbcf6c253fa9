/* SPDX-License-Identifier: MIT */
#include "coreFile.h"

#include <cstring>

#include "vosFile.h"

namespace vos {

CoreFileSettings readCoreFileSettings() {
    CoreFileSettings settings;
    CoreFileRecord record{};
    const int32_t count = vosFileRead("/flash/core-file", &record, sizeof record);
    if (count != static_cast<int32_t>(sizeof record)) return settings;
    if (record.magic != kCoreFileMagic || record.directory[0] != '/') return settings;
    settings.sizeMiB = record.sizeMiB;
    settings.directory = {};
    memcpy(settings.directory.data(), record.directory, settings.directory.size() - 1);
    return settings;
}

}  // namespace vos
