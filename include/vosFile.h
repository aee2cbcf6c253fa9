/* SPDX-License-Identifier: MIT */
/**
 * @file vosFile.h
 * Checksums, whole-file operations and the stores on flash.
 *
 * Readers and writers of whole files lock the file (flock: shared to read, exclusive to write) and wait for the lock
 * without a limit. A lock that fails is logged, and the call goes on without it. A signal interrupts a waiting lock if
 * its handler was installed without SA_RESTART: install handlers with SA_RESTART. vosFileCopy(), the sizes and the
 * removals take no lock, nor does an image check for the header of the installed application.
 *
 * Nothing is retried. New content is written into the file itself, not into a second file that is then renamed: after a
 * failed write, a kill or a power cut the file can be empty or hold a part of the new content.
 *
 * A file is created with a mode from which the process's umask is taken away.
 *
 * A thread should not be cancelled inside these calls: open files and locks would stay. Switch cancellation off with
 * pthread_setcancelstate() around them.
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

/*
 * The paths of the stores. An application may set each of these pointers to another path. Every call reads the pointer
 * afresh and does not copy the text: the text must stay valid and unchanged as long as the pointer names it, and
 * neither may change while another thread is in a call. A null pointer makes the calls fail, with errno EFAULT.
 */

/** Path of the saved configuration, "/flash/zebcfg" at load. */
extern const char *szVosCfgFileName;
/** Path of the saved syslog, "/flash/syslog" at load. */
extern const char *szVosSyslogFileName;
/** Path of the application image, "/app/hostImage.bin" at load. The application's version file is this path and ".ver".
 */
extern const char *szAppFileName;
/** Path of the boot loader's flash device, "/dev/mtdblock0" at load. */
extern const char *szBootLoaderFileName;

/**
 * Directory of the journal, an absolute path. With the journal a save survives a power cut, a kill and a full flash.
 * Null at load, unless the library was built with VOS_JOURNAL_DIR. Null or empty: there is no journal. A directory that
 * does not exist is made with mode 0700 by the first save. It should lie on flash; its entries are as large as what is
 * saved.
 *
 * With the journal every save of a whole file (vosFileWrite(), vosFileCfgWrite(), vosFileSyslogWrite(),
 * vosFileAppVerUpdate(), the files of a package) and of a partition is first written to an entry of the journal and
 * flushed. Then the file is written as without the journal and flushed, the syslog as well. Then the entry is removed.
 * The next call that reads or writes a file with an entry completes it from the entry and logs one line. Such a reader
 * takes the exclusive lock. vosFileSizeGet(), vosFileSize() and vosFileCopy() also wait for a save at work.
 *
 * - When the entry cannot be written, for example on a full flash, or there is no space for the content beside it, the
 *   save is refused with VOS_ERROR and one line, and the file is untouched.
 * - A save that fails after that has the result that it has without the journal. The entry stays, and the next call
 *   completes the file with the new content, also where the result was VOS_ERROR.
 * - A removal is no save. A package removes a file before it saves it, and an installation the version of the
 *   application. So an interruption between the two leaves no file.
 * - A file that cannot be completed is not read: VOS_ERROR and one line, and the entry stays. A process that may not
 *   search the directory gets this for every file. vosInit() does not make a partition anew that has such an entry.
 * - An entry never replaces a later save, also of a program without the journal, with two exceptions. A file that is
 *   empty or holds the beginning of the entry's content is completed; bytes of 0 count as not written. A partition that
 *   is short, has a wrong checksum or holds what it held before the interrupted save is completed. Otherwise the
 *   entry is removed with one line.
 *
 * All programs of a device should have the same directory, and name a file by the same path: an entry belongs to the
 * text of the absolute path. A path has at most 1023 characters, the directory's path at most 255.
 * Applications and boot loaders are not saved by way of the journal, nor is what vosFileCopy() writes. Before an
 * installation vosFileAppWrite() and vosFileBootWrite() write a record of the image into the journal, by which
 * "vosctl image status" tells what an interruption has left. It stays until the next installation. A record that cannot
 * be written is logged, and the installation goes on. Files below
 * "/proc" and "/sys", and what is no regular file, are saved without it.
 */
