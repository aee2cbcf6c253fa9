/* SPDX-License-Identifier: MIT */
/**
 * @file vosProcess.h
 * Processes and start-up: the process's name, its signal dispositions, its termination procedure, queries about
 * other processes.
 *
 * An application process calls vosProcessInit() early with its own name, then, if it has to clean up when it is
 * asked to end, vosProcessRegTerminateProc() — in this order, because both set the disposition of SIGHUP and the
 * last call wins.
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

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
