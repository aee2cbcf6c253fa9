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
 * wins. Log lines before vosProcessInit() begin with the first word of the process's command line, such as "./demo",
 * in place of its name.
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
 * It may run inside a signal handler, which can interrupt any instruction of any thread. So it may only call functions
 * that are async-signal-safe (see signal-safety(7)), such as write(), unlink(), kill() and _exit(): not vosPrintf(),
 * vosDebugPrintf() or another call that logs, not malloc() or exit(), and nothing that takes a lock. It may write a
 * byte into a pipe that the main loop reads, and leave the work to the main loop. errno is kept for the interrupted
 * code.
 *
 * After vosProcessCreate() of a program that cannot be executed it runs in the child process; see there.
 *
 * @param iReserved  always 0, never the signal's number
 * @threads the thread that took the signal, in signal-handler context, or the thread that called exit()
 */
typedef void (*VOS_TERMINATE_PROC)(int32_t iReserved);

/** The process's name, at most 32 characters and a NUL; empty until it is known. Filled without a lock. */
extern char szVosProcName[33];
/** The registered termination procedure, or null. */
extern VOS_TERMINATE_PROC g_ProcTerminate;
/** 1 after the registered procedure was started, else 0. */
extern uint32_t g_bProcTermProcRunned;

/**
 * Writes the kernel settings that the device's software needs, with vosLinuxOOMInit(), vosLinuxCoreDumpInit() and
 * vosLinuxNetInit(), and loads or re-creates the device data with vosSysConfigDataInit(). Each step is done even if an
 * earlier one has failed. May be called again, with the same effect.
 *
 * The kernel settings are those of the whole machine. On a development machine call this as root in a sandbox only.
 *
 * Starts seven shells with vosSystem() and waits for each of them. When standard input is a terminal, vosSystem() puts
 * the terminal's settings back after each shell and discards what was typed meanwhile; a process in the background of
 * the terminal is not stopped by that.
 *
 * @param pProcName  the name of the caller, for vosLinuxCoreDumpInit(); see there for what it must not contain
 * @return VOS_OK always
 * @threads one, before others use the library; signal dispositions are changed while a shell runs, see vosSystem()
 */
int32_t vosInit(const char *pProcName);

/**
 * Sets the kernel's memory overcommit to heuristic: 0 into /proc/sys/vm/overcommit_memory.
 *
 * A command line that cannot be run is printed on standard output. One that runs and has no right to write the
 * kernel's file counts as done.
 *
 * @return VOS_OK always
 * @threads as vosInit()
 */
int32_t vosLinuxOOMInit(void);

/**
 * Switches core files on: the core-file limit of the process (inherited by its children),
 * /proc/sys/kernel/core_uses_pid and /proc/sys/fs/suid_dumpable to 1, and a /proc/sys/kernel/core_pattern of directory,
 * "/core-", the name and "-%e-%p-%t". There is one pattern for the whole system; it has the name of the last caller.
 * Command lines that fail are treated as by vosLinuxOOMInit().
 *
 * Without a valid record "/flash/core-file" the directory is "/flash" and the limit is off. The record's first 44 bytes
 * are used, in the machine's byte order:
 *
 *   offset  size  content
 *        0     4  0x5AA5A55A
 *        4     4  limit in MiB, 0 for none; multiplied in 32 bits, so 4096 gives a limit of 0 bytes
 *        8    36  directory, padded with NULs; begins with a slash, the first 32 characters are used
 *
 * @param pProcName  the name in the core files' names. The name and the record's directory are put as they are between
 *                   the double quotes of a shell command line: neither may contain a double quote, a dollar sign, a
 *                   backquote or a backslash, which the shell would interpret, nor any text from outside. The name may
 *                   not contain a slash: the kernel would look for a directory that does not exist and write no core
 *                   file. A percent sign is interpreted by the kernel. The kernel keeps the first 127 characters of the
 *                   pattern and drops the rest without an error: with the directory "/flash" a name of up to 106
 *                   characters is kept whole, with a directory of 32 characters one of up to 80. A name too long for
 *                   the 256-byte command line (more than 169 characters with the longest directory) is cut, with a
 *                   log line. Null is logged and used as an empty name
 * @return VOS_OK always; limits that cannot be read or set are printed on standard output
 * @threads as vosInit()
 */
int32_t vosLinuxCoreDumpInit(const char *pProcName);

