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

/**
 * Called by a receive loop for a registered descriptor that select() has reported readable. The result is ignored.
 *
 * The handler may add descriptors and remove any, its own included. A descriptor that is added during a wake-up of the
 * loop, under whatever number, is served in a later wake-up. When both loops of a process run, one event may call the
 * handler in both threads: the descriptor must then be non-blocking, and the handler must expect to find nothing.
 */
typedef int32_t (*VOS_MSG_SOCK_PROC)(int32_t iFd, void *pArg);

/** A registered descriptor. */
typedef struct VOS_MSG_USER_SOCKET {
    struct VOS_MSG_USER_SOCKET *pNext; /**< The next one; kept by the library. */
    int32_t iFd;                       /**< The descriptor, 0 to 1023. */
    VOS_MSG_SOCK_PROC pProc;           /**< Called when it is readable. Null: listed, but not watched. */
    void *pArg;                        /**< Passed to pProc. */
} VOS_MSG_USER_SOCKET;

/** The second channel's descriptors: normal socket, high-priority socket. -1: not open. */
extern int32_t g_vosFdProc_thread, g_vosFdProcHigh_thread;
/** The second channel's receive buffer. 8-byte aligned. */
extern uint8_t g_vosMsgBufferRecv_thread[VOS_MSG_BUFFER_LEN];
/** The buffer in which vosMsgSend2() puts its request together and receives the answer. 8-byte aligned. */
extern uint8_t g_vosMsgBufferSend_thread[VOS_MSG_BUFFER_LEN];
/** The buffer in which vosMsgResp2() puts its answer together. */
extern uint8_t g_vosMsgBufferResp_thread[VOS_MSG_BUFFER_LEN];
/** The second channel's timers in the order of registration, and the number that the next one gets. */
extern VOS_MSG_TIMER *g_pVosMsgTimerFirst2;
extern uint32_t g_ulVosMsgMagic2; /**< Counts registrations from 0. */
/** The registered descriptors, newest first. Both receive loops of a process watch them. */
extern VOS_MSG_USER_SOCKET *g_pUserSocketList;
/** For the application's use. The library never reads or writes it; it is 0 at the start. */
extern uint32_t g_vosUserSocketNum;

/**
 * Opens a thread's own socket, "/tmp/vos/<name><number>". vosMsgInit() must have run, which makes the directory. Any
 * number of threads may each have one, or two with the high option.
 *
 * @param pProcName  base name; only the part after its last slash counts
 * @param iNumber    the thread's number
 * @param pSocketFd  receives the descriptor, which is the caller's to close
 * @param ulHigh     1: append "High" to the path
 * @return VOS_OK; VOS_ERR_PARAM for a null pointer; VOS_ERROR when the socket cannot be created or bound
 * @threads any, as for the three below
 */
int32_t vosMsgThreadInit(const char *pProcName, int32_t iNumber, int32_t *pSocketFd, uint32_t ulHigh);

/**
 * Waits without a time-out for an application message on a thread's socket and handles all other messages while it
 * waits. No timers fire here, and no application descriptors are watched.
 *
 * Handlers of events and requests run in the calling thread. Answers about configuration objects are built in
 * g_vosMsgBufferSend, which all loops of the process share: when two loops answer at the same time, the two answers may
 * be mixed. The call needs up to 80 KiB of stack, and the handlers' own need comes on top.
 *
 * @param iSocketFd  the thread's descriptor, below 1024; vosMsgThreadInit() succeeds above that, and this call then
 *                   fails. Only one thread may receive from it.
 * @param pMsgBuf    receives the message: the 32-byte header, then the payload. It should be 8-byte aligned: the value
 *                   of a configuration object must lie on an 8-byte boundary in memory, and with a buffer that does
 *                   not, such a request ends the process with an assertion line.
 * @param ulMsgSize  its size in bytes, more than 32; what does not fit is discarded
 * @param ulReserved not used
 * @param pPeer      receives whom to answer
 * @return the number of bytes received, header included; VOS_ERR_PARAM for a null pointer or a buffer of 32 bytes or
 *         less; VOS_ERROR when waiting or receiving fails. A handled signal makes the wait fail, also when its handler
 *         was installed with SA_RESTART, and so does an empty datagram.
 */
