/* SPDX-License-Identifier: MIT */
/**
 * @file vosMsgTap.h
 * Message taps: copies of the messages that a running process sends and receives.
 *
 * A tap is a datagram socket directly below "/tmp/vos". Its owner sends the control message VOS_MSG_TAP to any message
 * socket of a process, and from then on the process sends a copy of each message to the tap: of those that it sends and
 * of those that it receives, in all its threads, over all its channels, the library's own messages included. Each copy
 * is one datagram: the header VOS_MSG_TAP_HEAD, then the message, cut to the length that the tap asked for.
 *
 *     VOS_MSG_TAP_SWITCH request = {{VOS_MSG_TAP, 0, 0, VOS_MSG_TAP_ON, 0xFFFFFFFF, 0, 0, sizeof request.acPath},
 *                                   "/tmp/vos/mytap"};
 *     int tap = vosMsgLocalSocket(1000);
 *     bind(tap, ... "/tmp/vos/mytap" ...);
 *     vosMsgSendStream(tap, &request, sizeof request, ... "/tmp/vos/server" ...);
 *     recv(tap, ...);    // VOS_MSG_TAP_STARTED or VOS_MSG_TAP_REFUSED, then copies
 *
 * What a tap may cost the process: one more system call for each message, which never waits. A copy that the tap has no
 * room for is lost and counted. The message itself, its result, errno and the order of messages stay as they are
 * without the tap. The first copy of each thread needs one more call, which asks for the thread's id.
 *
 * Passwords and keys that pass in messages are in the copies. A tap that does not need them asks for 0 bytes of
 * payload.
 *
 * Who may tap a process: whoever may send to one of its message sockets, with a tap that belongs to the same user as
 * the process (its effective user id). At most four taps are on at a time. The process stays connected to the socket
 * that it has found: whoever takes over the tap's path later gets no copies. A tap whose socket is closed is switched
 * off when the next message comes. A child of fork() has no taps until one is switched on in it, and neither has a
 * program that the process executes.
 *
 * These are not copied: control messages of type VOS_MSG_TAP, copies that a process receives itself, and what the
 * application sends or receives without the library's message functions.
 */
#ifndef VOS_MSG_TAP_H
#define VOS_MSG_TAP_H

#include "vosMsg.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** Actions of the control message, its ulValue1. */
enum {
    VOS_MSG_TAP_OFF = 0, /**< Switch the tap off. The process sends VOS_MSG_TAP_STOPPED as the last datagram, which may
                            be lost like any other: whoever waits for it sees to it that the tap has room. Any socket
                            may send the request, also an unbound one. It has no effect, and is not logged as an error,
                              when no such tap is on. */
    VOS_MSG_TAP_ON = 1   /**< Switch the tap on; or, for a tap that is on, change its limit. Either is answered with
                              VOS_MSG_TAP_STARTED. Only the tap's own socket may send it. */
};

/**
 * The control message that switches a tap: 140 bytes. It is taken on the normal and the high-priority socket, on the
 * second channel's sockets and on the sockets of thread channels. A request of any other length, with a path without
 * NUL, with an unknown action, or with a word that must be 0 and is not, is dropped with one error line.
 */
typedef struct VOS_MSG_TAP_SWITCH {
    VOS_MSG_HEAD stHead; /**< 0: ulType VOS_MSG_TAP; ulValue1 the action; ulValue2, for VOS_MSG_TAP_ON, how many bytes
                              of each message's payload are copied at most: 0 copies the message headers alone,
                              0xFFFFFFFF copies all; ulValue3 and ulValue4 0; ulBufLen 108. ulNoReturn and ulRetCode
                              are not read. */
    char acPath[108];    /**< 32: the tap's path with a NUL at its end: "/tmp/vos/" and a name without a slash. What
                              follows the NUL is not read. */
} VOS_MSG_TAP_SWITCH;

/** What a datagram to a tap reports: values of VOS_MSG_TAP_HEAD::ucWhat. */
enum {
    VOS_MSG_TAP_SENT = 1,     /**< The process has sent a message, or has tried to. */
    VOS_MSG_TAP_RECEIVED = 2, /**< The process has received a message, or has waited for one that did not come. */
    VOS_MSG_TAP_STARTED = 3,  /**< The tap is on. No message follows the header. acOwn is the path of the process's
                                   normal socket, empty when that is not open. ullNumber and ullLost count the copies up
                                   to now. */
    VOS_MSG_TAP_STOPPED = 4,  /**< The tap is off, and this is the last datagram to it; without message, and with the
                                   counts, as above. */
    VOS_MSG_TAP_REFUSED = 5   /**< The tap was not switched on; without message. iErrno says why: EBUSY when four others
                                   are on; EPERM when the socket belongs to another user, or the path is no socket;
                                   otherwise the errno of the call that has failed, such as EMFILE. It comes from the
                                   socket that got the request. */
};