extern const char *szVosJournalDir;

/**
 * Continues a CRC-32 over more bytes. Start with 0xFFFFFFFF and invert the last result: that is the CRC-32 of zlib.
 *
 *     crc = ~vosFileCrc32(vosFileCrc32(0xFFFFFFFF, head, headLen), tail, tailLen);
 *
 * The call uses the entries that vosCrctable has at that time. With the standard entries it is fast: several bytes per
 * step, or instructions of the processor. With changed entries it goes byte by byte.
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
 * Tells whether a path exists. Links are followed.
 *
 * @param pPath  the path
 * @return 1 if it exists; 0 if it does not, if it cannot be reached, or if it is null
 * @threads any
 */
int32_t vosFileExist(const char *pPath);

/**
 * Removes a file or an empty directory. It is no error if the path does not exist; any other failure is only logged.
 *
 * @param pPath  the path; null is logged and ignored
 * @return VOS_OK in every case
 * @threads any
 */
int32_t vosFileDelete(const char *pPath);

/**
 * Removes a file, a link (not its target) or a directory with everything below it. The first failure ends the call;
 * what was removed before stays removed. The whole system is synced after every single removal, so large trees take
 * long.
 *
 * @param pPath  the path. A link and a '/' behind it name the target: the content of a target directory is removed, and
 *               then the call fails.
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
 * @return the number of bytes, 0 or more; VOS_ERR_PARAM when a pointer is null; VOS_ERR_NO_FILE when the path cannot be
 *         reached: it does not exist, it is too long, or a part of it is no directory (logged at trace level only);
 *         VOS_ERROR when the file cannot be opened or read
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
 * @param ulMode    permissions of a new file, before the process's umask; an existing file keeps its own
 * @return VOS_OK, also when only a part could be written (which is logged); VOS_ERR_PARAM when a pointer is null;
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
 * Tells the size of a file. Links are followed.
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
 * @return the size in bytes, cut to a signed 32-bit value; VOS_ERROR when the file cannot be opened or its end cannot
 * be sought
 * @threads any
 */
int32_t vosFileSize(const char *pPath);

/**
 * Copies a file. An existing destination is removed first; if the destination then cannot be opened, it does not exist
 * any more. No lock is taken. Failures to read or write are not reported: the copy can be cut short or lack bytes, for
 * example on a full device, and a directory as the source gives an empty file. Compare the sizes, or check the copied
 * image.
 *
 * @param pSource       the file to copy
 * @param pDestination  where to; created with mode 0666 before the umask
 * @return VOS_OK; VOS_ERR_NO_FILE when the source cannot be reached (logged at trace level only); VOS_ERR_MEMORY when
 * the buffer of 2 MiB cannot be allocated; VOS_ERROR when a file cannot be opened or a pointer is null
 * @threads any
 */
int32_t vosFileCopy(const char *pSource, const char *pDestination);

/**
 * Points a descriptor at the null device.
 *
 * Programs that are started before vosFileHandleRestore() inherit the saved descriptor.
 *
 * @param iFd       the descriptor, which must be open
 * @param pSavedFd  receives a duplicate of what iFd was, for vosFileHandleRestore(); untouched on a failure
 * @return VOS_OK; VOS_ERR_PARAM when pSavedFd is null; VOS_ERROR when the null device cannot be opened or iFd cannot be
 *         duplicated or replaced, with errno. A closed iFd is EBADF and stays closed. When iFd cannot be duplicated or
 *         replaced, a descriptor of the null device stays open.
 * @threads any
 */
int32_t vosFileHandleToNull(int32_t iFd, int32_t *pSavedFd);

/**
 * Points a descriptor back at what it was and closes the saved one. The descriptor is then inherited by started
 * programs, even if it had FD_CLOEXEC before.
 *
 * @param iFd       the descriptor
 * @param iSavedFd  the descriptor that vosFileHandleToNull() has saved
 * @return VOS_OK; VOS_ERROR when the descriptor cannot be replaced, and then the saved one stays open
 * @threads any
 */
