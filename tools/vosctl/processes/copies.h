/* SPDX-License-Identifier: MIT */
/* Copies of messages, as processes send them to a tap. */
#ifndef VOSCTL_COPIES_H
#define VOSCTL_COPIES_H

#include <vosMsgTap.h>

#include <optional>
#include <string>
#include <string_view>

namespace vosctl {

struct Copy {
    VOS_MSG_TAP_HEAD head{};
    std::string message; /* the part that was copied */

    [[nodiscard]] std::string own() const;  /* path of the process's socket, empty when not known */
    [[nodiscard]] std::string peer() const; /* and of the other one */
    /* Whether a message is reported, and not the state of the tap. */
    [[nodiscard]] bool reportsMessage() const;
    /* The message's own header, when all of it was copied. */
    [[nodiscard]] std::optional<VOS_MSG_HEAD> messageHead() const;
    /* What was copied behind that header. */
    [[nodiscard]] std::string_view payload() const;
};

/* Counts the copies that one process has lost. Copies of two threads may overtake each other, so a copy may tell fewer
 * losses than one before it. */
class LossCount {
  public:
    /* How many this copy tells that none before it has told. */
    uint64_t more(const VOS_MSG_TAP_HEAD &head);

  private:
    uint64_t known_ = 0;
};

/* Nothing for a datagram that is no copy, or of another version. Lengths that do not fit are cut to what there is. */
std::optional<Copy> copyOf(std::string_view datagram);

/* The last part of a path. */
std::string fileOf(std::string_view path);

}  // namespace vosctl

#endif
