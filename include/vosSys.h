/* SPDX-License-Identifier: MIT */
/**
 * @file vosSys.h
 * Operating system services: sockets, time, shell, synchronisation, namespaces, interval timers.
 *
 * Thin calls over the C library under portable names.
 *
 * These calls leave the reason of a failure in errno:
 * - the socket calls up to vosInetNtop(), vosSetNonblocking(), vosConnectWithTimeout(), vosRecvfromExt();
 * - vosGetTimeOfDay(), vosHostNameGet(), vosHostNameSet(), vosUpTime(), vosTimeSet(), vosJiffiesAfterUsecs();
 * - vosSystem(), vosSystem2(), vosSystemNoWait();
 * - the takes, gives and deletes of a binary semaphore;
 * - vosSwitchToNetVrf(), vosNetVrfRestore(), vosIfNameToKernelIndex(), vosIfKernelIndexToName(), vosIfKernelMacGet();
 * - vosTimerAdd(), vosTimerDel().
 *
 * After any other failure, and after VOS_ERR_PARAM, errno has no meaning: mutex semaphores, locks, wait objects and
 * counters do not set it.
 */
#ifndef VOS_SYS_H
#define VOS_SYS_H

#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>

#include "vosTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** Time-out of a take that blocks without limit. */
#define VOS_WAIT_FOREVER 0xFFFFFFFFu
/** Time-out of a take that tries once and does not block. Not for vosMsgSend(), where 0 waits without limit. */
#define VOS_NO_WAIT 0u

/** Mode of vosSystem() that leaves the terminal as it is. */
#define VOS_SHELL_PLAIN 0u
/** Mode of vosSystem() for a command that a person at the terminal talks to. */
#define VOS_SHELL_INTERACTIVE 1u
/** Mode of vosReboot() that only leaves the marker. */
#define VOS_REBOOT_MARK 0u
/** Mode of vosReboot() that reboots. */
#define VOS_REBOOT_NOW 1u
/** Initial state for vosSemMCreate(): the calling thread has taken the semaphore. */
#define VOS_SEM_TAKEN 0u
/** Initial state for vosSemMCreate(): the semaphore is free. */
#define VOS_SEM_FREE 1u
/** Mode of an interval timer that fires once and is then deleted. */
#define VOS_TIMER_ONE_SHOT 0u
/** Mode of an interval timer that fires again and again. */
#define VOS_TIMER_PERIODIC 1u

struct timespec; /* <time.h> hides it from strict C99 */

/** What the device's kernel appends to a datagram: 40 bytes, in this order. The library attaches no meaning to it. */
typedef struct VOS_RECV_EXT {
    uint32_t ulWord1;    /**< First word. */
    uint32_t ulWord2;    /**< Second word. */
    uint32_t ulWord3;    /**< Third word. */
    uint8_t aucData[28]; /**< Opaque bytes. */
} VOS_RECV_EXT;

/** A semaphore or lock; made by the create calls, released by the delete calls. */
typedef struct VOS_SEM VOS_SEM;
/** A wait object; made by vosWaitCreate(), released by vosWaitDelete(). */
typedef struct VOS_WAIT VOS_WAIT;

/** A counter; the caller's storage, set up by vosAtomicInit(). */
typedef struct VOS_ATOMIC {
    uint32_t ulValue; /**< The value. */
    VOS_SEM *pGuard;  /**< The mutex semaphore under which the value is counted up and down. */
} VOS_ATOMIC;

/**
 * What an interval timer calls.
 *
 * @param ulArg  the argument from the timer's record
 * @return ignored
 * @threads a thread that the C library creates for this call
 */
typedef int32_t (*VOS_TIMER_PROC)(uint64_t ulArg);

/** An interval timer; the caller's storage, which must outlive the timer and its last callback. */
typedef struct VOS_TIMER {
    VOS_TIMER_PROC pProc; /**< What is called. */
    uint64_t ulArg;       /**< Its argument. */
    uint32_t ulPeriodMs;  /**< Milliseconds to the first expiry and, of a periodic timer, between expiries. */
    uint32_t ulMode;      /**< VOS_TIMER_ONE_SHOT, VOS_TIMER_PERIODIC; other: fires once and is not deleted. */
    timer_t hTimer;       /**< The timer, set by vosTimerAdd(); null when there is none. Start with null. */
} VOS_TIMER;

