/* SPDX-License-Identifier: MIT */
/* Capture files in the format pcapng, which holds copies as they come. */
#ifndef VOSCTL_CAPTURE_FILE_H
#define VOSCTL_CAPTURE_FILE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "../base/failure.h"
#include "copies.h"

namespace vosctl {

/* Makes the blocks of one section. Each result is a number of whole blocks, so that a file which is cut between two
 * results can be read. */
class CaptureWriter {
  public:
    /* The begin of a file, also of one that continues another. */
    std::string begin();
    /* A copy; before it the interface of its process, when this file has none yet, and what that process told when the
     * tap began. */
    std::string add(const Copy &copy, const std::string &datagram);
    /* The most bytes that add() and its share of end() make of a copy. */
    [[nodiscard]] std::size_t roomFor(const Copy &copy, std::string_view datagram) const;
    /* The counters of each interface: at the end. */
    [[nodiscard]] std::string end() const;
    [[nodiscard]] uint64_t copies() const { return copies_; }
    /* Copies that the processes had to drop. */
    [[nodiscard]] uint64_t lost() const { return lost_; }

  private:
    struct Interface {
        uint32_t number = 0;
        uint64_t received = 0; /* in this file, and so are the others */
        uint64_t lost = 0;
        uint64_t firstNs = 0;
        uint64_t lastNs = 0;
    };
    std::string newInterface(const Copy &copy);
    std::string packet(const Copy &copy, std::string_view datagram, uint64_t lost);

    std::map<uint32_t, Interface> interfaces_; /* of this file, by process */
    std::map<uint32_t, std::string> started_;  /* the datagrams with which taps began */
    uint64_t copies_ = 0;
    uint64_t lost_ = 0;
    std::map<uint32_t, LossCount> lostBy_; /* by process, through all files */
};

/* Reads the datagrams of a capture file, as the test kit does. It throws a Failure for what is no capture. */
class CaptureReader {
  public:
    CaptureReader(std::string path, vos::test::CaptureReader::Read read) : reader_(std::move(path), std::move(read)) {}

    /* Nothing at the end, also when the last block is cut. */
    std::optional<std::string> next();
    [[nodiscard]] bool cut() const { return reader_.cut(); }

  private:
    vos::test::CaptureReader reader_;
};

inline Failure failureOf(const vos::test::CaptureError &error) { return {error.what(), error.advice()}; }

}  // namespace vosctl

#endif
