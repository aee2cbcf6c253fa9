/* SPDX-License-Identifier: MIT */
/* What a device keeps on flash, in numbered generations, so that after a power cut each byte is known to be old or new.
 */
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace stores {

enum Store : unsigned { kConfiguration, kSyslog, kSystem, kFactory, kApplication, kPackage, kBootLoader, kStores };

/* How often each store has been saved. */
using Generations = std::array<unsigned, kStores>;

enum class Found { Old, New, Torn, Empty, Lost, Foreign };

/* A file, or the boot loader's flash, that a save changes. */
struct Object {
    const char *name;
    const char *path; /* none: szBootLoaderFileName */
    std::string (*content)(const Generations &);
    std::string_view allowed;     /* first letters of what a cut may leave */
    std::string_view withJournal; /* the same with the journal, after the recovery */
};

/* How many bytes a configuration, a syslog, a file of a package, and the payload of an image have. */
extern std::size_t contentSize;

[[nodiscard]] const char *nameOf(Store store);
[[nodiscard]] Store storeOf(std::string_view name); /* kStores for an unknown one */
[[nodiscard]] const char *nameOf(Found found);
[[nodiscard]] std::span<const Object> objects();

/* Makes every store from nothing, as a factory and a first upgrade do. */
void makeAll(const Generations &generations);

/* Saves one store with the library's own calls. The result is the library's. */
int32_t save(Store store, const Generations &now);

/* The rest of an installation whose image is in place: only its version is missing. */
int32_t saveVersion(const Generations &now);

/* The bytes of an object as they are: none when it is not there. */
struct Bytes {
    bool there = false;
    std::string bytes;
};
[[nodiscard]] Bytes read(const Object &object, std::size_t most);

[[nodiscard]] Found classify(const Bytes &bytes, const std::string &before, const std::string &after, bool erasable);

}  // namespace stores