/* ---- Sockets ------------------------------------------------------------------------------------------------------
 *
 * The calls of the C library under portable names. Arguments, results and errno are those of the call that is named
 * first. iFd is the socket, pAddr an address of any family, ulAddrLen its size in bytes. Lengths are 32-bit words. A
 * length behind a pointer holds the size of the buffer before the call and the size of the data after it; it is written
 * back whether or not the call succeeded, and a null pointer to it is passed on as null. Descriptors are inherited by
 * programs that the process starts, unless SOCK_CLOEXEC is in the type. All may be called by any thread. None logs,
 * unless its comment says so.
 */

/** socket(). @return the descriptor, owned by the caller, or -1 */
int32_t vosSocket(int32_t iDomain, int32_t iType, int32_t iProtocol);
/** bind(). @return 0 or -1 */
int32_t vosBind(int32_t iFd, const struct sockaddr *pAddr, uint32_t ulAddrLen);
/** listen(). @return 0 or -1 */
int32_t vosListen(int32_t iFd, int32_t iBacklog);
/** connect(). @return 0 or -1 */
int32_t vosConnect(int32_t iFd, const struct sockaddr *pAddr, uint32_t ulAddrLen);
/** accept(). @return the connection's descriptor, owned by the caller, or -1 */
int32_t vosAccept(int32_t iFd, struct sockaddr *pAddr, uint32_t *pAddrLen);
/**
 * select(). An fd_set has room for the descriptors 0 to 1023. With a larger iCount every set must be larger, too: the
 * call reads and writes iCount bits of it, at most as many as the process may have descriptors.
 *
 * @param iCount    the highest descriptor in the sets, plus 1
 * @param pRead     descriptors to read from; those that are ready remain; null: none
 * @param pWrite    as pRead, for writing
 * @param pExcept   as pRead, for exceptional conditions
 * @param pTimeout  how long to wait; holds the time that is left afterwards; null waits without limit
 * @return the number of ready descriptors, 0 when the time is over, or -1
 */
int32_t vosSelect(int32_t iCount, fd_set *pRead, fd_set *pWrite, fd_set *pExcept, struct timeval *pTimeout);
/** send(). A negative length fails with EINVAL. @return the number of bytes or -1 */
int32_t vosSend(int32_t iFd, const void *pBuf, int32_t iLen, int32_t iFlags);
/** sendto(). @return the number of bytes or -1 */
int32_t vosSendto(int32_t iFd, const void *pBuf, uint32_t ulLen, int32_t iFlags, const struct sockaddr *pAddr,
                  uint32_t ulAddrLen);
/** sendmsg(). @return the number of bytes or -1 */
int32_t vosSendmsg(int32_t iFd, const struct msghdr *pMsg, int32_t iFlags);
/** recv(). @return the number of bytes, 0 at the end of a stream, or -1 */
int32_t vosRecv(int32_t iFd, void *pBuf, uint32_t ulLen, int32_t iFlags);
/** recvfrom(). @return the number of bytes, 0 at the end of a stream, or -1 */
int32_t vosRecvfrom(int32_t iFd, void *pBuf, uint32_t ulLen, int32_t iFlags, struct sockaddr *pAddr,
                    uint32_t *pAddrLen);
