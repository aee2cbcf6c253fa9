/* SPDX-License-Identifier: MIT */
/**
 * @file vosProcess.h
 * Processes and start-up: the kernel's settings and the device data, the process's name, its signal dispositions, its
 * termination procedure, queries about other processes; starting, stopping and scheduling other processes.
 *
 * An application process starts with these calls, in this order:
 * @code
 * vosInit("demo");                        // kernel settings, device data
 * vosProcessInit("demo");                 // the name of the log lines, signal dispositions
 * vosProcessRegTerminateProc(cleanUp);    // if it has to clean up when it is asked to end
 * vosMsgInit("demo", 1, &reserved);       // the message channel
 * @endcode
 * vosProcessRegTerminateProc() follows vosProcessInit(), because both set the disposition of SIGHUP and the last call
 * wins.
 */
#ifndef VOS_PROCESS_H
#define VOS_PROCESS_H

#include "vosTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/**
 * A termination procedure.
 *
 * @param iReserved  always 0, never the signal's number
 * @threads the thread that took the signal, in signal-handler context, or the thread that called exit()
 */
typedef void (*VOS_TERMINATE_PROC)(int32_t iReserved);

/** The process's name, at most 32 characters and a NUL; empty until it is known. Filled without a lock. */
extern char szVosProcName[33];
/** The registered termination procedure, or null. */
extern VOS_TERMINATE_PROC g_ProcTerminate;
/** 1 once the registered procedure has been started, else 0. */
extern uint32_t g_bProcTermProcRunned;

/**
 * Brings the kernel into the state that the device's software relies on, with vosLinuxOOMInit(),
 * vosLinuxCoreDumpInit() and vosLinuxNetInit(), and loads or re-creates the device data with vosSysConfigDataInit().
 * No step is left out because an earlier one has failed. May be called again, with the same effect.
 *
 * Starts seven shells and waits for each of them.
 *
 * @param pProcName  the name of the caller, for vosLinuxCoreDumpInit(); see there for what must not be in it
 * @return VOS_OK always
 * @threads one, before others use the library; signal dispositions are changed while a shell runs, see vosSystem()
 */
int32_t vosInit(const char *pProcName);

/**
 * Sets the kernel's memory overcommit to heuristic: 0 into /proc/sys/vm/overcommit_memory.
 *
 * As in the two functions below, a command line that cannot be run is printed on standard output; one that runs and
 * may not write the kernel's file counts as done.
 *
 * @return VOS_OK always
 * @threads as vosInit()
 */
int32_t vosLinuxOOMInit(void);

/**
 * Switches core files on: the core-file limit of the process (inherited by its children),
 * /proc/sys/kernel/core_uses_pid and /proc/sys/fs/suid_dumpable to 1, and a /proc/sys/kernel/core_pattern of directory,
 * "/core-", the name and
 * "-%e-%p-%t". The pattern is the whole system's and names the last caller.
 *
 * Without a valid record "/flash/core-file" the directory is "/flash" and the limit is off. The record's first 44 bytes
 * count, in the machine's byte order:
 *
 *   offset  size  content
 *        0     4  0x5AA5A55A
 *        4     4  limit in MiB, 0 for none; multiplied in 32 bits, so 4096 gives a limit of 0 bytes
 *        8    36  directory, padded with NULs; begins with a slash, the first 32 characters are used
 *
 * @param pProcName  the name in the core files' names. It is put as it is between the double quotes of a shell command
 *                   line, and so is the record's directory: neither may hold a double quote, a dollar sign, a backquote
 *                   or a backslash, which the shell would act on, nor anything of unknown origin; a percent sign is
 *                   taken by the kernel. At most 169 characters fit whatever the directory; a name too long for the
 *                   256-byte command line is cut, with a log line. Null is logged and taken as an empty name
 * @return VOS_OK always; limits that cannot be read or set are printed on standard output
 * @threads as vosInit()
 */
int32_t vosLinuxCoreDumpInit(const char *pProcName);

/**
 * Sets the ceilings of socket buffers, on which the message channels depend: 14 MiB into
 * /proc/sys/net/core/wmem_max and rmem_max, and 4096 datagrams into /proc/sys/net/unix/max_dgram_qlen.
 *
 * @return VOS_OK always
 * @threads as vosInit()
 */
