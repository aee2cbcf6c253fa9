/* SPDX-License-Identifier: MIT */
#include "copies.h"

#include <algorithm>
#include <cstring>

namespace vosctl {

namespace {

/* A path is shown up to its first NUL; an abstract address begins with one. */
std::string pathOf(const char (&field)[sizeof VOS_MSG_TAP_HEAD::acOwn], std::size_t length) {
    const std::string_view path{field, std::min(length, sizeof field)};
    return std::string(path.substr(0, path.find('\0', 1)));
}

}  // namespace

std::string Copy::own() const { return pathOf(head.acOwn, head.usOwnLen); }
std::string Copy::peer() const { return pathOf(head.acPeer, head.usPeerLen); }

bool Copy::reportsMessage() const { return head.ucWhat == VOS_MSG_TAP_SENT || head.ucWhat == VOS_MSG_TAP_RECEIVED; }

std::optional<VOS_MSG_HEAD> Copy::messageHead() const {
    VOS_MSG_HEAD found{};
    if (head.ulHeadAt > message.size() || message.size() - head.ulHeadAt < sizeof found) return {};
    memcpy(&found, message.data() + head.ulHeadAt, sizeof found);
    return found;
}

std::string_view Copy::payload() const {
    if (!messageHead()) return {};
    return std::string_view(message).substr(head.ulHeadAt + sizeof(VOS_MSG_HEAD));
}

uint64_t LossCount::more(const VOS_MSG_TAP_HEAD &head) {
    /* A tap that begins, also in a program that the process has executed, counts from 0. */
    if (head.ucWhat == VOS_MSG_TAP_STARTED && head.ullNumber == 0) known_ = 0;
    const uint64_t more = head.ullLost - std::min(head.ullLost, known_);
    known_ += more;
    return more;
}

std::optional<Copy> copyOf(std::string_view datagram) {
    Copy copy;
    if (datagram.size() < sizeof copy.head) return {};
    memcpy(&copy.head, datagram.data(), sizeof copy.head);
    if (copy.head.ulType != VOS_MSG_TAP_COPY || copy.head.usVersion != 1 || copy.head.usHeadLen < sizeof copy.head ||
        copy.head.usHeadLen > datagram.size())
        return {};
    copy.message = datagram.substr(copy.head.usHeadLen, copy.head.ulCopiedLen);
    return copy;
}

std::string fileOf(std::string_view path) { return std::string(path.substr(path.rfind('/') + 1)); }

}  // namespace vosctl