/** recvmsg(). @return the number of bytes, 0 at the end of a stream, or -1 */
int32_t vosRecvmsg(int32_t iFd, struct msghdr *pMsg, int32_t iFlags);
/** setsockopt(). @return 0 or -1 */
int32_t vosSetsockopt(int32_t iFd, int32_t iLevel, int32_t iOption, const void *pValue, uint32_t ulLen);
/** getsockopt(). @return 0 or -1 */
int32_t vosGetsockopt(int32_t iFd, int32_t iLevel, int32_t iOption, void *pValue, uint32_t *pLen);
/** shutdown(). @return 0 or -1 */
int32_t vosShutdown(int32_t iFd, int32_t iHow);
/** getsockname(). @return 0 or -1 */
int32_t vosGetsockname(int32_t iFd, struct sockaddr *pAddr, uint32_t *pAddrLen);
/** getpeername(). @return 0 or -1 */
int32_t vosGetpeername(int32_t iFd, struct sockaddr *pAddr, uint32_t *pAddrLen);
/** inet_pton(). @return 1, 0 for invalid text, -1, or VOS_ERR_PARAM when a pointer is null (one error line) */
int32_t vosInetPton(int32_t iFamily, const char *pText, void *pAddr);
/** inet_ntop(). @return the buffer, or null; also null when a pointer is null (one error line) */
const char *vosInetNtop(int32_t iFamily, const void *pAddr, char *pBuf, uint32_t ulLen);
/** inet_ntoa(). @param ulAddr IPv4 address in network order. @return a static buffer; the next call overwrites it */
char *vosInetNtoA(uint32_t ulAddr);

/**
 * Switches a descriptor's non-blocking mode with fcntl().
 *
 * @param iOn  1: on; any other value: off
 * @return 0, or -1 when the flags cannot be read or written
 * @threads any
 */
int32_t vosSetNonblocking(int32_t iFd, int32_t iOn);

/**
 * Connects, and gives up when the time is over.
 *
 * The descriptor, which may have any number, is made non-blocking. Its old flags are restored only when the call waited
 * and learnt the outcome, good or bad. It stays non-blocking after a connection or a failure without waiting, after a
 * time-out and after a failed wait. After a time-out the connection attempt continues: close the descriptor.
 *
 * @param pTimeout  how long to wait; holds the time that is left afterwards; null waits without limit
 * @return 0 connected; -1 otherwise, with the reason in errno: ETIMEDOUT when the time was over, EINTR when a signal
 *         handler ended the wait, ECONNREFUSED or another error of the connection, or that of the call that failed.
 *         Only a failed query of the outcome prints a line
 * @threads any
 */
int32_t vosConnectWithTimeout(int32_t iFd, const struct sockaddr *pAddr, uint32_t ulAddrLen, struct timeval *pTimeout);

/**
 * Receives a datagram together with the extension data that the device's kernel appends to it: recvmsg() with the flag
 * bits 0x0F000000 added and 40 bytes of buffer after the payload's. A kernel that does not know these bits appends
 * nothing, and the extension's words are 1, 1 and 1 and its bytes 0.
 *
 * @param pBuf      receives the payload; the extension follows where the payload has filled it
 * @param ulLen     its size in bytes
 * @param iFlags    as for recvmsg()
 * @param pAddr     receives the first 16 bytes of the sender's address (a whole IPv4 address); null: not wanted
 * @param pAddrLen  neither read nor written
 * @param pExt      receives the extension, when anything was received
 * @return recvmsg()'s result: every byte received, those of the extension included, or -1; VOS_ERR_PARAM when pExt is
 *         null (one error line)
 * @threads any
 */
int32_t vosRecvfromExt(int32_t iFd, void *pBuf, uint32_t ulLen, int32_t iFlags, struct sockaddr *pAddr,
                       uint32_t *pAddrLen, VOS_RECV_EXT *pExt);

/**
 * Reads a dotted IPv4 address that may lack its last parts: "10" is 10.0.0.0, "192.168.1" is 192.168.1.0.
 *
 * @param pText  at most 31 characters
 * @return the address in network order, as inet_addr() gives it; all ones for invalid text, text that is too long, and
 *         null (one error line)
 * @threads any
 */
uint32_t vosInetAddr(const char *pText);

/**
 * Looks up a host's IPv4 address with getaddrinfo().
 *
 * @param pHost  name or dotted address
 * @return the first address in host order; 0 when there is none; 0.0.0.0 cannot be distinguished from that
 * @threads any
 */
uint32_t vosGetAddrIpv4(const char *pHost);

/* ---- Time ------------------------------------------------------------------------------------------------------- */

/**
 * Sleeps. A sleep that ends early, because a signal handler ran, leaves one error line.
 *
 * @param ulSeconds  how long
 * @threads any
 */
void vosSleep(uint32_t ulSeconds);

