/* SPDX-License-Identifier: MIT */
/**
 * @file vosFile.h
 * Checksums, whole-file operations and the stores on flash.
 *
 * Readers and writers of whole files lock the file (flock: shared to read, exclusive to write) and wait for the lock as
 * long as it takes. A lock that fails is logged, and the work goes on without it. Nothing is retried, and nothing is
 * written aside and renamed: what a failed write leaves is what the file holds.
 */
#ifndef VOS_FILE_H
#define VOS_FILE_H

#include "vosTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** The word at the head of a file package, of each of its entries and of each OEM record. */
#define VOS_PACKAGE_MAGIC 0x53355335u

/** The table of vosFileCrc32(): CRC-32, reflected, polynomial 0xEDB88320. Filled at load; writable. */
extern uint32_t vosCrctable[256];

/** Path of the saved configuration, "/flash/zebcfg" at load. Read afresh by every call; may be set to another path. */
extern const char *szVosCfgFileName;
/** Path of the saved syslog, "/flash/syslog" at load. Read afresh by every call; may be set to another path. */
extern const char *szVosSyslogFileName;
/** Path of the application image, "/app/hostImage.bin" at load. Read afresh by every call; may be set to another path.
 * The application's version file is this path and ".ver". */
extern const char *szAppFileName;
/** Path of the boot loader's flash device, "/dev/mtdblock0" at load. Read afresh by every call; may be set to another.
 */
extern const char *szBootLoaderFileName;

/**
 * Continues a CRC-32 over more bytes. Start with 0xFFFFFFFF and invert the last result: that is the CRC-32 of zlib.
 *
 *     crc = ~vosFileCrc32(vosFileCrc32(0xFFFFFFFF, head, headLen), tail, tailLen);
 *
 * The entries are those of vosCrctable as they stand at the call. While they are the standard ones, this is as fast as
 * the processor can; once they were changed, it goes byte by byte.
 *
 * @param ulCrc  the value so far
 * @param pBuf   the bytes
 * @param ulLen  their number
 * @return the new value; ulCrc itself when ulLen is 0 or pBuf is null
 * @threads any
 */
uint32_t vosFileCrc32(uint32_t ulCrc, const uint8_t *pBuf, uint32_t ulLen);

/**
 * Computes the checksum of the data partitions: CRC-16/XMODEM in a 32-bit register that is never cut down to 16 bits.
 * The low half is the CRC, the upper half holds what has been shifted out of it.
 *
 * @param pBuf   the bytes
 * @param ulLen  their number
 * @return all 32 bits of the register; 0 when pBuf is null or ulLen is 0
 * @threads any
 */
uint32_t Cal_CRC(const uint8_t *pBuf, uint32_t ulLen);

/**
 * Tells whether a path exists.
 *
 * @return 1 if it does; 0 if not, if it cannot be reached, or if it is null
 * @threads any
 */
int32_t vosFileExist(const char *pPath);

/**
 * Removes a file or an empty directory. A path that does not exist is fine; any other failure is only logged.
 *
 * @param pPath  the path; null is logged and ignored
 * @return VOS_OK, whatever happened
 * @threads any
 */
int32_t vosFileDelete(const char *pPath);

/**
 * Removes a file, a link (not what it points at) or a directory with everything below it. The first failure ends the
 * work; what was removed stays removed. The whole system is synced after every single removal, so that large trees
 * take their time.
 *
 * @param pPath  the path
 * @return VOS_OK; VOS_ERROR when the path is null, does not exist (without a log line) or something could not be
 *         removed
 * @threads any
 */
int32_t vosDirDelete(const char *pPath);

/**
 * Reads a file from its start, with one read under a shared lock. The buffer is not terminated with a NUL.
 *
 * @param pPath     the file
 * @param pBuf      receives the bytes
 * @param ulBufLen  the most bytes to read
 * @return the number of bytes, 0 or more; VOS_ERR_PARAM when a pointer is null; VOS_ERR_NO_FILE when the file does not
 *         exist (logged at trace level only); VOS_ERROR when it cannot be opened or read
 * @threads any
 */
int32_t vosFileRead(const char *pPath, void *pBuf, uint32_t ulBufLen);

/**
 * Makes a buffer the whole content of a file, with one write under an exclusive lock, and flushes it to the device. A
 * file that does not exist is created.
 *
 * @param pPath     the file
 * @param pBuf      the new content
 * @param ulBufLen  its length in bytes; 0 leaves an empty file
 * @param ulMode    permissions of a new file, before the process's umask
 * @return VOS_OK, also when the device took only a part (which is logged); VOS_ERR_PARAM when a pointer is null;
 *         VOS_ERROR when the file cannot be opened, truncated or written, with errno of the failed call
 * @threads any
 */
