/* SPDX-License-Identifier: MIT */
/* Sends one message to a process and receives its answer with the answer's own length. */
#ifndef VOSCTL_EXCHANGE_H
#define VOSCTL_EXCHANGE_H

#include <vosMsg.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "../base/fd.h"
#include "names.h"

namespace vosctl {

inline constexpr std::size_t kLargestPayload = 64568;

struct Answer {
    int32_t code = 0;
    std::string payload;
    std::chrono::nanoseconds roundTrip{};
};

/* An answer of any type, unchanged. */
struct Reply {
    VOS_MSG_HEAD head{};
    std::string payload;
    std::chrono::nanoseconds roundTrip{};
};

/* A requester's socket, connected to a process. The destructor removes its path. */
class Requester {
  public:
    /* A time-out of 0 waits without a limit. A wait of more than a second is reported on a terminal. Throws a Failure
     * when no process receives under the name. */
    Requester(std::string name, Pair which, uint32_t timeoutMs);
    ~Requester();
    Requester(const Requester &) = delete;
    Requester &operator=(const Requester &) = delete;

    /* An application message. Throws a Failure when it cannot be sent in time. */
    void send(const std::string &payload, bool answerWanted);
    /* Sends and waits. Returns nothing when the time is over. Throws a Failure for everything else. */
    std::optional<Answer> ask(const std::string &payload);

    /* The same for a message of any type. An answer longer than `largest` bytes is cut. */
    void send(const VOS_MSG_HEAD &head, const std::string &payload);
    std::optional<Reply> ask(const VOS_MSG_HEAD &head, const std::string &payload, std::size_t largest);

  private:
    [[nodiscard]] bool awaitAnswer() const;
    void bindSocket();
    void connectSocket();

    std::string name_;
    Pair which_;
    uint32_t timeoutMs_;
    Fd socket_;
    std::string path_;
};

/* The message text for a process that does not answer. */
std::string noAnswerFrom(const std::string &name, uint32_t timeoutMs);

}  // namespace vosctl

#endif
