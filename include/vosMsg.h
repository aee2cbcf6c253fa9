/* SPDX-License-Identifier: MIT */
/**
 * @file vosMsg.h
 * Message core: processes send messages to each other by name.
 *
 * Every message is one datagram: the 32-byte header VOS_MSG_HEAD, then the payload. All words are in the machine's
 * own byte order, since a message never leaves the device.
 *
 * A process opens its channel once, and one thread runs its receive loop:
 *
 *     static char word[4];
 *     int reserved;
 *     VOS_MSG_PEER peer;
 *     vosProcessInit("server");
 *     if (vosMsgInit("server", VOS_MSG_OPEN_LOCAL, &reserved) != VOS_OK) return 1;
 *     for (;;)
 *         if (vosMsgRecv(0, word, sizeof word, 0xFFFFFFFF, &peer) >= 0)
 *             vosMsgResp(0, 7, "pong", 4, &peer);
 *
 * Any other process, or thread, sends it a request by its name:
 *
 *     char word[4] = "ping";
 *     uint32_t code;
 *     int32_t result = vosMsgSend("server", word, sizeof word, VOS_MSG_WAIT_ANSWER, &code, 3000, 0);
 *
 * The loop continues after a failed receive: a signal that is handled, and an empty or short datagram of any process,
 * make vosMsgRecv() return an error.
 *
 * Any local process that may write to a message socket can send any bytes to it. A message that does not fit the layout
 * of its type is dropped with one error line. There are these exceptions:
 * - An empty datagram on the normal socket, and one of 1 to 31 bytes on the high-priority socket, end the receive call
 *   with VOS_ERROR.
 * - An empty datagram on the high-priority socket has the last message in the receive buffer served once more, with the
 *   sender of the empty datagram as the requester; see vosMsgRecv().
 * - A request for a configuration object whose value does not lie on an 8-byte boundary, or that has no byte left for a
 *   value in the largest message, ends the process with an assertion line. So does a request for a description whose
 *   name fills the largest message. This holds only while the handler of such requests is registered.
 *
 * The file permissions of the sockets decide who may send: they are those that the umask leaves. Processes that send to
 * each other run under one user, or with a umask that lets the other users write.
 *
 * A process is not informed when another one has started. A requester that starts first tries again after VOS_ERROR.
 *
 * Keep descriptors 0, 1 and 2 open, for example on "/dev/null". With descriptor 1 closed, the next socket gets its
 * number, and log lines go out through that socket.
 */
#ifndef VOS_MSG_H
#define VOS_MSG_H

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "vosTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** Size of every message buffer in bytes, and of the largest datagram that is received. */
#define VOS_MSG_BUFFER_LEN 64600
/** Alignment of the message buffers in bytes: the size of a long. */
#define ZEB_LONGBYTES 8

/** Message types, the values of VOS_MSG_HEAD::ulType. All but VOS_MSG_TYPE_SELF are handled by the library. */
enum {
    VOS_MSG_TYPE_BLDRUN = 0,           /**< Request: build the running configuration. */
    VOS_MSG_TYPE_PACKET = 1,           /**< Event from the kernel: a trapped packet. */
    VOS_MSG_TYPE_LINK = 2,             /**< Event from the kernel: a port's or VLAN interface's link changed. */
    VOS_MSG_TYPE_CCD = 3,              /**< Request: access to a configuration object. */
    VOS_MSG_TYPE_CCD_OBJ_INFO_GET = 4, /**< Request: description of a configuration object. */
    VOS_MSG_VOS_DEBUG = 5,             /**< Control: set the debug flag word. */
    VOS_MSG_SMD_DEBUG = 6,             /**< Control: set the applications' second debug word. */
    VOS_MSG_STDOUT_REDIRECT = 7,       /**< Control: redirect or restore standard output. */
    VOS_MSG_TYPE_SELF = 8,             /**< Application message, handed to the application. */
    VOS_MSG_TYPE_MAC = 9,              /**< Event: a MAC address. */
    VOS_MSG_TAP = 0x766F7301,          /**< Control: switch a tap on or off; see vosMsgTap.h. */
    VOS_MSG_TAP_COPY = 0x766F7302      /**< A copy for a tap. It is no message: a receive loop rejects it. */
};

/** Which sockets vosMsgInit() opens; the values may be combined. */
enum {
    VOS_MSG_OPEN_LOCAL = 1,  /**< The normal and the high-priority socket. */
    VOS_MSG_OPEN_NETLINK = 2 /**< The kernel's netlink socket. */
};

/** Values of ulNoReturn in the send functions. Any other value does not wait, though the receiver still answers. */
enum {
    VOS_MSG_WAIT_ANSWER = 0, /**< Wait for the answer. */
    VOS_MSG_NO_ANSWER = 1    /**< The receiver shall not answer. */
};

