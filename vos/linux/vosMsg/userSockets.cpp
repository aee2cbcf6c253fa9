/* SPDX-License-Identifier: MIT */
/* The application's own descriptors, watched by the receive loops. Newest first. */
#include "userSockets.h"

#include <cstdlib>

#include "../base/log.h"

constinit VOS_MSG_USER_SOCKET *g_pUserSocketList = nullptr;
constinit uint32_t g_vosUserSocketNum = 0; /* the applications' own; nothing here counts */

namespace {

static_assert(sizeof(VOS_MSG_USER_SOCKET) == 32 && offsetof(VOS_MSG_USER_SOCKET, iFd) == 8);
static_assert(offsetof(VOS_MSG_USER_SOCKET, pProc) == 16 && offsetof(VOS_MSG_USER_SOCKET, pArg) == 24);

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
}

}  // namespace

void vos::watchUserSockets(Caller me, ReadSet &set) {
    for (const VOS_MSG_USER_SOCKET *node = g_pUserSocketList; node != nullptr; node = node->pNext)
        if (!set.add(node->iFd)) error(me, "%s:user socket %d is out of select range.", node->iFd);
}

void vos::callUserSockets(const ReadSet &ready) {
    VOS_MSG_USER_SOCKET *next = nullptr;
    for (VOS_MSG_USER_SOCKET *node = g_pUserSocketList; node != nullptr; node = next) {
        next = node->pNext;
        if (!ready.has(node->iFd)) continue;
        if (node->pProc != nullptr) node->pProc(node->iFd, node->pArg);
        if (findNode(next) == nullptr) break; /* the handler has removed it; what is still readable is seen again */
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
    if (!vos::ReadSet::holds(pNode->iFd))
        return vos::failed(me, VOS_ERR_PARAM, "%s:socket %d is out of select range.", pNode->iFd);
    if (findNode(pNode) != nullptr || findDescriptor(pNode->iFd) != nullptr) return VOS_ERR_EXIST;
    addFirst(pNode);
    return VOS_OK;
}

int32_t vosMsgSockDelUser(VOS_MSG_USER_SOCKET *pNode) {
    VOS_MSG_USER_SOCKET **const link = pNode != nullptr ? findNode(pNode) : nullptr;
    if (link == nullptr) return VOS_ERROR;
    *link = pNode->pNext;
    return VOS_OK;
}
