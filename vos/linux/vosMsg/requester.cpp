/* SPDX-License-Identifier: MIT */
#include "requester.h"

#include <sys/socket.h>

#include "../base/log.h"
#include "address.h"
#include "vosMsg.h"

bool vos::Requester::open(Caller me, uint32_t timeoutMs) {
    socket_.reset(vosMsgLocalSocket(timeoutMs));
    if (!socket_) {
        error(me, "%s:vosMsgLocalSocket failed.");
        return false;
    }
    trace(me, "%s:create socket %d.", fd());
    path_ = requesterPath();
    bound_ = bindTo(fd(), path_.get());
    if (!bound_) {
        errorErrno(me, "%s:local bind iSocketFd %d failed errno:%d(%s).", fd());
        return false;
    }
    vosMsgSocketOptmize(fd(), 0);
    return true;
}

bool vos::Requester::reach(std::string_view receiver) const {
    const LocalAddress address{receiver};
    if (::connect(fd(), address.get(), address.length()) == 0) return true;
    if (tapped()) copyUnreachable(*this);
    return false;
}

void vos::Requester::close() {
    const ErrnoKeeper keep;
    if (bound_) unlink(path_.get());
    bound_ = false;
    socket_.reset();
}