/** Flags of the send functions; the values may be combined. */
enum {
    VOS_MSG_TO_HIGH = 1, /**< Send to the receiver's high-priority socket. */
    VOS_MSG_NO_WAIT = 2  /**< Do not wait for the answer, though the receiver sends one. For vosMsgSend() only. */
};

/** Actions of vosMsgDebugStdRedirect(). */
enum {
    VOS_MSG_STDOUT_RESTORE = 0, /**< Put standard output back. */
    VOS_MSG_STDOUT_TERMINAL = 1 /**< Redirect it to a terminal. */
};

/** The header of every message: 32 bytes, eight words in the machine's byte order. */
typedef struct VOS_MSG_HEAD {
    uint32_t ulType;     /**< Message type. */
    uint32_t ulNoReturn; /**< Application request: 1 when the requester wants no answer, and any other value lets one
                              be sent. VOS_MSG_TYPE_CCD: any value but 0 suppresses the answer. Requests of the other
                              types are answered whatever it holds. */
    uint32_t ulRetCode;  /**< Answer: the responder's return code, a signed value carried in the word. */
    uint32_t ulValue1;   /**< First argument of the type. Application request: 254, answer: 255. */
    uint32_t ulValue2;   /**< Second argument. */
    uint32_t ulValue3;   /**< Third argument. */
    uint32_t ulValue4;   /**< Fourth argument; in answers about configuration objects the responder's errno. */
    uint32_t ulBufLen;   /**< Length of the payload in bytes. */
} VOS_MSG_HEAD;

/** Whom to answer: filled by vosMsgRecv() for an application message, read by vosMsgResp(). The application's own; it
 *  stays valid after further messages have been received. */
typedef struct VOS_MSG_PEER {
    struct sockaddr_un stAddr; /**< The requester's address. A path of 108 characters has no NUL at its end. */
    uint32_t ulAddrLen;        /**< Its length in bytes, as the kernel reported it: 111 for a path of 108 characters. */
    uint32_t ulNoReturn;       /**< The request's no-return word: VOS_MSG_NO_ANSWER suppresses the answer. */
    int32_t iSocketFd;         /**< The socket on which the request came and the answer goes out. For a message of the
                                    high-priority socket it is g_vosFdProcHigh. */
} VOS_MSG_PEER;

/** Information about a trapped packet. Its layout belongs to the kernel module; the library carries it. */
typedef struct VOS_PKT_INFO {
    uint8_t aucData[88]; /**< Opaque. */
} VOS_PKT_INFO;
/** Further information about a trapped packet, opaque as well. */
typedef struct VOS_PKT_EXT {
    uint8_t aucData[56]; /**< Opaque. */
} VOS_PKT_EXT;

/*
 * Handlers. They run inside the receive call, in its thread, and must not call a receive function themselves. Memory
 * that they get by address belongs to the library and is valid until they return. Any local process can send the
 * message that makes a handler run, with any values in it.
 */

/** A trapped packet of iLen bytes. The result is ignored. */
typedef int32_t (*VOS_PKT_PROC)(uint8_t *pData, int32_t iLen, VOS_PKT_INFO stInfo, VOS_PKT_EXT stExt);
/** A port's link changed; the two words of the event. The result is ignored. */
typedef int32_t (*VOS_LINKTRAP_PROC)(uint32_t ulValue2, uint32_t ulValue3);
/** A VLAN interface's link changed; the three words of the event. The result is ignored. */
typedef int32_t (*VOS_VLANINTF_LINKTRAP_PROC)(uint32_t ulValue2, uint32_t ulValue3, uint32_t ulValue4);
/** A MAC-address event: its words, and the address of the payload. The result is ignored. The payload's length is not
 *  known here and may be 0. Behind the bytes that came lie bytes of earlier messages or, on a thread channel, the
 *  memory behind the caller's buffer. */
typedef int32_t (*VOS_MAC_TRAP_PROC)(uint32_t ulValue1, uint32_t ulValue2, uint32_t ulValue3, void *pPayload);
/**
 * Writes the running configuration as text.
 *
 * @param pBuf  zeroed; *pLen bytes. Bytes written behind them overwrite the heap.
 * @param pLen  in: the buffer's capacity in bytes, which the requester chose: any number from 0 to 4 MiB; out: the
 *              bytes still free, from 0 to the capacity
 * @param ulValue1  the requester's first argument
 * @param ulValue2  the requester's second argument
 * @return 0 when the text is complete; anything else is the requester's result and no text is sent
 */