int32_t vosFileHandleRestore(int32_t iFd, int32_t iSavedFd);

/**
 * Loads the saved configuration.
 *
 * The size is asked before the lock is taken. If another process saves in between, the call still gives VOS_OK and the
 * old size: a size of 0 or the first bytes of a longer new content come without a log line; a shorter new content is
 * logged, and the block is filled up with zeros. Give the content an end mark or a checksum, and read again when it is
 * missing.
 *
 * @param ppBuf  receives a block with the file's bytes and 128 spare bytes behind them, to be released with
 *               vosFileCfgFree(); null on a failure, but untouched on VOS_ERR_PARAM
 * @param pLen   receives the size in bytes; 0 on a failure, but untouched on VOS_ERR_PARAM
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
 * @return VOS_OK, also when only a part could be written (which is logged); VOS_ERR_PARAM when pBuf is null; VOS_ERROR
 *         when the file cannot be opened or written
 * @threads any
 */
int32_t vosFileCfgWrite(const char *pBuf, uint32_t ulBufLen);

/**
 * Removes the saved configuration and "/flash/core-file", the settings of core dumps, so that the device has its
 * defaults again. A failure to remove the configuration is only logged.
 *
 * @return VOS_OK in every case
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
 * @return as vosFileImageCheck(); VOS_ERROR also when the file cannot be read whole with one read, has 16 bytes or
 *         fewer, has 2 GiB or more, or there is no memory for it
 * @threads any
 */
int32_t vosFileImageCheckFile(uint32_t ulType, const char *pFileName);

/**
 * Installs an application image, or applies a file package. Nothing is touched before the whole image has been checked.
 *
 * If the installed application has a version file, it is first copied to "/flash/hostImage.bin.last", and its version
 * file to "/flash/hostImage.bin.last.ver"; then the version file is deleted, also when the installation fails after
 * that. A failed backup does not stop the installation. It is logged, except when /flash is full: the copy is then cut
 * short without a line. Make sure first that /flash has enough space. Give the new application its version with
 * vosFileAppVerUpdate(): an application without a version file is not backed up.
 *
 * A package is applied entry by entry: files and directories whose paths begin with "/app/preZEB.sh" or "/app/oem", and
 * OEM records. Entries that were applied before a failure stay.
 *
 * @param pBuf      the image
 * @param ulBufLen  its length in bytes
 * @return VOS_OK; VOS_ERR_PARAM when pBuf is null; the codes of vosFileImageCheck(); VOS_ERROR when the application
 *         cannot be opened (it is then unchanged) or cannot be written whole (it is then cut short), or an entry cannot
 *         be applied; VOS_ERR_PACKAGE_MAGIC, VOS_ERR_PACKAGE_LENGTH, VOS_ERR_ENTRY_KIND for a faulty package
 * @threads one thread at a time
 */
int32_t vosFileAppWrite(const uint8_t *pBuf, uint32_t ulBufLen);

/**
 * Writes the version file of the application that has just been installed.
 *
 * @param pVersion  the version text; it is written with its NUL. vosFileAppBackupVerGet() reads the first 512 bytes.
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
 * Writes a boot loader image, its header included, to the boot loader's device. It is not flushed. A failed write
 * leaves the device partly written: write again before the next restart.
 *
 * @param pBuf      the image
 * @param ulBufLen  its length in bytes
 * @return VOS_OK; VOS_ERR_PARAM when pBuf is null; the codes of vosFileImageCheck(); VOS_ERROR when the device cannot
 * be opened or the image cannot be written whole
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
 * Saves the syslog. It is not flushed: a power cut soon afterwards can leave an empty or cut log.
 *
 * @param pBuf      the bytes
 * @param ulBufLen  their number
 * @return the number of bytes written, also when that is only a part (which is logged); VOS_ERR_PARAM when pBuf is
 * null; VOS_ERROR when the file cannot be opened or written
 * @threads any
 */
int32_t vosFileSyslogWrite(const void *pBuf, uint32_t ulBufLen);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