/**
 * Sleeps. A failure, such as a signal handler that ran, leaves one error line.
 *
 * @param ulMicroseconds  how long
 * @threads any
 */
void vosUSleep(uint32_t ulMicroseconds);

/**
 * The time of day.
 *
 * @return gettimeofday()'s result; VOS_ERR_PARAM for null (one error line)
 * @threads any
 */
int32_t vosGetTimeOfDay(struct timeval *pTime);

/**
 * The host's name.
 *
 * @param pName  receives the name and a NUL. When they do not fit, it holds the beginning of the name without a NUL
 * @param iLen   size of the buffer in bytes; 65 are always enough
 * @return 0; -1 when the name does not fit (ENAMETOOLONG) or the size is negative (EINVAL); VOS_ERR_PARAM when the
 *         buffer is null (one error line)
 * @threads any
 */
int32_t vosHostNameGet(char *pName, int32_t iLen);

/**
 * Names the host.
 *
 * @param pName  the name; need not end in a NUL
 * @param iLen   its length, at most 64
 * @return 0 or -1; VOS_ERR_PARAM when the name is null (one error line)
 * @threads any
 */
int32_t vosHostNameSet(const char *pName, int32_t iLen);

/**
 * The time since the start, as "/proc/uptime" reports it.
 *
 * @param pSeconds     receives the whole seconds; 0 when the file's text cannot be read
 * @param pHundredths  receives the hundredths of a second, 0 to 99; 0 when the file's text cannot be read
 * @return VOS_OK; VOS_ERROR when the file cannot be opened, nothing is written then; VOS_ERR_PARAM when a pointer is
 *         null (one error line)
 * @threads any
 */
int32_t vosUpTime(uint64_t *pSeconds, uint64_t *pHundredths);

/** The time since the start in whole seconds. @return 0 when it cannot be read. @threads any */
uint64_t vosUpSeconds(void);
/** The time since the start in ticks of a hundredth of a second. @return 0 when it cannot be read. @threads any */
int64_t tickGet(void);
/** Ticks per second. @return 100. @threads any */
int32_t sysClkRateGet(void);
/** The hardware clock. @param pReserved not used. @return VOS_ERROR: there is none. @threads any */
int32_t vosClockHwGet(void *pReserved);
/** time(). @param pTime receives the time as well; null: not wanted. @return seconds since 1970. @threads any */
time_t vosTimeGet(time_t *pTime);

/**
 * Sets the system's clock to a whole second. Needs the privilege to do so.
 *
 * @return 0 or -1; VOS_ERR_PARAM for null (one error line)
 * @threads any
 */
int32_t vosTimeSet(const time_t *pTime);

/**
 * Sets the system's time zone: writes the rule and a newline to "/etc/TZ", and a TZif file with the rule in its footer
 * to "/etc/localtime". Processes see it when they next load these files; this process's TZ and the zone that the
 * C library has loaded stay as they are. The rule itself is not checked. A symbolic link is followed: where
 * "/etc/localtime" is a link to a file of the zone database, as on many machines, that file is overwritten. On the
 * device it is a plain file.
 *
 * @param pTz  a POSIX rule such as "CST-8", at most 128 characters
 * @return VOS_OK; VOS_ERROR when it is longer (nothing is written); the failure of vosFileWrite(), by which the second
 *         file, or both, keep what they held; VOS_ERR_PARAM for null. Each failure leaves an error line
 * @threads any; two calls at once, of any processes, may leave one file of each
 */
int32_t vosTimeZoneSet(const char *pTz);

/**
 * The instant on the monotonic clock after so many microseconds. It does not move with the time of day; vosTimeAterEq()
 * says whether it has come.
 *
 * @param pDeadline       receives the instant. Its nanoseconds may be exactly 10^9
 * @param ulMicroseconds  how far ahead
 * @return VOS_OK; VOS_ERROR when the clock cannot be read; VOS_ERR_PARAM for null (one error line)
 * @threads any
 */
int32_t vosJiffiesAfterUsecs(struct timespec *pDeadline, uint32_t ulMicroseconds);

/**
 * Whether the monotonic clock has reached an instant.
 *
 * @return 1 when it has, else 0; 0 also when the clock cannot be read
 * @threads any
 */