typedef int32_t (*VOS_BLDRUN_PROC)(char *pBuf, int32_t *pLen, uint32_t ulValue1, uint32_t ulValue2);
/**
 * Reads or writes a configuration object. The library needs 64 KiB of stack for the index words while this handler
 * runs; see vosMsgRecv().
 *
 * @param ulValue1   the requester's operation
 * @param pName      the object's name
 * @param pIndexes   index words, in and out; room for 16142
 * @param pIndexNum  their number, in and out
 * @param pValueBuf  the value, in and out; 8-byte aligned
 * @param pValueLen  in: the length that the requester announced for the value or for its own room, but at most the room
 *                   that pValueBuf has; announced bytes that did not come are zero. Write at most that many bytes: the
 *                   library checks only afterwards. out: the length to send back. A length beyond the end of the buffer
 *                   with the result 0 aborts the process with an assertion line.
 * @param pusValue   a further argument, in and out
 * @return 0 on success; anything else is carried back and no value is sent. errno is carried back too.
 */
typedef int32_t (*VOS_CCD_PROC)(uint32_t ulValue1, char *pName, uint32_t *pIndexes, int32_t *pIndexNum, void *pValueBuf,
                                uint32_t *pValueLen, uint16_t *pusValue);
/**
 * Describes a configuration object. All outputs are zero before the call; their meaning is the applications'.
 *
 * @param pName     the object's name
 * @param ulValue1  the requester's argument
 * @param pOut1     outputs 1 to 6 and 8 to 10: one word each
 * @param pTable    32 words
 * @param pCount    output 7: the number of table words in use
 * @return carried back to the requester, as is errno
 */
typedef int32_t (*VOS_CCD_OBJ_INFO_GET_PROC)(char *pName, uint32_t ulValue1, uint32_t *pOut1, uint32_t *pOut2,
                                             uint32_t *pOut3, uint32_t *pOut4, uint32_t *pOut5, uint32_t *pOut6,
                                             uint32_t *pTable, uint32_t *pCount, uint32_t *pOut8, uint32_t *pOut9,
                                             uint32_t *pOut10);
/** A message-loop timer has expired: how many milliseconds ago, and the argument given at registration. A callback of
 *  the main channel may cancel, stop or restart any timer of that channel, its own included. A timer that fires once is
 *  freed after its callback in any case: restarting it there returns VOS_OK and has no effect. */
typedef void (*VOS_MSG_TIMER_PROC)(uint32_t ulLateMs, uint64_t ulUserArg);

/** A message-loop timer. The library allocates and frees it. Its address is the timer's handle. */
typedef struct VOS_MSG_TIMER {
    struct VOS_MSG_TIMER *pNext; /**< The next timer, in the order of registration. */
    uint32_t ulSerial;           /**< Number of the registration. */
    uint32_t ulPeriodic;         /**< 0: fires once. */
    VOS_MSG_TIMER_PROC pProc;    /**< Called on expiry; may be null. */
    uint32_t ulIntervalMs;       /**< Interval in milliseconds. */
    uint64_t ulUserArg;          /**< Passed to pProc. */
    struct timeval stStart;      /**< The moment from which the interval runs. */
    uint32_t ulRunning;          /**< 1: examined by the loop; 0: stopped. */
} VOS_MSG_TIMER;

/** The main channel's descriptors: normal socket, high-priority socket, the kernel's netlink socket. -1: not open. */
extern int32_t g_vosFdProc, g_vosFdProcHigh, g_vosFdNLUni;
/** The receive loop's buffer: every datagram of the main channel is received into it. 8-byte aligned. */
extern uint8_t g_vosMsgBufferRecv[VOS_MSG_BUFFER_LEN];
/** The buffer in which a receive loop builds answers about configuration objects. 8-byte aligned. All loops of a
 *  process use it, without a lock. When two loops answer at the same time, the two answers may be mixed. The requester
 *  chooses the loop by the socket that it sends to, so with several loops all such requests should go to one of them.
 */
extern uint8_t g_vosMsgBufferSend[VOS_MSG_BUFFER_LEN];

/** The registered handlers, null when there is none: packets; links of the two kinds of ports and of VLAN interfaces;
 *  MAC addresses; the running configuration; configuration objects and their descriptions. */
extern VOS_PKT_PROC g_vosPktProc;
extern VOS_LINKTRAP_PROC g_vosApLinktrapProc, g_vosAgLinktrapProc; /**< Port kind 0, port kind 1. */
extern VOS_VLANINTF_LINKTRAP_PROC g_vosVlanintfLinktrapProc;       /**< VLAN interfaces. */
extern VOS_MAC_TRAP_PROC g_vosMacTrapProc;                         /**< MAC addresses. */
extern VOS_BLDRUN_PROC g_vosBldrunProc;                            /**< Running configuration. */
extern VOS_CCD_PROC g_vosCcdProc;                                  /**< Configuration objects. */
extern VOS_CCD_OBJ_INFO_GET_PROC g_vosCcdObjInfoGetProc;           /**< Their descriptions. */

