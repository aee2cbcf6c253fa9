/* SPDX-License-Identifier: MIT */
/* Capture files in the format pcapng, which holds copies as they come. */
#ifndef VOSCTL_CAPTURE_FILE_H
#define VOSCTL_CAPTURE_FILE_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "copies.h"

namespace vosctl {

/* Makes the blocks of one section. Each result is a number of whole blocks, so that a file which is cut between two
 * results can be read. */
class CaptureWriter {
  public:
    /* The link type is one of those that are free for everybody's own use. */
    static constexpr uint16_t kLinkType = 147;

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

/* Reads the datagrams of a capture file. What it does not know it leaves out. */
class CaptureReader {
  public:
    /* Hands out at most so many bytes of the file; none at its end. */
    using Read = std::function<std::size_t(char *, std::size_t)>;
    explicit CaptureReader(std::string path, Read read) : path_(std::move(path)), read_(std::move(read)) {}

    /* Nothing at the end, also when the last block is cut. Throws a Failure for what is no capture of messages. */
    std::optional<std::string> next();
    [[nodiscard]] bool cut() const { return cut_; }

  private:
    std::optional<std::string> block(uint32_t &type);
    bool fill(char *bytes, std::size_t size);
    void beginSection(std::string_view body);

    std::string path_;
    Read read_;
    bool begun_ = false;
    bool cut_ = false;
    std::map<uint32_t, bool> readable_; /* the section's interfaces: whether they hold copies */
    uint32_t interfaces_ = 0;
};

}  // namespace vosctl

#endif
