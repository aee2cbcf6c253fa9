/* SPDX-License-Identifier: MIT */
#include "copyReader.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

#include "../base/failure.h"

namespace vosctl {

namespace {

constexpr std::size_t kMostBytes = 64 * 1024 * 1024; /* of copies that nobody has taken; then the processes lose some */
constexpr std::size_t kBatch = 256;
constexpr int kFullMs = 10; /* until there may be room again */

[[noreturn]] void fail(const std::string &reason) {
    throw Failure("a helper thread cannot be started: " + reason, "close programs, or raise the limits of this shell");
}

void raise(const Fd &event) {
    const uint64_t one = 1;
    if (write(event.get(), &one, sizeof one) == -1) return; /* it is raised already */
}

}  // namespace

CopyReader::CopyReader(Tap &tap)
    : tap_(tap), ready_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), end_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!ready_ || !end_) fail(strerror(errno));
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error &error) {
        fail(error.what());
    }
}

CopyReader::~CopyReader() { stop(); }

void CopyReader::stop() {
    if (!thread_.joinable()) return;
    raise(end_);
    thread_.join();
}

std::vector<std::string> CopyReader::take() {
    uint64_t count = 0;
    if (read(ready_.get(), &count, sizeof count) == -1) count = 0; /* nothing came */
    const std::lock_guard guard{lock_};
    bytes_ = 0;
    return std::exchange(taken_, {});
}

/* The end comes only when the socket is empty. */
void CopyReader::run() {
    for (bool full = false;;) {
        pollfd watched[] = {{full ? -1 : tap_.fd(), POLLIN, 0}, {end_.get(), POLLIN, 0}};
        if (poll(watched, std::size(watched), full ? kFullMs : -1) == -1 && errno != EINTR) return;
        std::vector<std::string> datagrams;
        if (!full) tap_.take(datagrams, kBatch);
        const bool ended = watched[1].revents != 0;
        if (ended && (full || datagrams.empty())) return;
        if (datagrams.empty() && !full) continue;
        const std::lock_guard guard{lock_};
        for (std::string &datagram : datagrams) {
            bytes_ += datagram.size() + sizeof(std::string);
            taken_.push_back(std::move(datagram));
        }
        full = bytes_ > kMostBytes;
        raise(ready_);
    }
}

}  // namespace vosctl