int32_t vosFileWrite_m(const char *pPath, const void *pBuf, uint32_t ulBufLen, uint32_t ulMode);

/**
 * As vosFileWrite_m() with the mode 0666.
 *
 * @param pPath     the file
 * @param pBuf      the new content
 * @param ulBufLen  its length in bytes
 * @return as vosFileWrite_m()
 * @threads any
 */
int32_t vosFileWrite(const char *pPath, const void *pBuf, uint32_t ulBufLen);

/**
 * Tells the size of what a path names, links followed.
 *
 * @param pPath  the path
 * @param pSize  receives the size in bytes, cut to 32 bits; 0 on a failure
 * @return VOS_OK; VOS_ERROR when the path cannot be examined (without a log line) or pSize is null
 * @threads any
 */
int32_t vosFileSizeGet(const char *pPath, uint32_t *pSize);

/**
 * Tells a file's size by opening it.
 *
 * @param pPath  the file
 * @return the size in bytes, cut to a signed 32-bit value; VOS_ERROR when the file cannot be opened or has no end to go
 *         to
 * @threads any
 */
int32_t vosFileSize(const char *pPath);

/**
 * Copies a file. An existing destination is removed first. No lock is taken, and the copy is as long as reading and
 * writing go well: a failure there ends or shortens the copy without being reported.
 *
 * @param pSource       the file to copy
 * @param pDestination  where to; created with mode 0666 before the umask
 * @return VOS_OK; VOS_ERR_NO_FILE when the source does not exist (logged at trace level only); VOS_ERR_MEMORY when the
 *         buffer of 2 MiB cannot be allocated; VOS_ERROR when a file cannot be opened or a pointer is null
 * @threads any
 */
int32_t vosFileCopy(const char *pSource, const char *pDestination);

/**
 * Points a descriptor at the null device.
 *
 * @param iFd       the descriptor
 * @param pSavedFd  receives a descriptor for what iFd was, for vosFileHandleRestore()
 * @return VOS_OK; VOS_ERR_PARAM when pSavedFd is null; VOS_ERROR when a descriptor cannot be opened or duplicated.
 * Where the null device was opened but iFd could not be duplicated or replaced, the null device stays open.
 * @threads any
 */
int32_t vosFileHandleToNull(int32_t iFd, int32_t *pSavedFd);

/**
 * Points a descriptor back at what it was and closes the saved one.
 *
 * @param iFd       the descriptor
 * @param iSavedFd  what vosFileHandleToNull() has saved
 * @return VOS_OK; VOS_ERROR when the descriptor cannot be replaced, and then the saved one stays open
 * @threads any
 */
int32_t vosFileHandleRestore(int32_t iFd, int32_t iSavedFd);

/**
 * Loads the saved configuration.
 *
 * @param ppBuf  receives a block with the file's bytes and 128 spare bytes behind them, to be released with
 *               vosFileCfgFree(); null on a failure
 * @param pLen   receives the file's size in bytes; 0 on a failure. A file that shrinks while it is read is logged, and
 *               its block is filled up with zeros to the size announced.
 * @return VOS_OK; VOS_ERR_PARAM when a pointer is null; VOS_ERR_NO_FILE when there is no saved configuration (logged at
 *         trace level only); VOS_ERR_MEMORY; VOS_ERROR when the file cannot be examined, opened or read
 * @threads any
 */
int32_t vosFileCfgRead(char **ppBuf, uint32_t *pLen);

/**
 * Releases a block of vosFileCfgRead().
 *
 * @param pBuf  the block; null is allowed
 * @return VOS_OK
 * @threads any
 */
int32_t vosFileCfgFree(char *pBuf);

/**
 * Saves the configuration and flushes it to the device.
 *
 * @param pBuf      the bytes, of any meaning
 * @param ulBufLen  their number
 * @return VOS_OK, also when the device took only a part (which is logged); VOS_ERR_PARAM when pBuf is null; VOS_ERROR
 *         when the file cannot be opened or written
 * @threads any
 */
int32_t vosFileCfgWrite(const char *pBuf, uint32_t ulBufLen);

/**
 * Removes the saved configuration and "/flash/core-file", the settings of core dumps: the device is back at its
 * defaults.
 *
 * @return VOS_OK, whatever happened
 * @threads any
 */
int32_t vosFileCfgDelete(void);

/**
 * Tells whether there is a saved configuration.
 *
 * @return 1 if there is, else 0
 * @threads any
 */
int32_t vosFileCfgExist(void);

