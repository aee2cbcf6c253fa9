/* SPDX-License-Identifier: MIT */
/**
 * @file vosMsg.h
 * Message core: the channel through which processes reach each other by name.
 *
 * Every message is one datagram: the 32-byte header VOS_MSG_HEAD, then the payload. All words are in the machine's
 * own byte order, since a message never leaves the device.
 */
#ifndef VOS_MSG_H
#define VOS_MSG_H

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
    VOS_MSG_TYPE_MAC = 9               /**< Event: a MAC address. */
};

/** The header of every message: 32 bytes, eight words in the machine's byte order. */
typedef struct VOS_MSG_HEAD {
    uint32_t ulType;     /**< Message type. */
    uint32_t ulNoReturn; /**< Request: 1 when the requester wants no answer; any other value lets one be sent. */
    uint32_t ulRetCode;  /**< Answer: the responder's return code, a signed value carried in the word. */
    uint32_t ulValue1;   /**< First argument of the type. Application request: 254, answer: 255. */
    uint32_t ulValue2;   /**< Second argument. */
    uint32_t ulValue3;   /**< Third argument. */
    uint32_t ulValue4;   /**< Fourth argument; in answers about configuration objects the responder's errno. */
    uint32_t ulBufLen;   /**< Length of the payload in bytes. */
} VOS_MSG_HEAD;

/** The receive loop's buffer: every datagram of the main channel is received into it. 8-byte aligned. */
extern uint8_t g_vosMsgBufferRecv[VOS_MSG_BUFFER_LEN];
/** The buffer in which the receive loop builds answers about configuration objects. 8-byte aligned. */
extern uint8_t g_vosMsgBufferSend[VOS_MSG_BUFFER_LEN];

/**
 * Checks that the two message buffers are aligned to ZEB_LONGBYTES. They always are, unless the application has put
 * buffers of its own in their place. vosProcessInit() calls this first of all.
 *
 * @return VOS_OK. A misaligned buffer prints an assertion line and aborts the process.
 * @threads any
 */
int32_t vosMsgCheck(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
