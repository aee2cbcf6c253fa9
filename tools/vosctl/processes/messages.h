/* SPDX-License-Identifier: MIT */
/* Messages, put together from the copies of both sides. */
#ifndef VOSCTL_MESSAGES_H
#define VOSCTL_MESSAGES_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "copies.h"

namespace vosctl {

/* What one process has seen of a message. */
struct Side {
    uint64_t wallNs = 0;
    uint64_t monotonicNs = 0;
    uint32_t pid = 0;
    uint32_t thread = 0;
    int32_t result = 0;
    int32_t error = 0; /* errno */
};

struct Message {
    std::optional<Side> sent; /* as the sender has seen it, when the sender is watched */
    std::optional<Side> received;
    std::string from; /* path of the sender's socket, empty when not known */
    std::string to;
    std::string fromName; /* of the process, else what is known of it */
    std::string toName;
    uint8_t stage = 0;  /* VOS_MSG_TAP_REQUEST and so on */
    uint8_t socket = 0; /* at which a request arrives: VOS_MSG_TAP_NORMAL and so on; 0 when not known */
    std::optional<VOS_MSG_HEAD> head;
    uint32_t bytes = 0;  /* of the payload */
    std::string payload; /* the part that was copied */

    /* Of an answer, in nanoseconds, as far as the copies tell it. */
    std::optional<uint64_t> queued;
    std::optional<uint64_t> served;
    std::optional<uint64_t> total;

    [[nodiscard]] const Side &first() const { return sent ? *sent : *received; }
    [[nodiscard]] bool isAnswer() const { return stage == VOS_MSG_TAP_ANSWER; }
    /* errno of a message that could not be sent, or of an answer that did not come; else 0. */
    [[nodiscard]] int32_t error() const;
};

/* Takes the copies in the order in which they come, and hands out the messages in that order. A message waits a moment
 * for the copy of its other side. */
class Messages {
  public:
    static constexpr uint64_t kPatienceNs = 20'000'000;

    void add(const Copy &copy);
    /* The next message, when both of its sides are there or its time is over; all that are there at the end. */
    std::optional<Message> next(uint64_t monotonicNs);
    std::optional<Message> nextAtTheEnd() { return next(UINT64_MAX); }
    [[nodiscard]] bool empty() const { return waiting_.empty(); }

    /* Copies that processes had to drop since the last call, by their names. */
    std::map<std::string, uint64_t> takeLosses();
    /* The name of a process, or "pid N". */
    [[nodiscard]] std::string nameOf(uint32_t pid) const;
    [[nodiscard]] static bool isNoName(const std::string &name) { return name.starts_with("pid "); }
    /* The name behind a path. */
    [[nodiscard]] std::string nameOf(const std::string &path) const;
    /* Tells the name of a process that no copy tells. */
    void learn(uint32_t pid, const std::string &name);
    [[nodiscard]] bool knows(uint32_t pid) const { return names_.contains(pid); }

  private:
    using Shared = std::shared_ptr<Message>;
    void learn(const Copy &copy);
    void count(const Copy &copy);
    Shared partner(std::deque<Shared> &open, const Copy &copy) const;
    void remember(const Shared &request);
    void complete(Message &answer);
    [[nodiscard]] bool mayBeJoined(const Message &message) const;
    void forgetOld(uint64_t monotonicNs);

    struct Waiting {
        Shared message;
        std::string key;
    };
    std::deque<Waiting> waiting_;
    std::map<std::string, std::deque<Shared>> open_;     /* those that wait, by their keys */
    std::map<std::string, std::deque<Shared>> requests_; /* by the requester's path */
    std::map<uint32_t, std::string> names_;
    std::set<uint32_t> watched_;
    std::map<std::string, std::string> channels_; /* names of processes by the paths at which they received */
    std::map<uint32_t, LossCount> lost_;
    std::map<std::string, uint64_t> losses_;
};

/* The process id in the path of a requester, as that process knows it itself, which differs in a container; 0 for
 * another path. */
uint32_t requesterPid(const std::string &path);

}  // namespace vosctl

#endif
