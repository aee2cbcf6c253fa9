/* SPDX-License-Identifier: MIT */
/**
 * @file vosTestCopies.hpp
 * Reads the copies of messages (vosMsgTap.h), and the files in the format pcapng in which "vosctl capture" keeps them.
 * Tests seldom need this header itself: vosTestCapture.hpp makes a script of such a file.
 *
 * Header only; C++17; it uses exceptions. Nothing here calls libvos.
 */
#ifndef VOS_TEST_COPIES_HPP
#define VOS_TEST_COPIES_HPP

#include <vosMsg.h>
#include <vosMsgTap.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vos::test {

/** A copy of a message, as a process sends it to a tap. */
struct Copy {
    VOS_MSG_TAP_HEAD head{};
    std::string message; /**< the part that was copied */

    /** Path of the process's socket, empty when not known. */
    std::string own() const { return pathOf(head.acOwn, head.usOwnLen); }
    /** And of the other one. */
    std::string peer() const { return pathOf(head.acPeer, head.usPeerLen); }
    /** Whether a message is reported, and not the state of the tap. */
    bool reportsMessage() const { return head.ucWhat == VOS_MSG_TAP_SENT || head.ucWhat == VOS_MSG_TAP_RECEIVED; }
    /** The message's own header, when all of it was copied. */
    std::optional<VOS_MSG_HEAD> messageHead() const {
        VOS_MSG_HEAD found{};
        if (head.ulHeadAt > message.size() || message.size() - head.ulHeadAt < sizeof found) return {};
        memcpy(&found, message.data() + head.ulHeadAt, sizeof found);
        return found;
    }
    /** What was copied behind that header; a view of `message`. */
    std::string_view payload() const {
        if (!messageHead()) return {};
        return std::string_view(message).substr(head.ulHeadAt + sizeof(VOS_MSG_HEAD));
    }

  private:
    /* A path ends at its first NUL; an abstract address begins with one. */
    static std::string pathOf(const char (&field)[sizeof VOS_MSG_TAP_HEAD::acOwn], std::size_t length) {
        const std::string_view path{field, std::min(length, sizeof field)};
        return std::string(path.substr(0, path.find('\0', 1)));
    }
};

/** Nothing for a datagram that is no copy, or of another version. Lengths that do not fit are cut to what there is. */
inline std::optional<Copy> copyOf(std::string_view datagram) {
    Copy copy;
    if (datagram.size() < sizeof copy.head) return {};
    memcpy(&copy.head, datagram.data(), sizeof copy.head);
    if (copy.head.ulType != VOS_MSG_TAP_COPY || copy.head.usVersion != 1 || copy.head.usHeadLen < sizeof copy.head ||
        copy.head.usHeadLen > datagram.size())
        return {};
    copy.message = datagram.substr(copy.head.usHeadLen, copy.head.ulCopiedLen);
    return copy;
}

/** Counts the copies that one process has lost. Copies of two threads may overtake each other, so a copy may tell fewer
 *  losses than one before it. */
class LossCount {
  public:
    /** How many this copy tells that none before it has told. */
    uint64_t more(const VOS_MSG_TAP_HEAD &head) {
        /* A tap that begins, also in a program that the process has executed, counts from 0. */
        if (head.ucWhat == VOS_MSG_TAP_STARTED && head.ullNumber == 0) known_ = 0;
        const uint64_t more = head.ullLost - std::min(head.ullLost, known_);
        known_ += more;
        return more;
    }

  private:
    uint64_t known_ = 0;
};

/** The blocks of the format pcapng, as far as captures of messages have them. */
namespace pcapng {
constexpr uint32_t kSection = 0x0A0D0D0A; /**< also the first bytes of a file, in either byte order */
constexpr uint32_t kInterface = 1;
constexpr uint32_t kStatistics = 5;
constexpr uint32_t kPacket = 6;
constexpr uint32_t kByteOrder = 0x1A2B3C4D;
constexpr uint32_t kForeignByteOrder = 0x4D3C2B1A;
constexpr uint32_t kLongestBlock = 1 << 20; /**< a longer one is none of a capture of messages */
constexpr uint16_t kLinkType = 147;         /**< of copies: one that is free for everybody's own use */
}  // namespace pcapng