int32_t vosTimeAterEq(int64_t llSeconds, int64_t llNanoseconds);

/* ---- System information and shell commands ----------------------------------------------------------------------- */

/**
 * Runs a command line with "/bin/sh -c" and waits for its end.
 *
 * While the command runs the process ignores SIGINT and SIGQUIT, so that the keyboard's signals reach the command only,
 * and SIGCHLD has its default action, so that there is an exit status. The command itself starts with the default
 * action of all three and with the caller's signal mask. Afterwards the three dispositions are as before. If SIGCHLD is
 * ignored then, or has SA_NOCLDWAIT, all children that ended meanwhile are reaped, so that none stays as a zombie.
 *
 * The settings of the terminal that is standard input are restored afterwards, and input that has been typed ahead is
 * discarded. A process in the background of its terminal does this, too, and is not stopped by SIGTTOU: what is typed
 * for the foreground at that moment is lost.
 *
 * Several threads may run commands at once. The first command changes the dispositions, the last one restores them. A
 * disposition that the application sets while a command runs is overwritten at the end. A program that another thread
 * starts while a command runs inherits the dispositions of that time. A wait for any child in another thread, such as
 * wait(), may take the command's status.
 *
 * @param pCommand  the command line
 * @param ulMode    VOS_SHELL_INTERACTIVE: the terminal makes signals of its keys and echoes; other: the terminal is
 *                  left as it is
 * @return VOS_OK when the command was started and waited for, however it ended; VOS_ERROR when fork() or wait4() failed
 *         (errno tells why: EINTR when a signal handler without SA_RESTART ended the wait, ECHILD when somebody else
 *         took the status; the command may still run); VOS_ERR_PARAM when the command is null, nothing has been touched
 *         then. No log line
 * @threads any. A thread that is cancelled while it waits restores everything, and the command runs on
 */
int32_t vosSystem(const char *pCommand, uint32_t ulMode);

/**
 * As vosSystem(), and also returns how the command ended.
 *
 * @param pStatus  receives the wait status as waitpid() encodes it (exit status 3 gives 768; a shell that could not
 *                 find the command exits with 127); untouched on failure; null: not wanted
 * @return as vosSystem()
 * @threads as vosSystem()
 */
int32_t vosSystem2(const char *pCommand, uint32_t ulMode, int32_t *pStatus);

/**
 * As vosSystem() in plain mode, but does not wait: dispositions and terminal are restored as soon as the command has
 * been started. A process that ignores SIGCHLD has nothing more to do. In any other the child becomes a zombie when it
 * ends, and the caller reaps it.
 *
 * @param pCommand  the command line
 * @return VOS_OK when it was started; VOS_ERROR when fork() failed (errno tells why); VOS_ERR_PARAM when the command is
 *         null
 * @threads any
 */
int32_t vosSystemNoWait(const char *pCommand);

/**
 * An interactive shell on the caller's terminal; returns when it exits.
 *
 * @threads as vosSystem()
 */
void vosShell(void);

/**
 * Leaves the marker file "/flash/reboot", by which the next start knows that software asked for the reboot, and reboots
 * the device with the command "reboot". The file is closed before the command starts. A marker that cannot be created
 * does not stop the reboot. The call returns when the command has ended, which may be before the device goes down.
 *
 * @param ulMode  VOS_REBOOT_NOW: reboot; other: only leave the marker
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
 * Keeps the keyboard from interrupting the process: SIGQUIT, SIGINT, SIGCHLD and SIGPIPE are ignored, the terminal that
 * is standard input makes no signals of its keys and takes no XON and XOFF, and what has been typed is discarded, also
 * by a process in the terminal's background. From then on the kernel reaps the process's children by itself.
 *
 * @return VOS_OK always; standard input need not be a terminal
 * @threads any; dispositions and terminal belong to the whole process
 */
int32_t vosTerminalCtrlClear(void);

