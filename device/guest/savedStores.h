/* SPDX-License-Identifier: MIT */
/* Everything that is saved by way of the journal: how it is saved and read with the library's own calls. */
#pragma once

#include <span>
#include <string>

namespace cuts {

inline constexpr const char *kJournal = "/flash/journal";

struct SavedStore {
    const char *name;
    const char *path;
    unsigned chip;     /* on which its file lies: 0 /flash, 1 /app */
    bool isNew;        /* is created by the save */
    std::size_t least; /* fewest bytes of content */
    std::size_t most;
    bool (*save)(const std::string &content);
    std::string (*read)(); /* kMissing, kFailed, or the content */
};

inline const std::string kMissing = "missing", kFailed = "failed";

[[nodiscard]] std::span<const SavedStore> savedStores();

/* Bytes of content of the stores that are not being saved. A point costs less time when they are short. */
inline constexpr std::size_t kShort = 100;

/* The content of a store after so many saves: bytes that cannot be compressed, as many as asked for or as fit. */
[[nodiscard]] std::string contentOf(const SavedStore &store, unsigned generation, std::size_t size);

/* The bytes of a file as they are; false when there is none. */
bool readFile(const std::string &path, std::string &bytes);

}  // namespace cuts