/** The main channel's timers in the order of registration, and the number that the next one gets. */
extern VOS_MSG_TIMER *g_pVosMsgTimerFirst;
extern uint32_t g_ulVosMsgMagic; /**< Counts registrations from 0. */
/** The applications' second debug word, 0x805 at load. The library stores it and does not use its bits. */
extern uint32_t g_vosDebugSmdFlags;

/**
 * Checks that the two message buffers are aligned to ZEB_LONGBYTES. They always are, unless the application has put
 * buffers of its own in their place. vosProcessInit() calls this first of all.
 *
 * @return VOS_OK. A misaligned buffer prints an assertion line and aborts the process.
 * @threads any
 */
int32_t vosMsgCheck(void);

/**
 * The path of a process's normal socket: "/tmp/vos/" and the name's part behind its last slash.
 *
 * @param pProcName  process name
 * @param pPath      128 bytes; a longer path is cut off
 * @return VOS_OK; VOS_ERR_PARAM for a null pointer
 * @threads any
 */
int32_t vosMsgNLChangePath(const char *pProcName, char *pPath);

/**
 * A path for a requester's own socket: "/tmp/vos/clientp<process id>t<thread id>v<number>". The number runs from 1 to
 * 127 and then starts again. All threads of the process take it from one counter, so a thread gets the same path again
 * when 126 others have been taken, by whichever thread.
 *
 * In a child of vfork() the process id is the parent's until the child executes a program.
 *
 * @param pPath  buffer for the path
 * @param iSize  its size in bytes; a longer path is cut off
 * @return VOS_OK; VOS_ERR_PARAM for a null pointer
 * @threads any; two threads of a process never get the same path
 */
int32_t vosMsgGetLocalFile(char *pPath, int32_t iSize);

/**
 * Fills the address of a path. A path that does not fit also gets its true length, so that the kernel refuses the
 * address instead of taking it for a shorter one.
 *
 * @param pPath     path
 * @param pAddr     zeroed and filled
 * @param pAddrLen  the address's length in bytes: the path's plus 3
 * @return VOS_OK; VOS_ERR_PARAM for a null pointer
 * @threads any
 */
int32_t vosMsgLocalAddrInit(const char *pPath, struct sockaddr_un *pAddr, uint32_t *pAddrLen);

/**
 * Creates a datagram socket for messages. While VOS_DEBUG_NO_TIMEOUTS is set in the flag word it gets no time-outs.
 * A time-out that cannot be set is logged, and the socket is returned. A program that the process starts does not
 * inherit the socket (close-on-exec).
 *
 * @param ulTimeoutMs  send and receive time-out in milliseconds; 0: transfers wait for ever
 * @return the descriptor, the caller's to close; -1 with errno when it cannot be created, without a line
 * @threads any
 */
int32_t vosMsgLocalSocket(uint32_t ulTimeoutMs);

/**
 * Asks for a send buffer of 4 MiB and a receive buffer of 6 MiB. What the kernel refuses is logged.
 *
 * With iVerify 1 a line such as "SO_RCVBUF set 6291456 but only 8388608, need to just KERNEL_NET_MEM_MAX value." says
 * that the kernel's limit is lower than wanted (the kernel counts twice what it grants). vosInit() raises the limit on
 * a device. Elsewhere the line may be ignored: the socket works, but fewer messages can wait in it.
 *
 * @param iSocketFd  socket
 * @param iVerify    1: read the sizes back and log those that the kernel has limited
 * @return VOS_OK always
 * @threads any
 */
int32_t vosMsgSocketOptmize(int32_t iSocketFd, int32_t iVerify);

/**
 * Opens the process's channel: the sockets "/tmp/vos/<name>" and "/tmp/vos/<name>High", and the kernel's netlink
 * socket. There is no call that closes them. A program that the process starts does not inherit them (close-on-exec),
 * so the names are free when the process has ended. A child of fork() holds them until it executes a program.
 *
 * The paths are taken from the process that has them: from an ended one, and also from one that still runs. That
 * process then receives nothing more, and is not informed. All names share one directory: "app" with "High" or a number
 * behind it is also the path of the high-priority socket or of a thread channel of "app", and names beginning with
 * "clientp" are the requesters'.
 *
 * The directory is made with mode 0777 less the umask. A process that may not write to it cannot bind ("local bind ...
 * failed errno:13").
 *
 * The local sockets get a time-out of 3 seconds for sending, which bounds vosMsgResp(), unless VOS_DEBUG_NO_TIMEOUTS is
 * set in the flag word.
 *
 * A failure is expected to end the process. Of the sockets made so far only the one that could not be bound is closed.
 * With a name of 95 to 98 characters the normal socket is open and recorded in g_vosFdProc, and the call fails.
 *
 * @param pProcName  name under which others reach this process, up to 94 characters; what is before its last slash does
 *                   not count
 * @param ulFlags    VOS_MSG_OPEN_LOCAL: open the pair of local sockets; VOS_MSG_OPEN_NETLINK: open the netlink socket;
 *                   both may be combined; 0: nothing
 * @param pReserved  any pointer but null; neither read nor written
 * @return VOS_OK; VOS_ERR_PARAM for a null pointer; VOS_ERR_EXIST when a socket of that kind is open;
 *         VOS_ERROR when a socket cannot be created or bound, a name too long for an address included
 * @threads the main thread, before its receive loop starts
 */