int32_t vosLinuxNetInit(void);

/**
 * Names the process and gives it the signal dispositions of vosProcessSignalDef(). May be called again to rename.
 *
 * First of all the alignment of the message buffers is checked with vosMsgCheck(), which aborts when it is wrong.
 *
 * @param pProcName  the name, at most 32 characters; copied. An empty name is stored as "not known": the name is
 *                   then taken from the command line when it is next needed
 * @return VOS_OK; VOS_ERR_PARAM when the name is null or longer than 32 characters (nothing is changed)
 * @threads one, before others use the library
 */
int32_t vosProcessInit(const char *pProcName);

/**
 * The name that heads this process's log lines. If none has been set, it becomes the first argument of the
 * process's command line, as it was started, cut at 32 characters.
 *
 * @return szVosProcName, never null; an empty text while the command line cannot be read
 * @threads any; the first call fills the name without a lock
 */
char *vosProcessGetName(void);

/**
 * Reads the beginning of another process's command line.
 *
 * @param iPid   process id
 * @param pName  buffer of at least 33 bytes that the caller has filled with zeros: up to 32 bytes are written and
 *               no NUL. A process without a command line (a kernel thread) leaves it as it was
 * @return VOS_OK; VOS_ERROR when there is no such process (no log line)
 * @threads any
 */
int32_t vosProcessGetNameByPid(int32_t iPid, char *pName);

/**
 * The process id of the caller.
 *
 * @return getpid()
 * @threads any
 */
int32_t vosProcessGetId(void);

/**
 * Ignores SIGQUIT, SIGINT, SIGCHLD, SIGPIPE and SIGHUP. The process then survives the console's interrupt and quit
 * keys, a write to a closed socket and a hang-up, and the kernel reaps its ended children, so that their exit
 * status cannot be waited for.
 *
 * @threads any; dispositions belong to the whole process
 */
void vosProcessSignalDef(void);

/**
 * Registers the procedure to run once when the process is asked to end (SIGTERM or SIGHUP) or ends normally (exit()
 * or return from main), whichever comes first. It does not run on _exit(), abort() or SIGKILL. The library does not
 * end the process: a procedure that returns lets the interrupted code go on, and later signals of these two kinds
 * do nothing. Also sets SIGPIPE to be ignored.
 *
 * Registering again replaces the procedure and arms it anew.
 *
 * @param pProc  the procedure; null switches the mechanism off, SIGTERM and SIGHUP then stay caught without effect
 * @return VOS_OK always
 * @threads one; the procedure's slot is not locked
 */
int32_t vosProcessRegTerminateProc(VOS_TERMINATE_PROC pProc);

/**
 * Runs the registered termination procedure unless it has run already. Registered with atexit() by
 * vosProcessRegTerminateProc().
 *
 * @threads any; not locked
 */
void vosExitHandle(void);

/**
 * Tells whether a process exists.
 *
 * @param iPid  process id; 0 means the caller
 * @return VOS_OK when it exists; VOS_ERROR when it does not or the id is invalid
 * @threads any
 */
int32_t vosProcessCheck(int32_t iPid);

/**
 * getopt() under a portable name; its state (optarg, optind, opterr, optopt) is the system library's.
 *
 * @param iArgc     argument count
 * @param ppArgv    argument vector
 * @param pOptions  option characters as for getopt()
 * @return what getopt() returns: an option character, '?', ':', or -1 at the end
 * @threads one
 */
int32_t vosGetopt(int32_t iArgc, char *const *ppArgv, const char *pOptions);

