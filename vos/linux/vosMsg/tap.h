/* SPDX-License-Identifier: MIT */
/* The taps that are on; see vosMsgTap.h. */
#ifndef VOS_MSG_TAP_INTERNAL_H
#define VOS_MSG_TAP_INTERNAL_H

#include <sys/types.h>
#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "../base/uniqueFd.h"
#include "vosMsgTap.h"

namespace vos {

static_assert(sizeof(VOS_MSG_TAP_SWITCH) == 140 && offsetof(VOS_MSG_TAP_SWITCH, acPath) == 32);
static_assert(sizeof(VOS_MSG_TAP_HEAD) == 304 && alignof(VOS_MSG_TAP_HEAD) == 8);
static_assert(offsetof(VOS_MSG_TAP_HEAD, ucWhat) == 8 && offsetof(VOS_MSG_TAP_HEAD, iSocketFd) == 12);
static_assert(offsetof(VOS_MSG_TAP_HEAD, iResult) == 24 && offsetof(VOS_MSG_TAP_HEAD, ullNumber) == 32);
static_assert(offsetof(VOS_MSG_TAP_HEAD, ullWallNs) == 48 && offsetof(VOS_MSG_TAP_HEAD, ulWholeLen) == 64);
static_assert(offsetof(VOS_MSG_TAP_HEAD, usOwnLen) == 80 && offsetof(VOS_MSG_TAP_HEAD, acPeer) == 194);

inline constexpr uint32_t kMostTaps = 4;
inline constexpr std::size_t kTapPathSize = sizeof VOS_MSG_TAP_SWITCH::acPath;

/* Which file a path named. */
struct FileId {
    dev_t device;
    ino_t number;
    bool operator==(const FileId &) const = default;
};

/* A socket that is connected to a tap, and the tap's file. */
struct TapSocket {
    UniqueFd connected;
    FileId file;
};

/* One tap. Any thread may send copies through it while another switches it off: whoever uses it is counted, and the
 * last one who leaves a tap that is off closes its socket. So no thread sends a copy to a descriptor whose number has
 * become something else's, and nobody waits. */
class Tap {
  public:
    /* Whether it is on. It then stays usable until leave(). */
    bool enter();
    void leave();

    /* For those who have entered. */
    void stop();
    void copy(VOS_MSG_TAP_HEAD head, std::span<const iovec> message, std::size_t length);
    bool report(uint8_t what); /* false when the tap receives no more */
    void changeLimit(uint32_t limit) { __atomic_store_n(&limit_, limit, __ATOMIC_RELAXED); }
    [[nodiscard]] std::string_view path() const { return {path_.data(), pathLength_}; }
    [[nodiscard]] const FileId &file() const { return file_; }

    /* For the one thread that switches taps on. False when the tap is in use. */
    bool start(TapSocket &socket, std::string_view path, uint32_t limit);

    /* In a child of fork(): the users are the parent's. The descriptor is not closed: the program may have closed it
     * and opened another one under its number. */
    void forget();

  private:
    bool send(const msghdr &datagram) const;
    void close();
    [[nodiscard]] uint32_t bit() const;

    /* Bits of the state above the number of users. Users may come in any state, and leave at once unless the tap is on.
     */
    static constexpr uint32_t kStarting = 1u << 31, kOn = 1u << 30, kOff = 1u << 29, kClosing = 1u << 28;
    static constexpr uint32_t kUsers = kClosing - 1;

    uint32_t state_ = 0;
    uint32_t limit_ = 0; /* bytes of payload */
    int32_t socket_ = 0; /* connected, so that a new socket under the path gets nothing */
    uint32_t pathLength_ = 0;
    FileId file_{};
    std::array<char, kTapPathSize> path_{};
    uint64_t number_ = 0;
    uint64_t lost_ = 0;
};

extern std::array<Tap, kMostTaps> g_taps;

/* The moment that a copy shows. errno is kept. */
struct TapMoment {
    uint64_t wallNs;
    uint64_t monotonicNs;
    static TapMoment now();
};

/* A header with the moment, the process and the thread, and nothing about a message. */
VOS_MSG_TAP_HEAD newTapHead(uint8_t what, const TapMoment &moment);

/* The path of the process's normal socket is the process's own in the header. */
void nameProcess(VOS_MSG_TAP_HEAD &head);

/* Whether the taps are this process's. In a child of fork() they are the parent's until one is switched on there. */
bool ownsTaps();
/* Makes them this process's; for the thread that switches. */
void takeTaps();

}  // namespace vos

#endif