int32_t vosMsgInit(const char *pProcName, uint32_t ulFlags, void *pReserved);

/**
 * Sends an application message to a process and waits for its answer. The answer's payload replaces the buffer's
 * content.
 *
 * The length of the answer is not reported. A longer answer is cut to ulMsgSize. A shorter one counts as success,
 * leaves the end of the buffer as it was, and is logged ("read need read ... but read only ..."). So send records of
 * one fixed size both ways, or put the length into the payload or the code. An answer shorter than its header of 32
 * bytes, which only a foreign program sends, counts as success too; its code then has no meaning.
 *
 * Time-outs: 0 waits for ever, unlike in vosMsgRecv(). So VOS_NO_WAIT must not be passed here, and VOS_WAIT_FOREVER
 * is 49.7 days. While VOS_DEBUG_NO_TIMEOUTS is set in the flag word every call waits for ever.
 *
 * A signal that is handled ends the wait with VOS_ERROR and errno EINTR, also under SA_RESTART; the receiver may still
 * serve the request. Only a wait without a time-out continues after a handler with SA_RESTART.
 * Without a handler the end of a child can end the wait too: when SIGCHLD is blocked in the first thread and in the
 * thread that created the child, but not in the asking one. So block SIGCHLD in every thread or in none.
 *
 * On VOS_ERROR errno is that of the failed call: ENOENT when there is no such name, ECONNREFUSED when its process has
 * ended, EAGAIN after the time-out, EINTR after a signal, EMFILE without a free descriptor. On VOS_OK errno has no
 * meaning.
 *
 * An answer that comes after the time-out is lost. In two cases it can reach a later request; an application that
 * cannot bear this puts a number into its payloads and compares it:
 * - A request of the same thread to the same process uses the same path, because 126 other requests of the process were
 *   made in between, and the late answer comes while it waits.
 * - A datagram comes to a requester's path in the moment between its bind and its connect.
 *
 * A thread that is cancelled inside the call leaves its descriptor open and its path in "/tmp/vos".
 *
 * @param pDestName    receiver's name, up to 98 characters, or 94 for its high-priority socket
 * @param pMsgBuf      payload, in and out; it may lie in one of the exported message buffers
 * @param ulMsgSize    its size in bytes, up to 64568
 * @param ulNoReturn   VOS_MSG_WAIT_ANSWER: wait for the answer; VOS_MSG_NO_ANSWER: the receiver shall not answer;
 *                     others: do not wait, though the receiver still answers
 * @param pRetCode     receives the answer's code, a signed value carried in the word; null: the code is dropped. It is
 *                     written only when an answer came.
 * @param ulTimeoutMs  time-out for sending and for the answer in milliseconds; 0: wait for ever
 * @param ulFlags      VOS_MSG_TO_HIGH: to the receiver's high-priority socket; VOS_MSG_NO_WAIT: do not wait for the
 *                     answer
 * @return VOS_OK; VOS_ERR_PARAM for a null name or buffer; VOS_ERR_TOO_LONG; VOS_ERROR with errno when nobody receives
 *         under the name, the message cannot be sent, or the answer does not come in time
 * @threads any, also at the same time
 */
int32_t vosMsgSend(const char *pDestName, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulNoReturn, uint32_t *pRetCode,
                   uint32_t ulTimeoutMs, uint32_t ulFlags);

/**
 * Answers an application message.
 *
 * The call waits while the requester's queue is full: up to 3 seconds, the time-out that vosMsgInit() gave to the
 * socket, or for ever if VOS_DEBUG_NO_TIMEOUTS was set then. A requester that never reads so holds up the thread that
 * answers. A signal that is handled ends the wait with VOS_ERROR and errno EINTR, also under SA_RESTART.
 *
 * @param iReserved  not used
 * @param ulRetCode  code for the requester
 * @param pMsgBuf    payload; with a size of 0 any pointer but null
 * @param ulMsgSize  its size in bytes, up to 64568
 * @param pPeer      the request's record
 * @return VOS_OK, also when the requester wants no answer and none is sent; VOS_ERR_PARAM for a null pointer;
 *         VOS_ERR_TOO_LONG; VOS_ERROR with errno when the answer cannot be sent, for example ENOENT because the
 *         requester no longer waits, or EAGAIN because its queue stayed full
 * @threads any
 */
