/* SPDX-License-Identifier: MIT */
#include "captureFile.h"

#include <algorithm>
#include <cstring>

#include "../base/failure.h"

namespace vosctl {

namespace {

enum Option : uint16_t {
    kEndOfOptions = 0,
    kApplication = 4,     /* of a section */
    kName = 2,            /* of an interface */
    kDescription = 3,     /* of an interface */
    kTimeResolution = 9,  /* of an interface */
    kFlags = 2,           /* of a packet */
    kDropCount = 4,       /* of a packet */
    kStatisticsStart = 2, /* of statistics */
    kStatisticsEnd = 3,
    kStatisticsReceived = 4,
    kStatisticsDropped = 5,
};
constexpr uint8_t kNanoseconds = 9; /* powers of ten */
enum Direction : uint32_t { kInbound = 1, kOutbound = 2 };

template <class Value>
void put(std::string &block, Value value) {
    block.append(reinterpret_cast<const char *>(&value), sizeof value);
}

void putBytes(std::string &block, std::string_view bytes) {
    block += bytes;
    block.append((4 - bytes.size() % 4) % 4, '\0');
}

void putOption(std::string &block, uint16_t option, std::string_view content) {
    put(block, option);
    put(block, static_cast<uint16_t>(content.size()));
    putBytes(block, content);
}

template <class Value>
void putNumber(std::string &block, uint16_t option, Value value) {
    putOption(block, option, {reinterpret_cast<const char *>(&value), sizeof value});
}

/* The format has the upper half of a time before the lower one, whatever the byte order is. */
void putTime(std::string &block, uint64_t ns) {
    put(block, static_cast<uint32_t>(ns >> 32));
    put(block, static_cast<uint32_t>(ns));
}

void putTimeOption(std::string &block, uint16_t option, uint64_t ns) {
    std::string halves;
    putTime(halves, ns);
    putOption(block, option, halves);
}

std::string blockOf(uint32_t type, const std::string &body) {
    const auto length = static_cast<uint32_t>(body.size() + 12);
    std::string block;
    put(block, type);
    put(block, length);
    block += body;
    put(block, length);
    return block;
}

std::string interfaceOf(const Copy &copy) {
    std::string body;
    put(body, vos::test::pcapng::kLinkType);
    put(body, uint16_t{0});
    put(body, uint32_t{0}); /* no limit of the length */
    const std::string own = copy.head.ucWhat == VOS_MSG_TAP_STARTED ? fileOf(copy.own()) : "";
    const std::string pid = "pid " + std::to_string(copy.head.ulProcessId);
    putOption(body, kName, own.empty() ? pid : own);
    putOption(body, kDescription, pid);
    putNumber(body, kTimeResolution, kNanoseconds);
    putOption(body, kEndOfOptions, "");
    return body;
}

}  // namespace

std::string CaptureWriter::begin() {
    interfaces_.clear();
    std::string body;
    put(body, vos::test::pcapng::kByteOrder);
    put(body, uint16_t{1}); /* version 1.0 */
    put(body, uint16_t{0});
    put(body, ~uint64_t{0}); /* the section's length is not known yet */
    putOption(body, kApplication, "vosctl " VOSCTL_VERSION);
    putOption(body, kEndOfOptions, "");
    return blockOf(vos::test::pcapng::kSection, body);
}

std::string CaptureWriter::add(const Copy &copy, const std::string &datagram) {
    const uint32_t pid = copy.head.ulProcessId;
    const bool starts = copy.head.ucWhat == VOS_MSG_TAP_STARTED;
    if (starts) started_[pid] = datagram;
    std::string blocks;
    if (!interfaces_.contains(pid)) {
        const auto known = started_.find(pid);
        const auto start = known == started_.end() ? std::nullopt : copyOf(known->second);
        blocks = newInterface(start ? *start : copy);
        if (start && !starts) blocks += packet(*start, known->second, 0); /* repeated: the file before has counted it */
    }
    ++copies_;
    const uint64_t lost = lostBy_[pid].more(copy.head);
    lost_ += lost;
    blocks += packet(copy, datagram, lost);
    return blocks;
}

std::size_t CaptureWriter::roomFor(const Copy &copy, std::string_view datagram) const {
    constexpr std::size_t kPacket = 64;          /* around a datagram: fixed words, padding and options */
    constexpr std::size_t kInterface = 256 + 84; /* with the longest name, and its counters */
    const std::size_t known = datagram.size() + kPacket;
    if (interfaces_.contains(copy.head.ulProcessId)) return known;
    const auto start = started_.find(copy.head.ulProcessId);
    return known + kInterface + (start == started_.end() ? 0 : start->second.size() + kPacket);
}

std::string CaptureWriter::newInterface(const Copy &copy) {
    const auto number = static_cast<uint32_t>(interfaces_.size());
    interfaces_[copy.head.ulProcessId] = {number, 0, 0, copy.head.ullWallNs, 0};
    return blockOf(vos::test::pcapng::kInterface, interfaceOf(copy));
}

std::string CaptureWriter::packet(const Copy &copy, std::string_view datagram, uint64_t lost) {
    Interface &interface = interfaces_[copy.head.ulProcessId];
    std::string body;
    put(body, interface.number);
    putTime(body, copy.head.ullWallNs);
    put(body, static_cast<uint32_t>(datagram.size()));
    const uint32_t uncopied = copy.head.ulWholeLen - std::min(copy.head.ulWholeLen, copy.head.ulCopiedLen);
    put(body, static_cast<uint32_t>(datagram.size()) + uncopied);
    putBytes(body, datagram);
    if (copy.reportsMessage()) putNumber(body, kFlags, copy.head.ucWhat == VOS_MSG_TAP_SENT ? kOutbound : kInbound);
    if (lost > 0) putNumber(body, kDropCount, lost);
    putOption(body, kEndOfOptions, "");
    interface.lost += lost;
    interface.lastNs = copy.head.ullWallNs;
    ++interface.received;
    return blockOf(vos::test::pcapng::kPacket, body);
}

std::string CaptureWriter::end() const {
    std::string blocks;
    for (const auto &[pid, interface] : interfaces_) {
        std::string body;
        put(body, interface.number);
        putTime(body, interface.lastNs);
        putTimeOption(body, kStatisticsStart, interface.firstNs);
        putTimeOption(body, kStatisticsEnd, interface.lastNs);
        putNumber(body, kStatisticsReceived, interface.received);
        putNumber(body, kStatisticsDropped, interface.lost);
        putOption(body, kEndOfOptions, "");
        blocks += blockOf(vos::test::pcapng::kStatistics, body);
    }
    return blocks;
}

std::optional<std::string> CaptureReader::next() {
    try {
        return reader_.next();
    } catch (const vos::test::CaptureError &error) {
        throw failureOf(error);
    }
}

}  // namespace vosctl
