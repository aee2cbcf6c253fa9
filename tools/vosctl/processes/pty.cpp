/* SPDX-License-Identifier: MIT */
#include "pty.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "../base/failure.h"

namespace vosctl {

namespace {

Failure noTerminal() {
    return {std::string("no pseudo-terminal can be had: ") + strerror(errno),
            "mount /dev/pts, or close other terminals"};
}

/* Switches off every conversion of the terminal, so that the output is read unchanged. */
void makeRaw(int fd) {
    termios settings{};
    if (tcgetattr(fd, &settings) == -1) throw noTerminal();
    cfmakeraw(&settings);
    if (tcsetattr(fd, TCSANOW, &settings) == -1) throw noTerminal();
}

}  // namespace

Pty::Pty() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
    unsigned number = 0;
    if (!master_ || grantpt(master_.get()) == -1 || unlockpt(master_.get()) == -1 ||
        ioctl(master_.get(), TIOCGPTN, &number) == -1)
        throw noTerminal();
    number_ = number;
    path_ = "/dev/pts/" + std::to_string(number);
    slave_ = Fd{open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)};
    if (!slave_) throw noTerminal();
    makeRaw(slave_.get());
}

std::string Pty::take() const {
    std::array<char, 4096> part;
    const ssize_t count = read(master_.get(), part.data(), part.size());
    return count > 0 ? std::string(part.data(), static_cast<std::size_t>(count)) : std::string();
}

}  // namespace vosctl