/* ---- Synchronisation ------------------------------------------------------------------------------------------------
 *
 * Semaphores, locks, wait objects and counters for the threads of one process. Handles are heap records that the caller
 * owns from create to delete. Deleting one that others still use is an error of the caller's. The C library detects it
 * for a taken mutex semaphore and for a wait object with a waiter, and the delete then fails; it detects nothing for a
 * binary semaphore. Nothing here logs.
 *
 * Time-outs are microseconds, VOS_WAIT_FOREVER or VOS_NO_WAIT. The longest one is 2147483647, which is 2147 seconds: a
 * larger value (but VOS_WAIT_FOREVER) is taken as a negative number, and a take that would have to wait fails at once,
 * with VOS_ERROR or VOS_ERR_TIMEOUT. For longer waits take again. Time-outs become an instant of the time of day, so a
 * clock that is set meanwhile makes them shorter or longer. An instant whose nanoseconds come to exactly 10^9 is
 * refused by the C library: the take then fails with VOS_ERROR. The time-outs of the message calls have other units and
 * special values: see vosMsg.h.
 */

/**
 * Makes a binary semaphore. It counts: gives beyond 1 accumulate.
 *
 * @param ulInitial  how many takes succeed before the first give
 * @return the handle, or null
 * @threads any
 */
VOS_SEM *vosSemBCreate(uint32_t ulInitial);

/**
 * Makes a mutex semaphore. It belongs to the thread that has taken it, which may take it again and must give it as
 * often.
 *
 * @param ulInitial  VOS_SEM_TAKEN (0): the calling thread has taken it; other: free
 * @return the handle, or null
 * @threads any
 */
VOS_SEM *vosSemMCreate(uint32_t ulInitial);

/**
 * Releases a semaphore.
 *
 * @return VOS_OK; VOS_ERROR when the C library refuses, as it does for a taken mutex (the handle stays valid);
 *         VOS_ERR_PARAM for null or what is no semaphore
 * @threads one, when no other uses the handle any more
 */
int32_t vosSemDelete(VOS_SEM *pSem);

/**
 * Takes a semaphore.
 *
 * @param ulTimeoutUs  microseconds, VOS_WAIT_FOREVER or VOS_NO_WAIT
 * @return VOS_OK; VOS_ERR_TIMEOUT when a binary semaphore was not given in time; VOS_ERROR when VOS_NO_WAIT found it
 *         taken, when a mutex semaphore was not given in time (unless errno held ETIMEDOUT before the call: then
 *         VOS_ERR_TIMEOUT), when a signal handler interrupted the wait for a binary semaphore (there is no retry), or
 *         when the C library refuses; VOS_ERR_PARAM for null or what is no semaphore
 * @threads any
 */
int32_t vosSemTake(VOS_SEM *pSem, uint32_t ulTimeoutUs);

/**
 * Gives a semaphore.
 *
 * @return VOS_OK; VOS_ERROR when the C library refuses, as when another thread has taken the mutex; VOS_ERR_PARAM
 *         for null or what is no semaphore
 * @threads any; a binary semaphore's may be another than the one that took it
 */
int32_t vosSemGive(VOS_SEM *pSem);

/** Makes a lock: a free mutex semaphore. @return the handle, or null. @threads any */
VOS_SEM *vosLockCreate(void);
/** Takes a lock, as vosSemTake(). @threads any */
int32_t vosLockTake(VOS_SEM *pLock, uint32_t ulTimeoutUs);
/** Gives a lock, as vosSemGive(). @threads the one that took it */
int32_t vosLockGive(VOS_SEM *pLock);

/**
 * Takes a lock, for code written for targets where that locks interrupts. Here none are touched.
 *
 * @param pFlags  receives 0
 * @return as vosSemTake(); VOS_ERR_PARAM also when pFlags is null
 * @threads any
 */
int32_t vosLockIrqTake(VOS_SEM *pLock, uint64_t *pFlags, uint32_t ulTimeoutUs);
/** Gives a lock, as vosSemGive(). @param ulFlags not used. @threads the one that took it */
int32_t vosLockIrqGive(VOS_SEM *pLock, uint64_t ulFlags);
/** Releases a lock, as vosSemDelete(). @threads one, when no other uses the handle any more */
int32_t vosLockDelete(VOS_SEM *pLock);

