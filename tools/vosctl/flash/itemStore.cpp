/* SPDX-License-Identifier: MIT */
#include "itemStore.h"

#include <vosSysConfig.h>

#include <cstdint>
#include <list>

#include "../base/failure.h"
#include "../base/interrupts.h"
#include "partition.h"
#include "store.h"

namespace vosctl {

namespace {

/* The bytes that the partition stores for a value. The stacking settings also have a validity word, and the flags an
 * upper half of zeros. In an erased item these bytes are erased, too. */
std::string stored(const ItemValue &value) {
    constexpr uint32_t kValid = VOS_STACK_VALID_MAGIC;
    const bool isErased = erased(value.bytes);
    std::string bytes = value.bytes;
    if (value.item->number == BSP_SOFTFLAG) bytes.append(4, isErased ? '\xFF' : '\0');
    if (value.item->number == BSP_STACK && isErased) bytes.append(4, '\xFF');
    if (value.item->number == BSP_STACK && !isErased)
        bytes.append(reinterpret_cast<const char *>(&kValid), sizeof kValid);
    return bytes;
}

struct Rewrite {
    Rewrite(const Partition &of, std::vector<BodyChange> what) : partition(of), changes(std::move(what)), change(of) {}
    const Partition &partition;
    std::vector<BodyChange> changes;
    PartitionChange change;
};

std::vector<BodyChange> changesOf(bool factory, const std::vector<ItemValue> &values) {
    std::vector<BodyChange> changes;
    for (const ItemValue &value : values)
        if (value.item->factory == factory) changes.push_back({value.item->offset, stored(value)});
    return changes;
}

/* Restores all partitions. Returns the end of a sentence that names those that could not be restored; empty when all
 * were. */
std::string putBack(const std::list<Rewrite> &rewrites) {
    std::string lost;
    for (const Rewrite &rewrite : rewrites)
        if (!rewrite.change.putBack()) lost += (lost.empty() ? "" : " and the ") + std::string(rewrite.partition.name);
    return lost.empty() ? "" : "the " + lost + " partition is not what it was";
}

}  // namespace

const char *partitionName(const Item &item) { return partitionOf(item.factory).name; }
const char *partitionPath(const Item &item) { return *partitionOf(item.factory).path; }

std::string readItem(const Item &item) {
    requireValid(partitionOf(item.factory)); /* also reads the partition into flashData */
    if (item.number == BSP_PRIVMODE_ENCRYPT) return {static_cast<char>(flashData[item.offset])};
    uint8_t value[1024];
    if (vosSysConfigDataGet(item.number, value, sizeof value) == VOS_OK)
        return {reinterpret_cast<const char *>(value), item.size};
    throw Failure(std::string(item.name) + " cannot be read", "run it again with --verbose to see why");
}

namespace {

/* Reports the state of the partitions after items could not be written. */
[[noreturn]] void notWritten(const std::string &what, const char *path, const std::string &why,
                             const std::string &lost) {
    throw Failure(
        what + " could not be written to " + path + ": " + why + ", and " + (lost.empty() ? "all is as it was" : lost),
        lost.empty() ? "see that the flash can be written and is not worn out"
                     : "see \"vosctl partition check\"; put a copy back with \"vosctl partition restore FILE\"");
}

}  // namespace

void writeItems(const std::vector<ItemValue> &values, const std::string &what) {
    std::list<Rewrite> rewrites; /* the factory partition first, so that two programs lock in the same order */
    for (const bool factory : {true, false}) {
        std::vector<BodyChange> changes = changesOf(factory, values);
        if (!changes.empty()) rewrites.emplace_back(partitionOf(factory), std::move(changes));
    }
    const HeldSignals held{what + " was being written"};
    for (const Rewrite &rewrite : rewrites) {
        const std::string why = rewrite.change.write(rewrite.changes);
        if (why.empty()) continue;
        notWritten(what, *rewrite.partition.path, why, putBack(rewrites));
    }
}

}  // namespace vosctl
