/* SPDX-License-Identifier: MIT */
/* The socket of one request: it lives under a path of its own, which routes the answer back, and goes with it. */
#ifndef VOS_MSG_REQUESTER_H
#define VOS_MSG_REQUESTER_H

#include <cstdint>

#include "../base/caller.h"
#include "../base/text.h"
#include "../base/uniqueFd.h"

namespace vos {

class Requester {
  public:
    /* Creates, binds and tunes. False after its line when that fails. */
    bool open(Caller me, uint32_t timeoutMs);
    /* False with errno when nobody receives under that path. */
    bool connect(std::string_view receiver) const;
    [[nodiscard]] int fd() const { return socket_.get(); }

    /* Removes the path and closes, ahead of the end of the scope. errno stays. */
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