/**
 * Checks whether an image may be installed: its type, the compatibility words against those of the installed
 * application, and its CRC-32. A device without an application image accepts nothing.
 *
 * The header is 16 bytes: type, compatibility words A and B, CRC-32 of everything else, in network byte order. Types 2
 * (application) and 3 (file package) begin with it, others, 1 (boot loader) among them, end with it.
 *
 * @param ulType    the type the image must be of
 * @param pBuf      the image
 * @param ulBufLen  its length in bytes
 * @return VOS_OK; VOS_ERR_IMAGE_TYPE; VOS_ERR_IMAGE_COMPAT; VOS_ERR_IMAGE_CRC; VOS_ERROR when the installed application
 *         cannot be read, the image is shorter than a header or pBuf is null
 * @threads any
 */
int32_t vosFileImageCheck(uint32_t ulType, const uint8_t *pBuf, uint32_t ulBufLen);

/**
 * Checks an image that is in a file, as vosFileImageCheck().
 *
 * @param ulType     the type the image must be of
 * @param pFileName  the file
 * @return as vosFileImageCheck(); VOS_ERROR also when the file cannot be read whole, holds no more than a header, or
 *         there is no memory for it
 * @threads any
 */
int32_t vosFileImageCheckFile(uint32_t ulType, const char *pFileName);

/**
 * Installs an application image, or applies a file package. Nothing is touched before the whole image has been checked.
 *
 * The application in use is first kept as "/flash/hostImage.bin.last", if it has a version file, which moves to
 * "/flash/hostImage.bin.last.ver"; a failure of that is logged and stops nothing. Give the new application its version
 * with vosFileAppVerUpdate().
 *
 * A package is applied entry by entry: files and directories whose paths begin with "/app/preZEB.sh" or "/app/oem", and
 * OEM records. What has been applied before a failure stays.
 *
 * @param pBuf      the image
 * @param ulBufLen  its length in bytes
 * @return VOS_OK; VOS_ERR_PARAM when pBuf is null; the codes of vosFileImageCheck(); VOS_ERROR when the application
 *         cannot be opened or written whole, which leaves it truncated, or an entry cannot be applied;
 *         VOS_ERR_PACKAGE_MAGIC, VOS_ERR_PACKAGE_LENGTH, VOS_ERR_ENTRY_KIND for a faulty package
 * @threads one thread at a time
 */
int32_t vosFileAppWrite(const uint8_t *pBuf, uint32_t ulBufLen);

/**
 * Writes the version file of the application that has just been installed.
 *
 * @param pVersion  the version text; it is written with its NUL
 * @return VOS_OK; VOS_ERR_PARAM when the text is null or empty; VOS_ERROR when the application's path has more than 252
 *         characters or the file cannot be written
 * @threads any
 */
int32_t vosFileAppVerUpdate(const char *pVersion);

/**
 * Tells whether there is a backup of the application, and its version.
 *
 * @param pBackupExist  receives 1 if there is a backup, else 0
 * @param pVersion      receives the version text and its NUL, empty if there is none; room for 513 bytes, all of which
 *                      are written
 * @return VOS_OK; VOS_ERROR when a pointer is null
 * @threads any
 */
int32_t vosFileAppBackupVerGet(int32_t *pBackupExist, char *pVersion);

/**
 * Writes a boot loader image, its header included, to the boot loader's device. It is not flushed.
 *
 * @param pBuf      the image
 * @param ulBufLen  its length in bytes
 * @return VOS_OK; VOS_ERR_PARAM when pBuf is null; the codes of vosFileImageCheck(); VOS_ERROR when the device cannot
 * be opened or takes less than the whole image
 * @threads any
 */
int32_t vosFileBootWrite(const uint8_t *pBuf, uint32_t ulBufLen);

/**
 * Loads the saved syslog. The buffer is not terminated with a NUL.
 *
 * @param pBuf      receives the bytes
 * @param ulBufLen  the most bytes to read
 * @return the number of bytes, 0 or more; VOS_ERR_PARAM when pBuf is null; VOS_ERR_NO_FILE when there is no saved
 *         syslog (logged at trace level only); VOS_ERROR when the file cannot be opened or read
 * @threads any
 */
int32_t vosFileSyslogRead(void *pBuf, uint32_t ulBufLen);

/**
 * Saves the syslog. It is not flushed: a power cut may cost the log that was saved last.
 *
 * @param pBuf      the bytes
 * @param ulBufLen  their number
 * @return the number of bytes written, also when the device took only a part (which is logged); VOS_ERR_PARAM when pBuf
 *         is null; VOS_ERROR when the file cannot be opened or written
 * @threads any
 */
int32_t vosFileSyslogWrite(const void *pBuf, uint32_t ulBufLen);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
