/* SPDX-License-Identifier: MIT */
/* The application's own descriptors, which the receive loops watch. The newest is the first of the list. */
#include "userSockets.h"

#include <cstdlib>

#include "../base/log.h"

constinit VOS_MSG_USER_SOCKET *g_pUserSocketList = nullptr;
constinit uint32_t g_vosUserSocketNum = 0; /* the applications' own; nothing here counts */

namespace {

using vos::Moment;

static_assert(sizeof(VOS_MSG_USER_SOCKET) == 32 && offsetof(VOS_MSG_USER_SOCKET, iFd) == 8);
static_assert(offsetof(VOS_MSG_USER_SOCKET, pProc) == 16 && offsetof(VOS_MSG_USER_SOCKET, pArg) == 24);

/* A handler may remove a descriptor, close it, open another file under the same number and add that one. What select()
 * reported about the number is then about another file. So every number has the moment of its last change here, and a
 * loop compares it with the moment of its own set. The numbers are 64 bits wide and never start again. The accesses are
 * atomic because the loops of two threads may serve descriptors at the same time; the list itself has no protection. */
constinit Moment now = 0;
constinit Moment lastChange[FD_SETSIZE] = {};

void noteChange(int32_t fd) {
    const Moment moment = __atomic_add_fetch(&now, 1, __ATOMIC_RELAXED);
    __atomic_store_n(&lastChange[fd], moment, __ATOMIC_RELAXED);
}

/* The link that holds the first node for which the condition is true, or null. */
template <class Condition>
VOS_MSG_USER_SOCKET **findLink(Condition condition) {
    VOS_MSG_USER_SOCKET **link = &g_pUserSocketList;
    while (*link != nullptr && !condition(**link)) link = &(*link)->pNext;
    return *link != nullptr ? link : nullptr;
}

VOS_MSG_USER_SOCKET **findDescriptor(int32_t fd) {
    return findLink([=](const VOS_MSG_USER_SOCKET &node) { return node.iFd == fd; });
}

VOS_MSG_USER_SOCKET **findNode(const VOS_MSG_USER_SOCKET *wanted) {
    return findLink([=](const VOS_MSG_USER_SOCKET &node) { return &node == wanted; });
}

void addFirst(VOS_MSG_USER_SOCKET *node) {
    node->pNext = g_pUserSocketList;
    g_pUserSocketList = node;
    noteChange(node->iFd);
}

bool toBeServed(const VOS_MSG_USER_SOCKET &node, const vos::ReadSet &ready, Moment made) {
    return node.pProc != nullptr && ready.has(node.iFd) &&
           __atomic_load_n(&lastChange[node.iFd], __ATOMIC_RELAXED) <= made;
}

}  // namespace

Moment vos::watchUserSockets(Caller me, ReadSet &set) {
    const Moment made = __atomic_load_n(&now, __ATOMIC_RELAXED);
    for (const VOS_MSG_USER_SOCKET *node = g_pUserSocketList; node != nullptr; node = node->pNext) {
        /* Without a handler the data would not be read, and the loop would never wait again. */
        if (node->pProc == nullptr) continue;
        if (!set.add(node->iFd)) error(me, "%s:user socket %d is out of select range.", node->iFd);
    }
    return made;
}

void vos::callUserSockets(const ReadSet &ready, Moment made) {
    const auto next = [&] {
        return findLink([&](const VOS_MSG_USER_SOCKET &node) { return toBeServed(node, ready, made); });
    };
    /* Each search begins at the head of the list, because a handler may have changed any part of it. */
    while (VOS_MSG_USER_SOCKET **const link = next()) {
        const VOS_MSG_USER_SOCKET *const node = *link;
        noteChange(node->iFd);
        node->pProc(node->iFd, node->pArg);
    }
}

int32_t vosMsgSockAdd(int32_t iFd, VOS_MSG_SOCK_PROC pProc, void *pArg) {
    const vos::Caller me;
    if (iFd < 0) return VOS_ERR_PARAM;
    if (!vos::ReadSet::holds(iFd)) return vos::failed(me, VOS_ERR_PARAM, "%s:socket %d is out of select range.", iFd);
    if (findDescriptor(iFd) != nullptr) return VOS_ERR_EXIST;
    auto *const node = static_cast<VOS_MSG_USER_SOCKET *>(calloc(1, sizeof(VOS_MSG_USER_SOCKET)));
    if (node == nullptr) return vos::failed(me, VOS_ERR_MEMORY, "%s:malloc failed.");
    node->iFd = iFd;
    node->pProc = pProc;
    node->pArg = pArg;
    addFirst(node);
    return VOS_OK;
}

int32_t vosMsgSockDelete(int32_t iFd) {
    VOS_MSG_USER_SOCKET **const link = findDescriptor(iFd);
    if (link == nullptr) return VOS_ERROR;
    VOS_MSG_USER_SOCKET *const node = *link;
    *link = node->pNext;
    free(node);
    return VOS_OK;
}

int32_t vosMsgSockAddUser(VOS_MSG_USER_SOCKET *pNode) {
    const vos::Caller me;
    if (pNode == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (findNode(pNode) != nullptr || findDescriptor(pNode->iFd) != nullptr) return VOS_ERR_EXIST;
    if (!vos::ReadSet::holds(pNode->iFd))
        return vos::failed(me, VOS_ERR_PARAM, "%s:socket %d is out of select range.", pNode->iFd);
    addFirst(pNode);
    return VOS_OK;
}

int32_t vosMsgSockDelUser(VOS_MSG_USER_SOCKET *pNode) {
    VOS_MSG_USER_SOCKET **const link = pNode != nullptr ? findNode(pNode) : nullptr;
    if (link == nullptr) return VOS_ERROR;
    *link = pNode->pNext;
    return VOS_OK;
}