/** What kind of message it is: values of VOS_MSG_TAP_HEAD::ucStage. */
enum {
    VOS_MSG_TAP_PLAIN = 0,   /**< Not known: the application has called a stream function itself, or a receive loop
                                  got no whole message header. */
    VOS_MSG_TAP_REQUEST = 1, /**< A request. Sent: the sender waits for the answer. Received: the sender has not
                                  forbidden an answer. */
    VOS_MSG_TAP_ANSWER = 2,  /**< An answer, to the requester whose path is acPeer (sent) or acOwn (received). */
    VOS_MSG_TAP_ONE_WAY = 3  /**< An event, a control message, or a request whose answer nobody waits for. */
};

/** Through which socket: values of VOS_MSG_TAP_HEAD::ucSocket. */
enum {
    VOS_MSG_TAP_NORMAL = 1,      /**< The main channel's normal socket. */
    VOS_MSG_TAP_HIGH = 2,        /**< The main channel's high-priority socket. */
    VOS_MSG_TAP_SECOND = 3,      /**< The second channel's normal socket. */
    VOS_MSG_TAP_SECOND_HIGH = 4, /**< The second channel's high-priority socket. */
    VOS_MSG_TAP_THREAD = 5,      /**< A thread channel's socket. */
    VOS_MSG_TAP_NETLINK = 6,     /**< The netlink socket. */
    VOS_MSG_TAP_REQUESTER = 7,   /**< The socket of one request: the request goes out and the answer comes in. */
    VOS_MSG_TAP_OTHER = 8        /**< Any other: the application's own, or an unbound one. */
};

/**
 * The header of every datagram to a tap: 304 bytes, naturally aligned, in the machine's byte order. A reader skips
 * usHeadLen bytes to reach the message, and ignores a datagram whose ulType or usVersion it does not know. A later
 * version may make the header longer; the fields that are here keep their places.
 *
 * How an answer is found for its request: the four copies of one exchange, two of each process, show the requester's
 * path: the request as acOwn of the requester and as acPeer of the server, the answer as acPeer of the server and as
 * acOwn of the requester. The path holds the process and the thread; a thread waits for one answer at a time, and uses
 * the path again after 126 other requests of its process. So an answer belongs to the last request before it with that
 * path. From the moments of the four copies follow: how long the request waited in the queue (received less sent), how
 * long it was served (answer sent less request received), and how long it took in all (answer received less request
 * sent, at the requester).
 */
typedef struct VOS_MSG_TAP_HEAD {
    uint32_t ulType;      /**< 0: VOS_MSG_TAP_COPY. */
    uint16_t usVersion;   /**< 4: 1. */
    uint16_t usHeadLen;   /**< 6: length of this header in bytes: 304. */
    uint8_t ucWhat;       /**< 8: VOS_MSG_TAP_SENT and so on. */
    uint8_t ucStage;      /**< 9: VOS_MSG_TAP_REQUEST and so on. */
    uint8_t ucSocket;     /**< 10: VOS_MSG_TAP_NORMAL and so on; 0 when no message is reported. */
    uint8_t ucReserved;   /**< 11: 0. */
    int32_t iSocketFd;    /**< 12: the socket's descriptor in the process; -1 when no message is reported. */
    uint32_t ulProcessId; /**< 16: the process. */
    uint32_t ulThreadId;  /**< 20: the thread, as the kernel numbers it. */
    int32_t iResult;      /**< 24: what the system call has returned: the number of bytes, or -1. */
    int32_t iErrno;       /**< 28: errno when iResult is -1, otherwise 0. A request whose receiver cannot be reached
                               is reported as sent, with the errno of connect(). */
    uint64_t ullNumber;   /**< 32: running number of the copy for this tap, from 1. Lost copies have numbers, too. The
                               copies of one thread come in their order; those of two threads may overtake each other. */
    uint64_t ullLost;     /**< 40: how many copies this tap has lost before. */
    uint64_t ullWallNs;   /**< 48: moment in nanoseconds since 1970. Sent: directly before the system call. Received:
                               directly after it. */
    uint64_t ullMonotonicNs; /**< 56: the same moment on the clock CLOCK_MONOTONIC, which all processes share. */
    uint32_t ulWholeLen;     /**< 64: length of the message in bytes; 0 when none came. A received message may have been
                                  longer than the buffer it was received into. */
    uint32_t ulCopiedLen;    /**< 68: how many bytes of it follow this header. */
    uint32_t ulHeadAt;   /**< 72: where in the message its VOS_MSG_HEAD begins: 0, or 16 behind a netlink header. The
                              limit counts the bytes behind VOS_MSG_HEAD. */
    uint32_t ulPeerPort; /**< 76: netlink: the sender's port id, 0 for the kernel; otherwise 0. */
    uint16_t usOwnLen;   /**< 80: length of acOwn; 0 when it is not known: thread channels, other sockets. */
    uint16_t usPeerLen;  /**< 82: length of acPeer; 0 for an unbound peer, or when it is not known. */
    char acOwn[110];     /**< 84: path of the process's own socket. The rest is zero. */
    char acPeer[110];    /**< 194: path of the other one: the sender's, or the receiver's. The rest is zero. The path
                              of an abstract address begins with a NUL. */
} VOS_MSG_TAP_HEAD;

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