int32_t vosMsgResp(int32_t iReserved, uint32_t ulRetCode, const void *pMsgBuf, uint32_t ulMsgSize,
                   const VOS_MSG_PEER *pPeer);

/**
 * Waits for an application message. While it waits it fires timers, handles every other kind of message and calls the
 * handlers of the application's own descriptors. In one wake-up it serves one message of the kernel, the
 * high-priority socket until that is empty, one message of the normal socket, then the application's descriptors.
 *
 * The call needs up to 80 KiB of stack, and the handlers' own need comes on top. Every message socket, and the netlink
 * socket, must be below descriptor 1024.
 *
 * An empty datagram on the high-priority socket has the last message in the receive buffer served once more. An
 * application message is then returned again: the count is ulMsgSize, and the peer is the sender of the empty datagram.
 *
 * @param ulReserved   not used
 * @param pMsgBuf      buffer for the payload; may be null when the size is 0
 * @param ulMsgSize    its size in bytes, up to 64568; what does not fit is discarded
 * @param ulTimeoutMs  milliseconds to wait, 0 to look without waiting, 0xFFFFFFFF for ever. The time starts again after
 *                     every wake-up that served a message or a descriptor and after every timer, so it does not limit
 *                     the length of the call.
 * @param pPeer        receives whom to answer
 * @return the number of bytes copied. For a message of the high-priority socket that is its payload, cut to the
 *         buffer; for one of the normal socket it is the message with its 32-byte header, cut to the buffer: up to 32
 *         bytes behind the payload are then to be ignored. So the payload's length is known only when the buffer is
 *         at least 32 bytes larger than the largest payload: it is then the result minus 32.
 *         VOS_ERR_TIMEOUT; VOS_ERR_PARAM for a null pointer or a buffer size above 64568; VOS_ERR_NOT_INIT before
 *         vosMsgInit(); VOS_ERROR when waiting or receiving fails. A handled signal makes the wait fail, also when
 *         its handler was installed with SA_RESTART. An empty datagram on the normal socket and one of 1 to 31 bytes on
 *         the high-priority socket are VOS_ERROR, too.
 * @threads one thread of the process
 */
int32_t vosMsgRecv(uint32_t ulReserved, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulTimeoutMs, VOS_MSG_PEER *pPeer);

/**
 * Registers the handler of trapped packets, in place of an earlier one.
 *
 * @param pProc  handler, or null to switch the kind off
 * @return VOS_OK
 * @threads the receive loop's, or before it starts; this holds for all registrations
 */
int32_t vosMsgRegisterPkt(VOS_PKT_PROC pProc);

/**
 * Registers the handler of link changes of one kind of ports.
 *
 * @param ulKind  0 or 1
 * @param pProc   handler, or null
 * @return VOS_OK; VOS_ERR_PARAM for another kind
 */
int32_t vosMsgRegisterPortLink(uint32_t ulKind, VOS_LINKTRAP_PROC pProc);

/** Registers the handler of link changes of VLAN interfaces, or null. @return VOS_OK */
int32_t vosMsgRegisterVlanintfLink(VOS_VLANINTF_LINKTRAP_PROC pProc);

/** Registers the handler of MAC-address events, or null. @return VOS_OK */
int32_t vosMsgRegisterMac(VOS_MAC_TRAP_PROC pProc);

/** Registers the builder of the running configuration, or null: requests are then answered with VOS_ERR_NO_HANDLER.
 *  @return VOS_OK */
int32_t vosMsgRegisterBldrun(VOS_BLDRUN_PROC pProc);

/** Registers the handler of configuration objects, or null: requests are then not answered. @return VOS_OK */
int32_t vosMsgRegisterCcd(VOS_CCD_PROC pProc);

/** Registers the describer of configuration objects, or null: requests are then not answered. @return VOS_OK */
int32_t vosMsgRegisterCcdObjInfoGet(VOS_CCD_OBJ_INFO_GET_PROC pProc);

/**
 * Sends one datagram. A size above 4 MiB is logged, and sending is tried. A datagram that was sent only in part is
 * logged.
 *
 * @param iSocketFd  socket
 * @param pBuf       datagram
 * @param ulSize     its size in bytes
 * @param pAddr      destination, or null for a connected socket
 * @param ulAddrLen  its length in bytes
 * @return the number of bytes sent; VOS_ERROR with errno
 * @threads any
 */
int32_t vosMsgSendStream(int32_t iSocketFd, const void *pBuf, uint32_t ulSize, const struct sockaddr *pAddr,
                         uint32_t ulAddrLen);

