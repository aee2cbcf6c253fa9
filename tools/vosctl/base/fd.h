/* SPDX-License-Identifier: MIT */
/* An owned file descriptor. */
#ifndef VOSCTL_FD_H
#define VOSCTL_FD_H

#include <unistd.h>

#include <utility>

namespace vosctl {

class Fd {
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    Fd &operator=(Fd &&other) noexcept {
        Fd taken{std::move(other)}; /* closes the descriptor that was owned before */
        std::swap(fd_, taken.fd_);
        return *this;
    }
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }
    explicit operator bool() const { return fd_ >= 0; }

  private:
    int fd_;
};

}  // namespace vosctl

#endif
