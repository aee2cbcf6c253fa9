/* SPDX-License-Identifier: MIT */
/* The exception with which a command fails. */
#ifndef VOSCTL_FAILURE_H
#define VOSCTL_FAILURE_H

#include <stdexcept>
#include <string>
#include <utility>

namespace vosctl {

class Failure : public std::runtime_error {
  public:
    /* `what` says what went wrong and with which file, process or item; `next` says what the user can do. */
    Failure(const std::string &what, std::string next) : std::runtime_error(what), next_(std::move(next)) {}
    [[nodiscard]] const std::string &nextStep() const noexcept { return next_; }

  private:
    std::string next_;
};

/* A mistake on the command line that is found only while the command runs. It has the exit status of such a mistake. */
class Misuse : public Failure {
  public:
    using Failure::Failure;
};

/* Standard output is a pipe that no process reads any more. */
class ClosedPipe : public Failure {
  public:
    using Failure::Failure;
};

}  // namespace vosctl

#endif