/**
 * Makes a wait object: an event that is remembered, and counted, until it is taken.
 *
 * @return the handle, or null
 * @threads any
 */
VOS_WAIT *vosWaitCreate(void);

/**
 * Releases a wait object. No thread may wait for it.
 *
 * @return VOS_OK; VOS_ERROR when the C library refuses, as it does while a thread waits: the record is kept. If it was
 *         the condition variable that could not be destroyed, the mutex has been destroyed, and the object must not be
 *         used any more; VOS_ERR_PARAM for null
 * @threads one, when no other uses the handle any more
 */
int32_t vosWaitDelete(VOS_WAIT *pWait);

/**
 * Takes one event, and waits for it once if there is none.
 *
 * @param ulTimeoutUs  microseconds, VOS_WAIT_FOREVER or VOS_NO_WAIT
 * @return VOS_OK; VOS_ERR_TIMEOUT when none came in time, with VOS_NO_WAIT too; VOS_ERROR when the C library
 *         refuses; VOS_ERR_PARAM for null. There is no second wait: VOS_OK can, rarely, be the answer to a wake-up
 *         without a give, or to a give that another thread has taken first, and then nothing has been taken
 * @threads any; one that is cancelled while it waits leaves the object usable and takes nothing
 */
int32_t vosWaitTake(VOS_WAIT *pWait, uint32_t ulTimeoutUs);

/**
 * Adds one event and wakes at most one waiter. Without a waiter the event is kept.
 *
 * @return VOS_OK; VOS_ERROR when the C library refuses; VOS_ERR_PARAM for null
 * @threads any
 */
int32_t vosWaitGive(VOS_WAIT *pWait);

/**
 * Sets up a counter and makes its guard.
 *
 * What is guarded: counting up and down, against each other. What is not: vosAtomicSet() and vosAtomicRead() touch the
 * value without the guard. They see and leave whole values, but a set that meets a count may be lost, and no call
 * orders any other memory access than those of the counting calls among themselves.
 *
 * No call destroys the guard: a counter that goes away has its pGuard deleted with vosSemDelete(), and one that is set
 * up twice keeps only the second guard.
 *
 * @return VOS_OK; VOS_ERROR when there is no guard to be had; VOS_ERR_PARAM for null
 * @threads one, before others use the counter
 */
int32_t vosAtomicInit(VOS_ATOMIC *pAtomic, uint32_t ulValue);
/** Sets the value, without the guard. Null: nothing happens. @threads any */
void vosAtomicSet(VOS_ATOMIC *pAtomic, uint32_t ulValue);
/** Reads the value, without the guard. @return the value; 0 for null. @threads any */
uint32_t vosAtomicRead(const VOS_ATOMIC *pAtomic);
/** Adds 1, wrapping, under the guard, which is waited for without limit. Null: nothing happens. @threads any */
void vosAtomicInc(VOS_ATOMIC *pAtomic);
/** Subtracts 1, wrapping, as vosAtomicInc(). @threads any */
void vosAtomicDec(VOS_ATOMIC *pAtomic);
/** As vosAtomicInc(). @return 1 when the new value is 0, else 0, also for null. @threads any */
int32_t vosAtomicIncAndTest(VOS_ATOMIC *pAtomic);
/** As vosAtomicDec(). @return 1 when the new value is 0, else 0, also for null. @threads any */
int32_t vosAtomicDecAndTest(VOS_ATOMIC *pAtomic);

/* ---- Network namespaces and interfaces -------------------------------------------------------------------------- */

/**
 * Moves the calling thread into the network namespace of a VRF, which is "/var/run/netns/ns" with its number. Sockets
 * that are made meanwhile stay in that namespace after vosNetVrfRestore().
 *
 * @param ulVrf     1 and up
 * @param pSavedFd  receives the descriptor of the namespace from where the thread came, for vosNetVrfRestore(); -1 on
 *                  failure
 * @return VOS_OK; VOS_ERROR when the thread could not be moved (one printed line, whatever the debug flags hold);
 *         VOS_ERR_PARAM when the number is 0, the default namespace, or the pointer is null (one error line)
 * @threads any; each moves itself only
 */
