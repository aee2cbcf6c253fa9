/* SPDX-License-Identifier: MIT */
/* One owned descriptor. */
#ifndef VOS_BASE_UNIQUE_FD_H
#define VOS_BASE_UNIQUE_FD_H

#include <unistd.h>

#include <utility>

#include "errnoKeeper.h"

namespace vos {

/* Owns a descriptor and closes it at the end of its scope. As small as the int it holds; closing keeps errno, so that
 * an early return can still report why it returns. */
class UniqueFd {
  public:
    constexpr UniqueFd() = default;
    constexpr explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { reset(); }

    explicit operator bool() const { return fd_ >= 0; }
    [[nodiscard]] int get() const { return fd_; }

    /* Ends the ownership: the caller closes the descriptor. */
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

    void reset(int fd = -1) {
        if (const int old = std::exchange(fd_, fd); old >= 0) {
            const ErrnoKeeper keep;
            close(old);
        }
    }

  private:
    int fd_ = -1;
};

static_assert(sizeof(UniqueFd) == sizeof(int));

}  // namespace vos

#endif
