/* SPDX-License-Identifier: MIT */
/* What a command throws when it cannot do what it was asked for. */
#ifndef VOSCTL_FAILURE_H
#define VOSCTL_FAILURE_H

#include <stdexcept>
#include <string>
#include <utility>

namespace vosctl {

class Failure : public std::runtime_error {
  public:
    /* What went wrong, naming the thing; and what its reader may do next. */
    Failure(const std::string &what, std::string next) : std::runtime_error(what), next_(std::move(next)) {}
    [[nodiscard]] const std::string &nextStep() const noexcept { return next_; }

  private:
    std::string next_;
};

/* The same for what is wrong with the command line itself, where it is seen only while the command runs. The exit
 * status says so. */
class Misuse : public Failure {
  public:
    using Failure::Failure;
};

/* Nobody reads standard output any more. */
class ClosedPipe : public Failure {
  public:
    using Failure::Failure;
};

}  // namespace vosctl

#endif