/** A capture that cannot be read: what is wrong, and what the user can do. */
class CaptureError : public std::runtime_error {
  public:
    CaptureError(const std::string &what, std::string advice) : runtime_error(what), advice_(std::move(advice)) {}
    const std::string &advice() const { return advice_; }

  private:
    std::string advice_;
};

/** Reads the datagrams of a capture file. What it does not know it leaves out. */
class CaptureReader {
  public:
    /** Hands out at most so many bytes of the file; none at its end. */
    using Read = std::function<std::size_t(char *, std::size_t)>;
    /** `name` is for messages. */
    CaptureReader(std::string name, Read read) : name_(std::move(name)), read_(std::move(read)) {}

    /** The next datagram; nothing at the end, also when the last block is cut. Throws CaptureError. */
    std::optional<std::string> next() {
        uint32_t type = 0;
        while (const auto body = block(type)) {
            constexpr std::size_t kPacketHead = 20;
            if (type == pcapng::kSection) beginSection(*body);
            if (type == pcapng::kInterface) readable_[interfaces_++] = valueAt<uint16_t>(*body, 0) == pcapng::kLinkType;
            if (type != pcapng::kPacket || body->size() < kPacketHead) continue;
            const auto interface = readable_.find(valueAt<uint32_t>(*body, 0));
            if (interface == readable_.end() || !interface->second) continue;
            const std::size_t length = valueAt<uint32_t>(*body, 12);
            return body->substr(kPacketHead, std::min(length, body->size() - kPacketHead));
        }
        if (!begun_) throw CaptureError(name_ + " is empty", "name a file that \"vosctl capture\" has written");
        return {};
    }
    /** Whether the file has ended within a block. */
    bool cut() const { return cut_; }

  private:
    template <class Value>
    static Value valueAt(std::string_view bytes, std::size_t offset) {
        Value value{};
        if (offset <= bytes.size() && bytes.size() - offset >= sizeof value)
            memcpy(&value, bytes.data() + offset, sizeof value);
        return value;
    }

    /* False at the end of the file, in the middle of what was asked for or before it. */
    bool fill(char *bytes, std::size_t size) {
        for (std::size_t done = 0; done < size;) {
            const std::size_t count = read_(bytes + done, size - done);
            if (count == 0) {
                if (done > 0) cut_ = true;
                return false;
            }
            done += count;
        }
        return true;
    }

    /* The body of the next block, without the length at its end. */
    std::optional<std::string> block(uint32_t &type) {
        uint32_t head[2]; /* type and length of the whole block */
        if (!fill(reinterpret_cast<char *>(head), sizeof head)) return {};
        type = head[0];
        if (!begun_ && type != pcapng::kSection) throw noCapture();
        std::string body;
        if (type == pcapng::kSection) { /* only behind its begin is the byte order known */
            body.resize(sizeof pcapng::kByteOrder);
            if (!fill(body.data(), body.size())) return {};
            if (valueAt<uint32_t>(body, 0) == pcapng::kForeignByteOrder)
                throw CaptureError(name_ + " was written on a machine of the other byte order",
                                   "read it with Wireshark");
        }
        if (head[1] < sizeof head + sizeof(uint32_t) + body.size() || head[1] > pcapng::kLongestBlock ||
            head[1] % 4 != 0)
            throw CaptureError(name_ + " is damaged: a block has a length of " + std::to_string(head[1]),
                               "use the part before it, or capture again");
        const std::size_t begin = body.size();
        body.resize(head[1] - sizeof head);
        if (!fill(body.data() + begin, body.size() - begin)) {
            cut_ = true;
            return {};
        }
        body.resize(body.size() - sizeof(uint32_t));
        return body;
    }

    void beginSection(std::string_view body) {
        if (valueAt<uint32_t>(body, 0) != pcapng::kByteOrder) throw noCapture();
        begun_ = true;
        readable_.clear();
        interfaces_ = 0;
    }

    CaptureError noCapture() const {
        return {name_ + " is no capture file", "name one that \"vosctl capture\" has written"};
    }

    std::string name_;
    Read read_;
    bool begun_ = false;
    bool cut_ = false;
    std::map<uint32_t, bool> readable_; /* the section's interfaces: whether they hold copies */
    uint32_t interfaces_ = 0;
};

}  // namespace vos::test

#endif
