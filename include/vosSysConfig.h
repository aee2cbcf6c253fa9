/* SPDX-License-Identifier: MIT */
/**
 * @file vosSysConfig.h
 * Device data: what is set at manufacture (the factory partition) and in the field (the system partition), item by
 * item.
 *
 * Every access goes to flash: reading an item validates its whole partition, writing one reads, changes and rewrites
 * it. Between processes the partitions are locked, but the reading and the rewriting of one vosSysConfigDataSet() are
 * two locked periods: of two processes that change items of one partition at the same moment, one may undo the other's
 * change.
 */
#ifndef VOS_SYS_CONFIG_H
#define VOS_SYS_CONFIG_H

#include "vosTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** The word that marks a partition as one. */
#define VOS_PARTITION_MAGIC 0x26869816u
/** The last four bytes of BSP_STACK when its other twenty hold settings. */
#define VOS_STACK_VALID_MAGIC 0x5AA55AA5u

/** Items. Words are 32 bits in the machine's byte order. 13 to 15 are reserved. */
enum {
    BSP_SYS_MAC = 0,            /**< System MAC address, 6 bytes. */
    BSP_DEFAULT_MAC = 1,        /**< Default MAC address, 6 bytes. */
    BSP_OEM_NUMBER = 2,         /**< OEM number, a word. */
    BSP_SERIAL_NUMBER = 3,      /**< Serial number, 32 bytes of text; ends with a NUL when shorter. */
    BSP_FLASH_DATA_VERSION = 4, /**< Version of the data's layout, a word. */
    BSP_IP_ADDRESS = 5,         /**< Management IPv4 address, a word as the caller passes it. */
    BSP_IP_MASK = 6,            /**< Management network mask, a word. */
    BSP_IP_GATE = 7,            /**< Management default gateway, a word. */
    BSP_BANDRATE = 8,           /**< Console baud rate, a word. */
    BSP_ADMIN_PASSWORD = 9,     /**< Administrator password, 36 bytes. */
    BSP_PRIVMODE_PWD = 10,      /**< Privileged-mode password, 36 bytes. */
    BSP_PRIVMODE_ENCRYPT = 11,  /**< Flag of the privileged-mode password, 1 byte; cannot be read. */
    BSP_BOOTTIME = 12,          /**< Boot time setting, a word. */
    BSP_USER = 16,              /**< User account table, 476 bytes. */
    BSP_SOFTFLAG = 17,          /**< Flags, a word; kept as a 64-bit word whose upper half is zero. */
    BSP_OEM_INFO = 18,          /**< OEM information block, 1024 bytes. */
    BSP_MACLEARNING_MODE = 19,  /**< MAC learning mode, a word. */
    BSP_MACHASH_MODE = 20,      /**< MAC hash mode, a word. */
    BSP_STACK = 21,             /**< Stacking settings, 20 bytes and the word VOS_STACK_VALID_MAGIC. */
    BSP_ZTP = 22                /**< Zero-touch provisioning setting, a word. */
};

/** Path of the factory partition, "/app/factory" at load. Read afresh by every call; may be set to another path. */
extern const char *szFactoryData;
/** Path of the system partition, "/flash/sysdata" at load. Read afresh by every call; may be set to another path. */
extern const char *szSysData;

/** The factory partition's body as it was read last; zeros before. 64-byte aligned. Not synchronised. */
extern uint8_t flashConfig[1272];
/** The system partition's body as it was read last; zeros before. 8-byte aligned. Not synchronised. */
extern uint8_t flashData[856];

/**
 * Reads both partitions and makes a fresh one, all bytes 0xFF, of each that is missing, unreadable, short or invalid,
 * which is said on standard output. Called once at start-up, by vosInit().
 *
 * @return VOS_OK, whatever happened
 * @threads one thread at a time: the caches are shared
 */
int32_t vosSysConfigDataInit(void);

/**
 * Reads an item from flash.
 *
 * BSP_STACK without its validity word reads as zeros with the validity word; the partition is not changed by that.
 *
 * @param iItem   one of BSP_*, but not BSP_PRIVMODE_ENCRYPT
 * @param pValue  receives exactly the item's size
 * @param ulLen   room in pValue; at least the item's size. For BSP_SYS_MAC, BSP_DEFAULT_MAC, BSP_SERIAL_NUMBER,
 *                BSP_ADMIN_PASSWORD, BSP_PRIVMODE_PWD and BSP_OEM_INFO it is taken as signed: 0x80000000 and more is
 *                too short
 * @return VOS_OK; VOS_ERROR when pValue is null, there is no such item, the room is too small or the partition cannot
 * be read or is invalid. The log tells which.
 * @threads one thread at a time: the caches are shared
 */
int32_t vosSysConfigDataGet(int32_t iItem, void *pValue, uint32_t ulLen);

/**
 * Changes an item on flash.
 *
 * For BSP_STACK pass back what vosSysConfigDataGet() gave, with the first 20 bytes changed: another last word than
 * VOS_STACK_VALID_MAGIC is stored, and makes the settings read as zeros.
 *
 * @param iItem   one of BSP_*
 * @param pValue  the value; exactly the item's size is taken
 * @param ulLen   length of pValue; at least the item's size, compared as in vosSysConfigDataGet()
 * @return VOS_OK, also when the device refused the rewriting or took only a part, which is only logged; VOS_ERROR when
 *         pValue is null, there is no such item, the value is too short or the partition cannot be read, is invalid or
 *         cannot be opened for writing
 * @threads one thread at a time: the caches are shared
 */
int32_t vosSysConfigDataSet(int32_t iItem, const void *pValue, uint32_t ulLen);

/**
 * Erases the user account table: every byte of BSP_USER becomes 0xFF.
 *
 * @return as vosSysConfigDataSet()
 * @threads one thread at a time: the caches are shared
 */
int32_t vosBspUserClearAll(void);

/**
 * Gives the unit's serial number as a text, or "123456789" when it cannot be read, is empty or erased, or holds a
 * character that is not printable ASCII.
 *
 * @param pBuf     receives the text and its NUL; a serial number of all 32 characters gets its NUL only when there is
 *                 room for it. Null is logged.
 * @param iBufLen  room in pBuf. Below 32 the serial number cannot be read, and below 10 as much of the default is given
 *                 as fits, with its NUL.
 * @return VOS_OK
 * @threads one thread at a time: the caches are shared
 */
int32_t vosProdSerialNoRead(char *pBuf, int32_t iBufLen);

/**
 * Gives the version of the boot ROM: "1.0".
 *
 * @param pBuf     receives the text and its NUL, 4 bytes; null is logged
 * @param iBufLen  room in pBuf; below 4 as much is given as fits, with its NUL
 * @return VOS_OK
 * @threads any
 */
int32_t vosBootromVersionGet(char *pBuf, int32_t iBufLen);

/**
 * Gives the version of the hardware.
 *
 * @return 1
 * @threads any
 */
int32_t vosHardwareVersionGet(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
