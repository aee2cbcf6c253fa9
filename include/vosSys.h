/* SPDX-License-Identifier: MIT */
/**
 * @file vosSys.h
 * Operating system services: sockets, time, shell, synchronisation, namespaces, interval timers.
 *
 * Thin calls over the system library under portable names. Where nothing else is said, a failure leaves the reason
 * in errno.
 */
#ifndef VOS_SYS_H
#define VOS_SYS_H

#include "vosTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- System information and shell commands ----------------------------------------------------------------------- */

/**
 * Runs a command line with "/bin/sh -c" and waits for its end.
 *
 * While the command runs the process ignores SIGINT and SIGQUIT, so that the keyboard's interrupt reaches the command
 * only, and SIGCHLD has its default action; the command itself starts with the default action of all three. The three
 * dispositions and the settings of the terminal that is standard input are put back afterwards, and what has been
 * typed ahead is discarded.
 *
 * @param pCommand  the command line
 * @param ulMode    1: interactive, the terminal signals the keyboard's interrupt and echoes; other: the terminal is
 *                  left as it is
 * @return VOS_OK when the command was started and waited for, however it ended; VOS_ERROR when fork() or wait4()
 *         failed (errno tells why; a signal handler may have interrupted the wait); VOS_ERR_PARAM when the command is
 *         null, nothing has been touched then. No log line
 * @threads one at a time: dispositions and terminal belong to the whole process, two threads at once can put each
 *          other's back in the wrong order
 */
int32_t vosSystem(const char *pCommand, uint32_t ulMode);

/**
 * As vosSystem(), and tells how the command ended.
 *
 * @param pStatus  receives the wait status as waitpid() encodes it (exit status 3 gives 768; a shell that could not
 *                 find the command exits with 127); untouched on failure; null: not wanted
 * @return as vosSystem()
 * @threads as vosSystem()
 */
int32_t vosSystem2(const char *pCommand, uint32_t ulMode, int32_t *pStatus);

/**
 * As vosSystem() in plain mode, but does not wait: dispositions and terminal are put back as soon as the command has
 * been started. The child is the caller's to reap, unless the process ignores SIGCHLD.
 *
 * @param pCommand  the command line
 * @return VOS_OK when it was started; VOS_ERROR when fork() failed; VOS_ERR_PARAM when the command is null
 * @threads as vosSystem()
 */
int32_t vosSystemNoWait(const char *pCommand);

/**
 * An interactive shell on the caller's terminal; returns when it exits.
 *
 * @threads as vosSystem()
 */
void vosShell(void);

/**
 * Leaves the marker file "/flash/reboot", which tells the next start that the reboot was asked for by software, and
 * reboots the device with the command "reboot". A marker that cannot be created does not stop the reboot.
 *
 * @param ulMode  1: reboot; other: only leave the marker
 * @threads as vosSystem()
 */
void vosReboot(uint32_t ulMode);

/**
 * The kernel's build time: what follows the third blank of its version text, such as "Mar 3 10:00:00 UTC 2020".
 *
 * @param ulReserved  not used
 * @param pBuf        receives the text; at least 65 bytes. Empty after a failure
 * @param ulBufLen    not used
 * @return VOS_OK; VOS_ERROR when uname() fails (one error line) or the version has fewer than three blanks (none);
 *         VOS_ERR_PARAM when the buffer is null (one error line)
 * @threads any
 */
int32_t vosBuildTimeGet(uint32_t ulReserved, char *pBuf, uint32_t ulBufLen);

/**
 * All memory of the machine.
 *
 * @return megabytes (2^20 bytes), rounded down; 0 after a failure (one error line)
 * @threads any
 */
uint32_t vosMemoryTotalGet(void);

/**
 * The memory that nothing uses, caches counted as used.
 *
 * @return megabytes (2^20 bytes), rounded down; 0 after a failure (one error line)
 * @threads any
 */
uint32_t vosMemoryFreeGet(void);

/**
 * Measures for one second how idle the processors are.
 *
 * @return percent, rounded down; 0 when no tick was counted in that second; 100 when "/proc/stat" cannot be opened or
 *         read (one error line)
 * @threads any; blocks the caller for one second
 */
uint32_t vosCpuIdleGet(void);

/**
 * Sets the calling thread's errno.
 *
 * @return VOS_OK always
 * @threads any
 */
int32_t errnoSet(int32_t iErrno);

/**
 * The calling thread's errno.
 *
 * @threads any
 */
int32_t errnoGet(void);

/**
 * The text of an errno.
 *
 * @param iErrno  error number; an unknown one gives a text that names it
 * @param pBuf    receives the text, cut where it does not fit, always terminated
 * @param iLen    size of the buffer in bytes; with 0 or less nothing is written
 * @return pBuf
 * @threads any
 */
char *vosErrnoToStr(int32_t iErrno, char *pBuf, int32_t iLen);

/**
 * Shuts the keyboard out of the process: SIGQUIT, SIGINT, SIGCHLD and SIGPIPE are ignored, the terminal that is
 * standard input makes no signals of its keys and takes no XON and XOFF, and what has been typed is discarded. From
 * then on the kernel reaps the process's children by itself.
 *
 * @return VOS_OK always; standard input need not be a terminal
 * @threads any; dispositions and terminal belong to the whole process
 */
int32_t vosTerminalCtrlClear(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
