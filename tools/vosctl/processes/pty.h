/* SPDX-License-Identifier: MIT */
/* A pseudo-terminal that belongs to the tool. The output of a process can be redirected to it. */
#ifndef VOSCTL_PTY_H
#define VOSCTL_PTY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "../base/fd.h"

namespace vosctl {

class Pty {
  public:
    Pty(); /* throws a Failure */

    /* The number N of "/dev/pts/N". */
    [[nodiscard]] uint32_t number() const { return number_; }
    [[nodiscard]] const std::string &path() const { return path_; }
    [[nodiscard]] int fd() const { return master_.get(); } /* readable when output has come */
    /* Output that has not been read yet, up to a fixed size; empty when there is none. */
    [[nodiscard]] std::string take() const;

  private:
    Fd master_;
    Fd slave_; /* kept open, because reading the other side fails when nobody has this one open */
    uint32_t number_ = 0;
    std::string path_;
};

}  // namespace vosctl

#endif