/**
 * Sets the limits of socket buffers that the message channels need: 14 MiB into /proc/sys/net/core/wmem_max and
 * rmem_max, and 4096 datagrams into /proc/sys/net/unix/max_dgram_qlen. Command lines that fail are treated as by
 * vosLinuxOOMInit().
 *
 * @return VOS_OK always
 * @threads as vosInit()
 */
int32_t vosLinuxNetInit(void);

/**
 * Sets the process's name, and the signal dispositions of vosProcessSignalDef(). May be called again to rename.
 *
 * First the alignment of the message buffers is checked with vosMsgCheck(), which aborts when it is wrong.
 *
 * @param pProcName  the name, at most 32 characters; copied. May point into the present name. An empty name means "not
 *                   known": the name is then taken from the command line when it is next needed
 * @return VOS_OK; VOS_ERR_PARAM when the name is null or longer than 32 characters (nothing is changed)
 * @threads one, before others use the library
 */
int32_t vosProcessInit(const char *pProcName);

/**
 * The name at the beginning of this process's log lines. If none has been set, it becomes the first argument of the
 * process's command line, cut at 32 characters.
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
 *               no NUL. It is not changed for a process without a command line: a kernel thread, or a process that has
 *               ended and has not been reaped. Null is never written to, and the result is then VOS_OK, too
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
 * Ignores SIGQUIT, SIGINT, SIGCHLD, SIGPIPE and SIGHUP. The console's interrupt and quit keys, a write to a closed
 * socket and a hang-up then do not end the process. The kernel reaps its ended children, so that their exit status
 * cannot be waited for. Programs that it starts inherit the ignored signals.
 *
 * @threads any; dispositions belong to the whole process
 */
void vosProcessSignalDef(void);

/**
 * Registers the procedure to run once when the process is asked to end (SIGTERM or SIGHUP) or ends normally (exit() or
 * return from main), whichever comes first. It does not run on _exit(), abort() or SIGKILL. The library does not end
 * the process: when the procedure returns, the interrupted code continues, and later signals of these two kinds do
 * nothing. Also sets SIGPIPE to be ignored.
 *
 * Registering again replaces the procedure, which can then run once more.
 *
 * @param pProc  the procedure, see VOS_TERMINATE_PROC for what it may do; null switches the mechanism off, SIGTERM and
 *               SIGHUP then stay caught without effect
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
 * Tells whether a process exists. An ended child that has not been reaped still exists.
 *
 * @param iPid  process id; 0 means the caller
 * @return VOS_OK when it exists; VOS_ERROR when it does not or the id is invalid
 * @threads any
 */
int32_t vosProcessCheck(int32_t iPid);

/**
 * getopt() under a portable name; its state (optarg, optind, opterr, optopt) is the C library's.
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
 * The calling thread waits until the program is executed or the child has ended; other threads go on. The program has
 * not opened its message channel yet when the call returns: a request to it may fail at first (connect failed, errno 2
 * or 111) and has to be tried again.
 *
 * The program inherits the creator's environment and current directory, the descriptors that are not close-on-exec, the
 * signals that the calling thread blocks, and the ignored signals. Caught signals have their default action in it. No
 * signal handler of the creator runs in the child.
 *
 * The priority is set when the program already runs, so it starts under the creator's policy. The caller needs the
 * right to make processes real-time: CAP_SYS_NICE in the machine's first user namespace, or RLIMIT_RTPRIO. Without it
 * the program runs and its process id is not known to the caller: ask before the start, for example with
 * vosProcessSched() for the calling thread.
 *
 * A program that does not exist or cannot be executed is reported by the child, in a log line with the child's process
 * id. The child then ends with exit(1). It shares the creator's memory until then, so this changes the creator:
 *
 * - A registered termination procedure runs, in the child: getpid() gives the child's id, _exit() ends only the child.
 *   The creator counts it as done. SIGTERM and SIGHUP do nothing any more, until the next registration.
 * - The creator's other exit hooks (atexit() functions, destructors of static objects) run in the child as well. They
 *   do not run again when the creator ends, and atexit() fails from then on. So a procedure that is registered later
 *   runs at SIGTERM and SIGHUP, and not at the normal end.
 * - All open streams of the creator are flushed, and unbuffered from then on.
 *
 * The result does not show that the program was not executed. It is the child's id while the ended child has not been
 * reaped. It is VOS_ERROR when SIGCHLD is ignored (see vosProcessSignalDef()) and the child has already been reaped,
 * and then a short program that did run gives VOS_ERROR, too. A creator that has to be sure registers a termination
 * procedure and does this:
 * @code
 * if (access(path, X_OK) != 0) return VOS_ERR_NO_FILE;     // the usual case, without any harm
 * pid = vosProcessCreate(path, 50, 0, NULL);
 * if (g_bProcTermProcRunned != 0) ...                      // not executed, or the creator has been asked to end:
 *                                                          // stop what was started, then leave with _exit(), or
 *                                                          // register the termination procedure again and go on
 * @endcode
 *
 * On every failure after the arguments were split their two memory blocks stay allocated.
 *
 * @param pPath       the program's file; without a slash it is taken from the current directory, the search path is
 *                    not used. The part after its last slash becomes the program's first argument
 * @param iPriority   1 to 99, 99 being the most urgent
 * @param ulReserved  not used
 * @param pArgs       further arguments, separated by exactly one blank each: there is an empty argument between two
 *                    blanks in a row and after a blank at the end, and an empty text is one empty argument. Null for
 *                    none. Copied. With an argument string a program name that contains a blank aborts the caller with
 *                    the C library's assertion report
 * @return the new process's id, greater than 0; VOS_ERR_PARAM for a null path or a priority out of range;
 *         VOS_ERR_MEMORY; VOS_ERR_FORK when no process could be created; VOS_ERROR when the policy could not be set:
 *         the process runs under the creator's policy, or has already ended. After the last two errno is that of the
 *         failed call
 * @threads any
 */