/**
 * Sends one datagram gathered from pieces.
 *
 * @param iSocketFd  socket
 * @param pMsg       destination and pieces
 * @param ulSize     size of the pieces in bytes; it serves only to log sizes above 4 MiB
 * @return the number of bytes sent; VOS_ERROR with errno
 * @threads any
 */
int32_t vosMsgSendStream1(int32_t iSocketFd, const struct msghdr *pMsg, uint32_t ulSize);

/**
 * Receives one datagram; what does not fit is discarded.
 *
 * @param iSocketFd  socket
 * @param pBuf       buffer
 * @param ulSize     its size in bytes; above 6 MiB it is logged
 * @param pAddr      receives the sender's address; may be null
 * @param pAddrLen   in: room for the address; out: its length
 * @return the number of bytes received; VOS_ERROR with errno, and for an empty datagram, which leaves errno as it was
 * @threads any
 */
int32_t vosMsgRecvStream(int32_t iSocketFd, void *pBuf, uint32_t ulSize, struct sockaddr *pAddr, uint32_t *pAddrLen);

/**
 * Receives one datagram scattered into pieces.
 *
 * @param iSocketFd  socket
 * @param pMsg       pieces
 * @param ulSize     size of the pieces in bytes; it serves only to trace sizes above 6 MiB
 * @return the number of bytes received, 0 for an empty datagram; VOS_ERROR with errno
 * @threads any
 */
int32_t vosMsgRecvStream1(int32_t iSocketFd, struct msghdr *pMsg, uint32_t ulSize);

/**
 * Asks a process for its running configuration, over its high-priority socket, and waits up to 90 seconds, or for ever
 * while VOS_DEBUG_NO_TIMEOUTS is set in the flag word. A signal that is handled ends the wait with VOS_ERROR and errno
 * EINTR, also under SA_RESTART, unless there is no time-out.
 *
 * An answer without the text that it announces, and an empty one, is refused with one line. pBuf may then hold a part
 * of the text; *pLen is as it was.
 *
 * @param pDestName  process name
 * @param pBuf       receives the text
 * @param pLen       in: the buffer's capacity in bytes, more than 32 and at most 4 MiB; out, on success: the number of
 *                   bytes that stayed free. The text is before them; it does not end with a NUL.
 * @param ulValue1   first argument for the other's builder
 * @param ulValue2   second argument
 * @return VOS_OK; VOS_ERR_PARAM for a null pointer; VOS_ERROR for a capacity of 32 or less, or when the exchange fails;
 *         VOS_ERR_NO_HANDLER when the process has no builder; VOS_ERR_MEMORY when it had no memory for the text;
 *         any other code that its builder returned
 * @threads any
 */
int32_t vosMsgBldrunSend(const char *pDestName, char *pBuf, uint32_t *pLen, uint32_t ulValue1, uint32_t ulValue2);

/**
 * Asks a process for the description of a configuration object and waits up to 10 seconds, or for ever while
 * VOS_DEBUG_NO_TIMEOUTS is set in the flag word. A process without a describer does not answer. A signal that is
 * handled ends the wait with VOS_ERROR and errno EINTR, also under SA_RESTART, unless there is no time-out. Outputs are
 * written only when the whole answer is there and its code is 0.
 *
 * This is the only call of the library for configuration objects of other processes: there is none that reads or writes
 * one. The configuration component brings its own, with messages of type VOS_MSG_TYPE_CCD.
 *
 * @param pRetCode   receives the code of the other's describer; errno is set to the other's errno
 * @param pDestName  process name
 * @param pObjName   object name
 * @param ulValue1   argument for the describer
 * @param pOut1      outputs 1 to 6 and 8 to 10: one word each. Outputs 8 to 10 are right only when the description
 *                   uses all 32 table words; with fewer they are the words behind those in use.
 * @param pTable     32 words
 * @param pCount     number of table words in use
 * @return VOS_OK when an answer came; VOS_ERR_PARAM for a null pointer; VOS_ERR_TOO_LONG for a name that does not fit a
 *         message; VOS_ERROR when the exchange fails
 * @threads the receive loop's, as it uses g_vosMsgBufferSend
 */
int32_t vosMsgCcdObjInfoGetSend(uint32_t *pRetCode, const char *pDestName, const char *pObjName, uint32_t ulValue1,
                                uint32_t *pOut1, uint32_t *pOut2, uint32_t *pOut3, uint32_t *pOut4, uint32_t *pOut5,
                                uint32_t *pOut6, uint32_t *pTable, uint32_t *pCount, uint32_t *pOut8, uint32_t *pOut9,
                                uint32_t *pOut10);