int32_t vosSwitchToNetVrf(uint32_t ulVrf, int32_t *pSavedFd);

/**
 * Moves the calling thread back and closes the descriptor.
 *
 * @param iSavedFd  from vosSwitchToNetVrf(); negative: there is nothing to restore
 * @return VOS_OK; VOS_ERROR when the thread could not be moved, and then the descriptor stays open for another try, or
 *         the descriptor could not be closed (one printed line, whatever the debug flags hold)
 * @threads the one that switched
 */
int32_t vosNetVrfRestore(int32_t iSavedFd);

/**
 * The kernel's index of an interface in the calling thread's namespace.
 *
 * @return VOS_OK; VOS_ERROR when there is no such interface, the index is untouched then; VOS_ERR_PARAM for null
 * @threads any
 */
int32_t vosIfNameToKernelIndex(const char *pName, uint32_t *pIndex);

/**
 * The name of the interface with that index in the calling thread's namespace.
 *
 * @param pName  buffer of at least 16 bytes
 * @return the buffer, or null; also null for a null buffer (one error line)
 * @threads any
 */
char *vosIfKernelIndexToName(uint32_t ulIndex, char *pName);

/**
 * An interface's MAC address.
 *
 * @param pName  its name; only the first 15 characters count
 * @param pMac   receives 6 bytes
 * @return VOS_OK; VOS_ERROR; VOS_ERR_PARAM for null
 * @threads any
 */
int32_t vosIfKernelMacGet(const char *pName, uint8_t *pMac);

/**
 * Whether this start is a warm restart: whether "/tmp/warmreboot" exists, which whoever restarts the applications
 * creates and which no reboot survives.
 *
 * @param pStartType  receives 1 for a warm restart, 0 for a cold start
 * @return VOS_OK; VOS_ERR_PARAM for null
 * @threads any
 */
int32_t vosStartTypeGet(uint32_t *pStartType);

/* ---- Interval timers ------------------------------------------------------------------------------------------------
 *
 * Which timer to take: vosTimerAdd() works in any process and calls its function on a thread of its own, at the same
 * time as the rest of the program, so shared data needs a lock. vosTimerRegister() of vosMsg.h needs a receive loop and
 * calls its function there, between two messages, so no lock is needed; a handler that takes long makes it late. A
 * process with a receive loop normally takes vosTimerRegister().
 *
 * A child of fork() has none of these timers. Before it uses a record of its parent it sets hTimer to null.
 */

/**
 * Creates and arms the timer that a record describes, on the monotonic clock. Every expiry calls the record's function
 * on a thread that the C library creates for it; with a slow function several calls may run at once. A period of 0 arms
 * nothing.
 *
 * A one-shot timer is deleted after its function has returned. A record may be used again once vosTimerDel() has been
 * called for it or its one-shot timer is gone. The function itself, and any other thread while it runs, restarts a
 * one-shot timer with vosTimerDel() and vosTimerAdd(). A call whose timer expired before the restart may still come
 * after it. If such a late call begins only after the new timer has expired too, it deletes the new timer, and the new
 * timer's call may be lost. A record whose timer still exists must not be added: that timer could never be deleted.
 *
 * @param pTimer  the record; must stay where it is until the timer is gone and its last call has returned
 * @return VOS_OK; -1 when the timer could not be created, and there is none then, or not be armed, in which case it
 *         exists and is still to be deleted (one printed line, whatever the debug flags hold); VOS_ERR_PARAM when the
 *         record or its function is null (one error line)
 * @threads any
 */
int32_t vosTimerAdd(VOS_TIMER *pTimer);

/**
 * Deletes a timer. A call that runs meanwhile is not waited for.
 *
 * @param pTimer  the record; its hTimer must be null if vosTimerAdd() has never been called for it
 * @return 0; -1 with EINVAL when there is no timer: it was never added, its creation failed, or it is deleted already,
 *         as a one-shot timer that has fired; VOS_ERR_PARAM for null (one error line)
 * @threads any
 */
int32_t vosTimerDel(VOS_TIMER *pTimer);

/** Whether the caller runs in interrupt context. @return 0: no code does here. @threads any */
int32_t vosInInterrupt(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