int32_t vosProcessCreate(const char *pPath, int32_t iPriority, uint32_t ulReserved, const char *pArgs);

/**
 * Starts a program as a new process under SCHED_RR, with its standard input, output and error replaced and its name
 * as the only argument. The child is a full copy of the creator.
 *
 * The program inherits the same as with vosProcessCreate(), and the rules about the priority are the same.
 *
 * When the program cannot be executed the call returns a second time, with 0, in the child, and the caller's code
 * continues in two processes. The caller has to recognise this and end the child:
 * @code
 * int32_t pid = vosProcessCreateWithNewFd("/app/bin/demo", 50, 0, in, out, err);
 * if (pid == 0) _exit(127);
 * @endcode
 * It ends the child with _exit() and not with exit(), because exit() would run the termination procedure and the other
 * exit hooks in the child. In the child, signals that the creator catches have their default action. The child reports
 * the failure in a log line on its new standard output. That line flushes the child's copy of the creator's standard
 * output: text that the creator had printed and not flushed appears there, too, and the creator still prints it itself.
 *
 * @param pPath       the program's file, as for vosProcessCreate(); its basename() becomes its first argument
 * @param iPriority   1 to 99
 * @param ulReserved  not used
 * @param iStdinFd    becomes the child's standard input. The three are copied in this order. They stay open, in the
 *                    program too unless they are close-on-exec. One that is not open leaves the standard descriptor as
 *                    it was
 * @param iStdoutFd   becomes the child's standard output
 * @param iStderrFd   becomes the child's standard error
 * @return as vosProcessCreate(), without VOS_ERR_MEMORY; 0 in the child if its program could not be executed
 * @threads any
 */
int32_t vosProcessCreateWithNewFd(const char *pPath, int32_t iPriority, uint32_t ulReserved, int32_t iStdinFd,
                                  int32_t iStdoutFd, int32_t iStderrFd);

/**
 * Sends SIGTERM to a process and, if it is a child of the caller, waits until it has ended, without a time-out. A child
 * that catches SIGTERM and continues keeps its caller waiting; see vosProcessRegTerminateProc(). A signal that the
 * caller handles meanwhile does not end the wait.
 *
 * @param iPid  process id, passed to kill() as it is: 0 reaches the caller's process group, -1 every process that the
 *              caller may signal, another negative number the process group of that id
 * @return VOS_OK; VOS_ERROR when the signal could not be sent
 * @threads any
 */
int32_t vosProcessDestroy(int32_t iPid);

/**
 * Puts the main thread of a process under SCHED_RR with a priority. Threads that the process has already started keep
 * their policy; those that the main thread starts later inherit the new one.
 *
 * @param iPid        process id; 0 means the calling thread, whichever it is
 * @param iPriority   1 to 99; the kernel refuses others
 * @param ulReserved  not used
 * @return VOS_OK; VOS_ERROR when the kernel refuses
 * @threads any
 */
int32_t vosProcessSched(int32_t iPid, int32_t iPriority, uint32_t ulReserved);

/**
 * Describes how the main thread of a process is scheduled.
 *
 * @param iPid       process id; 0 means the calling thread, whichever it is
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
