/* SPDX-License-Identifier: MIT */
/* The socket of one request. It is bound to a path of its own, to which the answer is sent. */
#ifndef VOS_MSG_REQUESTER_H
#define VOS_MSG_REQUESTER_H

#include <cstdint>

#include "../base/caller.h"
#include "../base/text.h"
#include "../base/uniqueFd.h"

namespace vos {

class Requester {
  public:
    /* Creates the socket, binds it and sets its buffer sizes. False when that fails, after logging why. */
    bool open(Caller me, uint32_t timeoutMs);
    /* False with errno when nobody receives under that path. */
    bool connect(std::string_view receiver) const;
    [[nodiscard]] int fd() const { return socket_.get(); }

    /* Removes the path and closes the socket, if the destructor is not to do it. errno is kept. */
    void close();

    Requester() = default;
    Requester(const Requester &) = delete;
    Requester &operator=(const Requester &) = delete;
    ~Requester() { close(); }

  private:
    UniqueFd socket_;
    Text<128> path_;
    bool bound_ = false;
};

}  // namespace vos

#endif
