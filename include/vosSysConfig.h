/* SPDX-License-Identifier: MIT */
/**
 * @file vosSysConfig.h
 * Device data, item by item: the factory partition is set at manufacture, the system partition in the field.
 *
 * Every access goes to flash: reading an item validates its whole partition; changing one reads, changes and rewrites
 * the partition. Between processes the partitions are locked with flock. One vosSysConfigDataSet() takes two locks, one
 * to read and one to rewrite: when two processes change items of one partition at the same moment, one of the changes
 * can be lost. A lock that fails is logged, and the access continues without it. A signal interrupts a waiting lock if
 * its handler was installed without SA_RESTART: install handlers with SA_RESTART.
 *
 * A thread should not be cancelled inside these calls: open files and locks would stay. Switch cancellation off with
 * pthread_setcancelstate() around them.
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

/* The paths of the partitions. As for the paths in vosFile.h: each call reads the pointer and does not copy the text.
 */

/** Path of the factory partition, "/app/factory" at load. */
extern const char *szFactoryData;
/** Path of the system partition, "/flash/sysdata" at load. */
extern const char *szSysData;

/** A copy of the factory partition's body in memory: zeros at load, then the body that was read last. A Set changes the
 * copy before it writes, and a failed write leaves it changed. 64-byte aligned; not synchronised between threads. */
extern uint8_t flashConfig[1272];
/** The same for the system partition's body. 8-byte aligned; not synchronised between threads. */
extern uint8_t flashData[856];

/**
 * Reads both partitions. One that cannot be read, or is missing, short or invalid, is replaced by a fresh one whose
 * body is all 0xFF, and a line on standard output says so. A passing I/O error is enough: it erases, for example, the
 * MAC addresses. vosInit() calls this at start-up.
 *
 * @return VOS_OK in every case
 * @threads one thread at a time: the caches are shared
 */
int32_t vosSysConfigDataInit(void);

/**
 * Reads an item from flash.
 *
 * BSP_STACK without its validity word reads as zeros with the validity word; the partition is not changed by that.
 *
 * @param iItem   one of BSP_*, but not BSP_PRIVMODE_ENCRYPT
 * @param pValue  receives exactly the item's size. It must not lie in flashConfig or flashData.
 * @param ulLen   room in pValue; at least the item's size. For BSP_SYS_MAC, BSP_DEFAULT_MAC, BSP_SERIAL_NUMBER,
 *                BSP_ADMIN_PASSWORD, BSP_PRIVMODE_PWD and BSP_OEM_INFO it is taken as signed: 0x80000000 and more is
 *                too short
 * @return VOS_OK; VOS_ERROR when pValue is null, there is no such item, the room is too small or the partition cannot
 * be read or is invalid. The log line says which.
 * @threads one thread at a time: the caches are shared
 */
int32_t vosSysConfigDataGet(int32_t iItem, void *pValue, uint32_t ulLen);

/**
 * Changes an item on flash.
 *
 * For BSP_STACK pass the 24 bytes that vosSysConfigDataGet() gave, with the first 20 changed. Another last word than
 * VOS_STACK_VALID_MAGIC is stored, and makes the settings read as zeros.
 *
 * @param iItem   one of BSP_*
 * @param pValue  the value; exactly the item's size is taken. It must not lie in flashConfig or flashData: these are
 *                read from flash before the value is taken, so that the old value would be stored.
 * @param ulLen   length of pValue; at least the item's size, compared as in vosSysConfigDataGet(). For BSP_STACK it is
 *                not checked: 24 bytes are read, whatever it says.
 * @return VOS_OK, also when the rewriting failed or wrote only a part, which is only logged; VOS_ERROR when
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
 * Reads the unit's serial number as a text. It is "123456789" when the item cannot be read, is empty or erased, or
 * holds a character that is not printable ASCII.
 *
 * @param pBuf     receives the text and its NUL; a serial number of all 32 characters gets its NUL only when there is
 *                 room for it. Null is logged.
 * @param iBufLen  room in pBuf in bytes. With less than 32 the default is given; with less than 10 it is cut, and still
 *                 ends with a NUL.
 * @return VOS_OK
 * @threads one thread at a time: the caches are shared
 */
int32_t vosProdSerialNoRead(char *pBuf, int32_t iBufLen);

/**
 * Tells the version of the boot ROM: "1.0".
 *
 * @param pBuf     receives the text and its NUL, 4 bytes; null is logged
 * @param iBufLen  room in pBuf in bytes; with less than 4 the text is cut, and still ends with a NUL
 * @return VOS_OK
 * @threads any
 */
int32_t vosBootromVersionGet(char *pBuf, int32_t iBufLen);

/**
 * Tells the version of the hardware.
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
