/* SPDX-License-Identifier: MIT */
/**
 * @file vosMsgChannel.h
 * Message channels beside the main one: thread channels, the second channel, application descriptors.
 */
#ifndef VOS_MSG_CHANNEL_H
#define VOS_MSG_CHANNEL_H

#include "vosMsg.h"
#include "vosTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** Called by a receive loop when a registered descriptor is readable. The result is ignored. It may add descriptors and
 *  remove any, its own included. */
typedef int32_t (*VOS_MSG_SOCK_PROC)(int32_t iFd, void *pArg);

/** A registered descriptor. */
typedef struct VOS_MSG_USER_SOCKET {
    struct VOS_MSG_USER_SOCKET *pNext; /**< The next one; kept by the library. */
    int32_t iFd;                       /**< The descriptor, 0 to 1023. */
    VOS_MSG_SOCK_PROC pProc;           /**< Called when it is readable. */
    void *pArg;                        /**< Passed to pProc. */
} VOS_MSG_USER_SOCKET;

/** The registered descriptors, newest first. Both receive loops of a process watch them. */
extern VOS_MSG_USER_SOCKET *g_pUserSocketList;
/** The applications' own; the library leaves it at 0. */
extern uint32_t g_vosUserSocketNum;

/**
 * Lets the receive loops watch a descriptor.
 *
 * @param iFd    descriptor, 0 to 1023; it stays the caller's and must be removed before it is closed
 * @param pProc  called when it is readable
 * @param pArg   passed to pProc
 * @return VOS_OK; VOS_ERR_PARAM for a descriptor out of range; VOS_ERR_EXIST when it is registered; VOS_ERR_MEMORY
 * @threads the receive loop's, as for all four calls
 */
int32_t vosMsgSockAdd(int32_t iFd, VOS_MSG_SOCK_PROC pProc, void *pArg);

/** Removes a descriptor that was added with vosMsgSockAdd(). @return VOS_OK; VOS_ERROR when it is not registered */
int32_t vosMsgSockDelete(int32_t iFd);

/**
 * As vosMsgSockAdd(), with a node of the caller's own, which must live until vosMsgSockDelUser().
 *
 * @param pNode  filled in except pNext
 * @return VOS_OK; VOS_ERR_PARAM for null or a descriptor out of range; VOS_ERR_EXIST when the node or its descriptor is
 *         registered
 */
int32_t vosMsgSockAddUser(VOS_MSG_USER_SOCKET *pNode);

/** Removes a node of the caller's own. @return VOS_OK; VOS_ERROR when it is not registered */
int32_t vosMsgSockDelUser(VOS_MSG_USER_SOCKET *pNode);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