int32_t vosMsgThreadRecv(int32_t iSocketFd, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulReserved,
                         VOS_MSG_PEER *pPeer);

/**
 * Answers a message of a thread's socket.
 *
 * @param iReserved  not used
 * @param pMsgBuf    32 bytes, which are overwritten with the header, then the payload
 * @param ulRetCode  code for the requester
 * @param ulMsgSize  the payload's size in bytes, limited by the socket alone
 * @param pPeer      the request's record
 * @return VOS_OK, also when the requester wants no answer and none is sent; VOS_ERR_PARAM for a null pointer; VOS_ERROR
 */
int32_t vosMsgThreadResp(int32_t iReserved, void *pMsgBuf, uint32_t ulRetCode, uint32_t ulMsgSize,
                         const VOS_MSG_PEER *pPeer);

/**
 * As vosMsgSend(), to a thread's socket.
 *
 * @param pDestName    receiver's base name
 * @param iNumber      receiver's number
 * @param pMsgBuf      payload, in and out
 * @param ulMsgSize    its size in bytes, up to 64568
 * @param ulNoReturn   0: wait for the answer; 1: the receiver shall not answer; others: do not wait
 * @param pRetCode     receives the answer's code; null: the code is dropped
 * @param ulTimeoutMs  time-out for sending and for the answer in milliseconds; 0: wait for ever
 * @param ulReserved   not used
 * @return as vosMsgSend()
 */
int32_t vosMsgThreadSend(const char *pDestName, int32_t iNumber, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulNoReturn,
                         uint32_t *pRetCode, uint32_t ulTimeoutMs, uint32_t ulReserved);

/**
 * Checks that the second channel's receive and send buffers are aligned to ZEB_LONGBYTES; see vosMsgCheck(). Nothing in
 * the library calls it.
 *
 * @return VOS_OK. A misaligned buffer prints an assertion line and aborts the process.
 * @threads any
 */
int32_t vosMsgCheck2(void);

/**
 * Opens the second channel. It needs a name of its own: under the main channel's it would take that channel's paths
 * away. vosMsgInit() must have run, which makes the directory. There is no netlink socket.
 *
 * @param pProcName  name under which others reach the second channel
 * @param ulFlags    1: open the pair of sockets; other bits are ignored
 * @param pReserved  any pointer but null; not used
 * @return as vosMsgInit()
 * @threads the second channel's thread, before its receive loop starts
 */
int32_t vosMsgInit2(const char *pProcName, uint32_t ulFlags, void *pReserved);

/**
 * The receive loop of the second channel: as vosMsgRecv(), with its own sockets, buffer and timers. The application's
 * descriptors are watched here too. Their list has no lock, so it must not change while both loops run.
 *
 * The call needs up to 80 KiB of stack, and the handlers' own need comes on top. Answers about configuration objects
 * are built in g_vosMsgBufferSend, which all loops of the process share: when two loops answer at the same time, the
 * two answers may be mixed.
 *
 * @param ulReserved   not used
 * @param pMsgBuf      buffer for the payload; may be null when the size is 0
 * @param ulMsgSize    its size in bytes, up to 64568; what does not fit is discarded
 * @param ulTimeoutMs  milliseconds to wait, as for vosMsgRecv()
 * @param pPeer        receives whom to answer
 * @return as vosMsgRecv()
 * @threads the second channel's thread
 */
int32_t vosMsgRecv2(uint32_t ulReserved, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulTimeoutMs, VOS_MSG_PEER *pPeer);

