/* SPDX-License-Identifier: MIT */
/* The socket of one request. It is bound to a path of its own, to which the answer is sent. */
#ifndef VOS_MSG_REQUESTER_H
#define VOS_MSG_REQUESTER_H

#include <cstdint>

#include "../base/caller.h"
#include "../base/text.h"
#include "../base/uniqueFd.h"
#include "transfer.h"

namespace vos {

class Requester {
  public:
    /* Creates the socket, binds it and sets its buffer sizes. False when that fails, after logging why. */
    bool open(Caller me, uint32_t timeoutMs);
    /* False with errno when nobody receives under that path, which must stay until the messages have been moved. */
    bool connect(std::string_view receiver) {
        receiver_ = receiver;
        return reach(receiver);
    }
    [[nodiscard]] int fd() const { return socket_.get(); }
    [[nodiscard]] std::string_view path() const { return path_.view(); }
    [[nodiscard]] std::string_view receiver() const { return receiver_; }
    /* For the calls that move its messages. */
    [[nodiscard]] Origin origin(uint8_t stage) const { return {stage, VOS_MSG_TAP_REQUESTER, this}; }

    /* Removes the path and closes the socket, if the destructor is not to do it. errno is kept. */
    void close();

    Requester() = default;
    Requester(const Requester &) = delete;
    Requester &operator=(const Requester &) = delete;
    ~Requester() { close(); }

  private:
    bool reach(std::string_view receiver) const;

    UniqueFd socket_;
    Text<128> path_;
    std::string_view receiver_;
    bool bound_ = false;
};

}  // namespace vos

#endif
