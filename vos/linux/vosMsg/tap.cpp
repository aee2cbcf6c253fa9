/* SPDX-License-Identifier: MIT */
#include "tap.h"

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "../base/processId.h"
#include "message.h"
#include "ownSockets.h"
#include "transfer.h"

constinit uint32_t vos::g_tapsOn = 0;
constinit std::array<vos::Tap, vos::kMostTaps> vos::g_taps{};

namespace {

/* The process that has switched the taps on. */
constinit pid_t g_owner = 0;

/* The kernel is asked once for each thread and each child. */
struct ThreadId {
    pid_t process;
    pid_t thread;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local ThreadId g_thread{};

pid_t threadIn(pid_t process) {
    if (g_thread.process != process) g_thread = {process, gettid()};
    return g_thread.thread;
}

/* A clock that fails shows 0. */
uint64_t nanoseconds(clockid_t clock) {
    timespec now{};
    if (clock_gettime(clock, &now) != 0) return 0;
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

/* Whether the error says that the tap can never receive again. Any other is the copy's own. */
bool gone(int error) {
    constexpr int kGone[] = {ECONNREFUSED, ECONNRESET, ENOTCONN, EPIPE, EPERM, EBADF, ENOTSOCK};
    return std::ranges::find(kGone, error) != std::end(kGone);
}

/* More pieces than the library's own messages have. Of what the application gathers from more, the rest is cut. */
constexpr std::size_t kMostPieces = 15;

/* Appends the first `length` bytes of the pieces. The result is the number of bytes that were appended. */
std::size_t append(std::span<const iovec> pieces, std::size_t length, std::array<iovec, kMostPieces + 1> &to,
                   std::size_t &count) {
    std::size_t appended = 0;
    for (const iovec &piece : pieces.first(std::min(pieces.size(), kMostPieces))) {
        const std::size_t part = std::min(piece.iov_len, length - appended);
        to[count++] = {piece.iov_base, part};
        appended += part;
    }
    return appended;
}

}  // namespace

vos::TapMoment vos::TapMoment::now() {
    const ErrnoKeeper keep;
    return {nanoseconds(CLOCK_REALTIME), nanoseconds(CLOCK_MONOTONIC)};
}

VOS_MSG_TAP_HEAD vos::newTapHead(uint8_t what, const TapMoment &moment) {
    VOS_MSG_TAP_HEAD head{};
    const pid_t process = processId();
    head.ulType = VOS_MSG_TAP_COPY;
    head.usVersion = 1;
    head.usHeadLen = sizeof head;
    head.ucWhat = what;
    head.iSocketFd = -1;
    head.ulProcessId = static_cast<uint32_t>(process);
    head.ulThreadId = static_cast<uint32_t>(threadIn(process));
    head.ullWallNs = moment.wallNs;
    head.ullMonotonicNs = moment.monotonicNs;
    return head;
}

void vos::nameProcess(VOS_MSG_TAP_HEAD &head) {
    const std::string_view path = processPath();
    head.usOwnLen = static_cast<uint16_t>(path.size());
    std::copy_n(path.data(), path.size(), head.acOwn);
}

bool vos::ownsTaps() { return __atomic_load_n(&g_owner, __ATOMIC_ACQUIRE) == processId(); }

void vos::takeTaps() {
    if (ownsTaps()) return;
    __atomic_store_n(&g_tapsOn, 0, __ATOMIC_RELAXED);
    for (Tap &tap : g_taps) tap.forget();
    __atomic_store_n(&g_owner, processId(), __ATOMIC_RELEASE);
}

bool vos::Tap::enter() {
    if ((__atomic_add_fetch(&state_, 1, __ATOMIC_ACQUIRE) & kOn) != 0) return true;
    leave();
    return false;
}

void vos::Tap::leave() {
    if (__atomic_sub_fetch(&state_, 1, __ATOMIC_ACQ_REL) != kOff) return;
    uint32_t off = kOff;
    if (__atomic_compare_exchange_n(&state_, &off, kClosing, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) close();
}

void vos::Tap::stop() {
    if ((__atomic_fetch_and(&state_, ~kOn, __ATOMIC_ACQ_REL) & kOn) == 0) return;
    __atomic_fetch_and(&g_tapsOn, ~bit(), __ATOMIC_RELAXED);
    __atomic_fetch_or(&state_, kOff, __ATOMIC_RELEASE);
}

void vos::Tap::close() {
    report(VOS_MSG_TAP_STOPPED);
    UniqueFd{std::exchange(socket_, -1)}.reset();
    __atomic_fetch_and(&state_, ~kClosing, __ATOMIC_RELEASE);
}

bool vos::Tap::start(TapSocket &socket, std::string_view path, uint32_t limit) {
    uint32_t state = __atomic_load_n(&state_, __ATOMIC_RELAXED);
    do {
        if ((state & ~kUsers) != 0) return false;
    } while (
        !__atomic_compare_exchange_n(&state_, &state, state | kStarting, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED));
    socket_ = socket.connected.release();
    file_ = socket.file;
    changeLimit(limit);
    pathLength_ = static_cast<uint32_t>(std::min(path.size(), path_.size()));
    std::copy_n(path.data(), pathLength_, path_.data());
    number_ = 0;
    lost_ = 0;
    report(VOS_MSG_TAP_STARTED);
    __atomic_fetch_or(&g_tapsOn, bit(), __ATOMIC_RELAXED); /* first: from here on another thread may stop the tap */
    __atomic_fetch_xor(&state_, kStarting | kOn, __ATOMIC_RELEASE);
    return true;
}

void vos::Tap::forget() {
    socket_ = -1;
    __atomic_store_n(&state_, 0, __ATOMIC_RELAXED);
}

uint32_t vos::Tap::bit() const { return 1u << (this - g_taps.data()); }

bool vos::Tap::send(const msghdr &datagram) const {
    return sendmsg(__atomic_load_n(&socket_, __ATOMIC_RELAXED), &datagram, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

bool vos::Tap::report(uint8_t what) {
    VOS_MSG_TAP_HEAD head = newTapHead(what, TapMoment::now());
    nameProcess(head);
    head.ullNumber = __atomic_load_n(&number_, __ATOMIC_RELAXED);
    head.ullLost = __atomic_load_n(&lost_, __ATOMIC_RELAXED);
    iovec piece{&head, sizeof head};
    msghdr datagram{};
    datagram.msg_iov = &piece;
    datagram.msg_iovlen = 1;
    return send(datagram) || !gone(errno);
}

void vos::Tap::copy(VOS_MSG_TAP_HEAD head, std::span<const iovec> message, std::size_t length) {
    const std::size_t most = std::size_t{head.ulHeadAt} + kHeadSize + __atomic_load_n(&limit_, __ATOMIC_RELAXED);
    std::array<iovec, kMostPieces + 1> pieces;
    pieces[0] = {&head, sizeof head};
    std::size_t count = 1;
    head.ulCopiedLen = static_cast<uint32_t>(append(message, std::min(length, most), pieces, count));
    head.ullLost = __atomic_load_n(&lost_, __ATOMIC_RELAXED);
    head.ullNumber = __atomic_add_fetch(&number_, 1, __ATOMIC_RELAXED);
    msghdr datagram{};
    datagram.msg_iov = pieces.data();
    datagram.msg_iovlen = count;
    if (send(datagram)) return;
    const int error = errno;
    __atomic_fetch_add(&lost_, 1, __ATOMIC_RELAXED);
    /* The program has closed the descriptor, and its number may be another file's by now: it is not closed again. */
    if (error == EBADF || error == ENOTSOCK) __atomic_store_n(&socket_, -1, __ATOMIC_RELAXED);
    if (gone(error)) stop();
}