/**
 * Answers an application message from the second channel's answer buffer; see vosMsgResp().
 *
 * @param iReserved  not used
 * @param ulRetCode  code for the requester
 * @param pMsgBuf    payload
 * @param ulMsgSize  its size in bytes, up to 64568
 * @param pPeer      the request's record
 * @return as vosMsgResp()
 * @threads the second channel's thread
 */
int32_t vosMsgResp2(int32_t iReserved, uint32_t ulRetCode, const void *pMsgBuf, uint32_t ulMsgSize,
                    const VOS_MSG_PEER *pPeer);

/**
 * Sends an application message from the second channel's send buffer; see vosMsgSend(). An answer is awaited whenever
 * ulNoReturn is 0.
 *
 * @param pDestName    receiver's name
 * @param pMsgBuf      payload, in and out
 * @param ulMsgSize    its size in bytes, up to 64568
 * @param ulNoReturn   0: wait for the answer; 1: the receiver shall not answer; others: do not wait
 * @param pRetCode     receives the answer's code; null: the code is dropped
 * @param ulTimeoutMs  time-out for sending and for the answer in milliseconds; 0: wait for ever
 * @param ulFlags      1: to the receiver's high-priority socket; other bits are ignored
 * @return as vosMsgSend()
 * @threads the second channel's thread
 */
int32_t vosMsgSend2(const char *pDestName, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulNoReturn, uint32_t *pRetCode,
                    uint32_t ulTimeoutMs, uint32_t ulFlags);

/**
 * Registers a timer of the second channel; see vosTimerRegister(). vosTimerCancel(), vosTimerStart() and vosTimerStop()
 * do not know it and return VOS_ERROR.
 *
 * @param ulPeriodic    0: fire once, after which the timer is freed; otherwise again and again
 * @param ulIntervalMs  interval in milliseconds
 * @param pProc         called on expiry; may be null
 * @param ppTimer       receives the handle
 * @param ulUserArg     passed to pProc
 * @return as vosTimerRegister()
 * @threads the second channel's thread
 */
int32_t vosTimerRegister2(uint32_t ulPeriodic, uint32_t ulIntervalMs, VOS_MSG_TIMER_PROC pProc, VOS_MSG_TIMER **ppTimer,
                          uint64_t ulUserArg);

/**
 * Lets the receive loops watch a descriptor.
 *
 * @param iFd    descriptor, 0 to 1023. It stays the caller's. Remove it before you close it: with a closed descriptor
 * in the list every wait fails.
 * @param pProc  called when it is readable; null lists the descriptor and does not watch it
 * @param pArg   passed to pProc
 * @return VOS_OK; VOS_ERR_PARAM for a descriptor out of range; VOS_ERR_EXIST when it is registered; VOS_ERR_MEMORY
 * @threads the receive loop's, as for all four calls
 */
int32_t vosMsgSockAdd(int32_t iFd, VOS_MSG_SOCK_PROC pProc, void *pArg);

/**
 * Removes a descriptor that was added with vosMsgSockAdd(), and frees its node. Never call it for a node of the
 * caller's own: it would free that one too.
 *
 * @param iFd  descriptor
 * @return VOS_OK; VOS_ERROR when it is not registered
 */
int32_t vosMsgSockDelete(int32_t iFd);

/**
 * As vosMsgSockAdd(), with a node of the caller's own. The node must stay valid until vosMsgSockDelUser().
 *
 * @param pNode  filled in except pNext
 * @return VOS_OK; VOS_ERR_EXIST when the node or its descriptor is registered; VOS_ERR_PARAM for null or a descriptor
 *         out of range
 */
int32_t vosMsgSockAddUser(VOS_MSG_USER_SOCKET *pNode);

/** Removes a node of the caller's own, which is not freed. @return VOS_OK; VOS_ERROR when it is not registered */
int32_t vosMsgSockDelUser(VOS_MSG_USER_SOCKET *pNode);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
