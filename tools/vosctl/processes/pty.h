/* SPDX-License-Identifier: MIT */
/* A pseudo-terminal of the tool's own, to which a process can be told to print. */
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
    [[nodiscard]] int fd() const { return master_.get(); } /* readable when something was printed */
    /* What has been printed and not been read, up to some size; empty when there is nothing. */
    [[nodiscard]] std::string take() const;

  private:
    Fd master_;
    Fd slave_; /* kept open, so that reading does not fail while nobody else has it open */
    uint32_t number_ = 0;
    std::string path_;
};

}  // namespace vosctl

#endif