/**
 * Starts a program as a new process under the real-time round-robin policy (SCHED_RR).
 *
 * The calling thread stands still until the program runs or the child has ended; other threads go on. The child
 * inherits descriptors that are not close-on-exec, and ignored signals.
 *
 * The priority is set once the program already runs, so it starts under the creator's policy. The caller needs the
 * right to make processes real-time (CAP_SYS_NICE or RLIMIT_RTPRIO).
 *
 * A program that does not exist or cannot be executed is reported by the child, in a log line that carries the
 * child's process id. The child then ends with status 1 the way exit() ends, and because it shares the creator's
 * memory until then, it flushes the creator's standard output and runs the creator's exit hooks (a registered
 * termination procedure, atexit() functions, destructors of static objects) in the creator's memory; they do not run
 * again when the creator ends. The result in the creator does not tell: it is what setting the policy on the ended
 * child gives, which is the child's id while the child waits to be reaped, and VOS_ERROR when SIGCHLD is ignored (see
 * vosProcessSignalDef()) and the child is gone already.
 *
 * On every failure after the arguments were split their two memory blocks stay allocated.
 *
 * @param pPath       the program's file; without a slash it is taken from the current directory, the search path is
 *                    not consulted. What stands behind its last slash becomes the program's first argument
 * @param iPriority   1 to 99, 99 being the most urgent
 * @param ulReserved  not used
 * @param pArgs       further arguments, separated by exactly one blank each: two blanks in a row stand around an empty
 *                    argument, a blank at the end is followed by an empty one, and an empty text is one empty
 *                    argument. Null for none. Copied. With an argument string a program name that contains a blank
 *                    aborts the caller with the system library's assertion report
 * @return the new process's id, greater than 0; VOS_ERR_PARAM for a null path or a priority out of range;
 *         VOS_ERR_MEMORY; VOS_ERR_FORK when no process could be created; VOS_ERROR when the policy could not be set:
 *         the process then runs under the creator's policy
 * @threads any
 */
int32_t vosProcessCreate(const char *pPath, int32_t iPriority, uint32_t ulReserved, const char *pArgs);

/**
 * Starts a program as a new process under SCHED_RR, with its standard input, output and error replaced and its name
 * as the only argument. The child is a full copy of the creator.
 *
 * When the program cannot be executed the call returns a second time, with 0, in the child, and the caller's code
 * goes on in two processes. The caller has to recognise this and end the child:
 * @code
 * int32_t pid = vosProcessCreateWithNewFd("/app/bin/demo", 50, 0, in, out, err);
 * if (pid == 0) _exit(127);
 * @endcode
 *
 * @param pPath       the program's file, as for vosProcessCreate(); its basename() becomes its first argument
 * @param iPriority   1 to 99
 * @param ulReserved  not used
 * @param iStdinFd    becomes the child's standard input. The three are put in place in this order and stay open as
 *                    they are, in the child too unless they are close-on-exec; one that is not open leaves the
 *                    standard descriptor as it was
 * @param iStdoutFd   becomes the child's standard output
 * @param iStderrFd   becomes the child's standard error
 * @return as vosProcessCreate(), without VOS_ERR_MEMORY; 0 in the child when its program could not be executed
 * @threads any
 */
int32_t vosProcessCreateWithNewFd(const char *pPath, int32_t iPriority, uint32_t ulReserved, int32_t iStdinFd,
                                  int32_t iStdoutFd, int32_t iStderrFd);

/**
 * Sends SIGTERM to a process and, if it is a child of the caller, waits until it has ended, without a time-out. A
 * child that catches SIGTERM and goes on keeps its caller waiting; see vosProcessRegTerminateProc().
 *
 * @param iPid  process id, passed to kill() as it is: 0 and negative numbers reach process groups
 * @return VOS_OK; VOS_ERROR when the signal could not be sent
 * @threads any
 */
int32_t vosProcessDestroy(int32_t iPid);

/**
 * Puts a process under SCHED_RR with a priority.
 *
 * @param iPid        process id; 0 means the calling thread
 * @param iPriority   1 to 99; the kernel refuses others
 * @param ulReserved  not used
 * @return VOS_OK; VOS_ERROR when the kernel refuses
 * @threads any
 */
int32_t vosProcessSched(int32_t iPid, int32_t iPriority, uint32_t ulReserved);

/**
 * Describes how a process is scheduled.
 *
 * @param iPid       process id; 0 means the calling thread
 * @param pPriority  receives the real-time priority under SCHED_FIFO and SCHED_RR, else the nice value
 * @param pDesc      buffer of at least 9 bytes; receives "FIFO RT", "RR RT", "NORMAL" (SCHED_OTHER) or "UNKKNOWN" (any
 *                   other policy, with this spelling)
 * @return VOS_OK; VOS_ERROR when there is no such process (nothing is written) or its priority cannot be read (the
 *         text is written), which a nice value of -1 looks like; VOS_ERR_PARAM for a null pointer
 * @threads any
 */
int32_t vosProcessDescGet(int32_t iPid, int32_t *pPriority, char *pDesc);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