/**
 * Sets another process's debug flag word; see vosDebugConfig(). The message goes to the process's normal socket. The
 * call does not wait for an answer: VOS_OK says that the message was sent, not that it was obeyed.
 *
 * While the receiver's queue is full the call waits up to 3 seconds, or for ever while VOS_DEBUG_NO_TIMEOUTS is set in
 * the flag word of the caller.
 *
 * @param pDestName  process name
 * @param ulFlags    the new word
 * @return VOS_OK when the message was sent; VOS_ERR_PARAM for a null name; VOS_ERROR with errno when it could not be
 *         sent, for example because no such process runs
 * @threads any
 */
int32_t vosMsgDebugVos(const char *pDestName, uint32_t ulFlags);

/**
 * Sets another process's second debug word; see g_vosDebugSmdFlags.
 *
 * @param pDestName  process name
 * @param ulFlags    the new word
 * @return as vosMsgDebugVos(), which also tells how long the call may wait
 * @threads any
 */
int32_t vosMsgDebugSmd(const char *pDestName, uint32_t ulFlags);

/**
 * Sends a bare control message, such as VOS_MSG_STDOUT_REDIRECT with the arguments of vosMsgDebugStdRedirect().
 *
 * @param pDestName  process name
 * @param ulType     message type
 * @param ulValue1   first argument
 * @param ulValue2   second argument
 * @return as vosMsgDebugVos(), which also tells how long the call may wait
 * @threads any
 */
int32_t vosMsgDebugMsgSend(const char *pDestName, uint32_t ulType, uint32_t ulValue1, uint32_t ulValue2);

/** @return this process's second debug word. @threads any */
uint32_t vosMsgDebugSmdGet(void);

/** Sets this process's second debug word. @return VOS_OK @threads any */
int32_t vosMsgDebugSmdSet(uint32_t ulFlags);

/**
 * Redirects this process's standard output, log lines included, or puts it back to where it was before the first
 * redirection.
 *
 * Each redirection opens the terminal and keeps that descriptor open until the process ends; the first one also keeps a
 * copy of the earlier standard output. Programs that the process starts inherit the redirected descriptor 1, and
 * neither of the others.
 *
 * When a terminal is not read, or its output is stopped, each thread that prints waits until it is read again, the
 * receive loop included. Any process that may send to this one can cause that, with VOS_MSG_STDOUT_REDIRECT.
 *
 * @param ulAction  VOS_MSG_STDOUT_TERMINAL: redirect; VOS_MSG_STDOUT_RESTORE: restore
 * @param ulTty     0: the console; N: pseudo-terminal N - 1
 * @return VOS_OK; VOS_ERR_PARAM for another action; VOS_ERROR with errno, also for a restore without a redirection
 * @threads the receive loop's; descriptor 1 changes for all threads
 */
int32_t vosMsgDebugStdRedirect(uint32_t ulAction, uint32_t ulTty);

/**
 * Registers a timer that fires in the receive loop, and starts it. The next interval of a periodic timer begins when
 * its callback has returned.
 *
 * Timers use the clock of gettimeofday(). When that is set forward they fire early. When it is set back to before the
 * timer's start the timer fires at once, and its callback gets a lateness near 2^32 ms. When it is set back by less the
 * timer fires later.
 *
 * @param ulPeriodic    0: fire once, after which the timer is freed; otherwise again and again
 * @param ulIntervalMs  interval in milliseconds
 * @param pProc         called on expiry; may be null
 * @param ppTimer       receives the handle
 * @param ulUserArg     passed to pProc
 * @return VOS_OK; VOS_ERR_PARAM for a null ppTimer; VOS_ERR_MEMORY; VOS_ERROR when the clock cannot be read
 * @threads the receive loop's, as for all timer calls
 */
int32_t vosTimerRegister(uint32_t ulPeriodic, uint32_t ulIntervalMs, VOS_MSG_TIMER_PROC pProc, VOS_MSG_TIMER **ppTimer,
                         uint64_t ulUserArg);

/**
 * Removes and frees a timer.
 *
 * For this call and the two below: a timer that fires once is freed after its callback, and a later timer may get the
 * same address. Its old handle then names the new timer, and VOS_ERROR is not certain. So forget the handle when the
 * timer fires. Timers of the second channel are not known here.
 *
 * @param pTimer  handle
 * @return VOS_OK; VOS_ERR_PARAM for null; VOS_ERROR when the main channel has no such timer
 */
int32_t vosTimerCancel(VOS_MSG_TIMER *pTimer);

/**
 * Starts a timer, stopped or not, with a new interval from now.
 *
 * @param pTimer        handle
 * @param ulIntervalMs  interval in milliseconds
 * @return VOS_OK; VOS_ERROR, without a line, when there is no such timer or the clock cannot be read
 */
int32_t vosTimerStart(VOS_MSG_TIMER *pTimer, uint32_t ulIntervalMs);

/** Stops a timer and keeps it. @return VOS_OK; VOS_ERROR when there is no such timer */
int32_t vosTimerStop(VOS_MSG_TIMER *pTimer);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
