/* SPDX-License-Identifier: MIT */
/**
 * @file vosTypes.h
 * Result codes shared by every part of the library.
 *
 * A function that reports success returns a signed 32-bit status: VOS_OK, or one of the negative codes below.
 * Functions that return a count return it instead and say so.
 */
#ifndef VOS_TYPES_H
#define VOS_TYPES_H

#include <stdint.h>

/** Result codes. Where one number has two meanings, an alias names the second. */
enum {
    VOS_OK = 0,                  /**< Done. */
    VOS_ERROR = -1,              /**< A system call failed, something was not found, or a check failed. */
    VOS_ERR_PARAM = -2,          /**< Bad argument: null pointer, empty text, value out of range, bad handle. */
    VOS_ERR_NO_HANDLER = -3,     /**< The receiver has no handler for the request. */
    VOS_ERR_CHECKSUM = -3,       /**< A partition's checksum does not match its body. */
    VOS_ERR_ENTRY_KIND = -3,     /**< A file package holds an entry of unknown kind. */
    VOS_ERR_TIMEOUT = -4,        /**< The time ran out before a message, semaphore or event came. */
    VOS_ERR_MAGIC = -4,          /**< A partition's magic is wrong, or its file is empty. */
    VOS_ERR_MEMORY = -5,         /**< Memory could not be allocated. */
    VOS_ERR_EXIST = -6,          /**< Already there: the channel is open, the descriptor is registered. */
    VOS_ERR_NOT_INIT = -7,       /**< The message channel has not been opened. */
    VOS_ERR_TOO_LONG = -8,       /**< The message payload does not fit into a message. */
    VOS_ERR_FORK = -9,           /**< The new process could not be created. */
    VOS_ERR_NO_FILE = -10,       /**< The file does not exist, or access() fails for another reason. */
    VOS_ERR_IMAGE_TYPE = -12,    /**< The image is of another type than asked for. */
    VOS_ERR_IMAGE_COMPAT = -13,  /**< The image does not fit the installed application. */
    VOS_ERR_IMAGE_CRC = -14,     /**< The image's CRC-32 does not match its payload. */
    VOS_ERR_PACKAGE_MAGIC = -15, /**< A file package or one of its entries has the wrong magic. */
    VOS_ERR_PACKAGE_LENGTH = -16 /**< A file package's length word does not match the package. */
};

#endif
