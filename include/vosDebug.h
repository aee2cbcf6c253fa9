/* SPDX-License-Identifier: MIT */
/**
 * @file vosDebug.h
 * Diagnostics output and memory.
 *
 * Every function of the library reports its progress and its failures as lines of one leveled log. A line goes to
 * standard output and looks like this. It begins with CR LF and has no line end:
 *
 *     \r\n<process name>(<process id>) <function>:<what happened>
 *
 * One flag word per process decides which levels are printed; another process can change it at run time with
 * vosMsgDebugVos(). The allocation calls are the C library's with 32-bit sizes.
 */
#ifndef VOS_DEBUG_H
#define VOS_DEBUG_H

#include "vosTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** The longest line header (CR LF, process name, process id, blank) in characters. */
#define VOS_PRINTF_HEAD_LEN 64

/** Bits of the flag word. A line is printed when its level and the word have at least one bit in common. */
enum {
    VOS_DEBUG_NO_TIMEOUTS = 1, /**< Not a level: while set, new message sockets get no send and receive time-outs. */
    VOS_DEBUG_ERROR = 2,       /**< Failures, with the failed call, its errno and the text of that errno. */
    VOS_DEBUG_TRACE = 4,       /**< Entry and exit of operations, receipt of internal messages. */
    VOS_DEBUG_EVENT = 32       /**< One line per packet, link or MAC-address event that the receive loop takes. */
};

/**
 * The process's debug flag word; VOS_DEBUG_ERROR at load. Read and written without a lock: a change is seen by
 * another thread at its next log call.
 */
extern uint32_t g_ulVosDebugFlags;

/**
 * Replaces the debug flag word as a whole.
 *
 * @param ulFlags  the new word, any bits
 * @return VOS_OK always
 * @threads any
 */
int32_t vosDebugConfig(uint32_t ulFlags);

/**
 * Prints one log line if its level is switched on. A filtered call formats nothing and calls nothing.
 *
 * The message is cut at 255 characters. The finished line is used once more as a format without arguments, so a
 * percent sign in the formatted message is taken as a conversion: double it there ("%%%%" in a format that shall show
 * "%"), or print text from outside with vosPrintf("%s", text). Percent signs of the process name are shown as they are.
 *
 * @param ulLevel  bits of the level; any bit in common with the flag word prints the line
 * @param pFormat  format as for printf; by convention it begins with "%s:" for the calling function's own name
 * @return the number of characters formatted, as by vosPrintf(); 0 when the level is filtered out; VOS_ERROR when the
 *         header is longer than VOS_PRINTF_HEAD_LEN (a line that says so is printed instead). errno is left as it was
 * @threads any; one line is one write to the stream, so lines of different threads do not mix
 */
int32_t vosDebugPrintf(uint32_t ulLevel, const char *pFormat, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

/**
 * Prints to standard output, whatever the flag word holds, and flushes it.
 *
 * @param pFormat  format as for printf
 * @return what vprintf returns: the number of characters formatted, or a negative value. Output that cannot be written
 *         usually gives no negative value, because it fails when the stream is flushed, whose result is not examined
 * @threads any
 */
int32_t vosPrintf(const char *pFormat, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

/**
 * Prints to the device's console, also while standard output is redirected. The console is opened and closed again
 * by every call.
 *
 * @param pFormat  format as for printf
 * @return the number of characters formatted; VOS_ERROR when "/dev/console" cannot be opened. A text that the console
 *         does not take usually gives no negative value, as with vosPrintf()
 * @threads any
 */
int32_t vosPrintConsole(const char *pFormat, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

/**
 * Allocates memory, as malloc. A block may be released with vosFree() or free().
 *
 * @param ulSize  bytes; 0 gives what malloc(0) gives
 * @return the uninitialised block, owned by the caller, or null
 * @threads any
 */
void *vosMalloc(uint32_t ulSize);

/**
 * Allocates zeroed memory for a number of records, as calloc.
 *
 * @param ulCount  number of records
 * @param ulSize   bytes of one record
 * @return the zeroed block, owned by the caller, or null
 * @threads any
 */
void *vosCalloc(uint32_t ulCount, uint32_t ulSize);

/**
 * Changes a block's size, as realloc.
 *
 * @param pBlock  block to resize, or null for a new one
 * @param ulSize  new size in bytes; 0 releases the block and gives null: it must not be used or released again
 * @return the block, possibly moved; for a size other than 0, null when there is no memory, and then the old block is
 *         still valid
 * @threads any
 */
void *vosRealloc(void *pBlock, uint32_t ulSize);

/**
 * Releases a block.
 *
 * @param pBlock  block of any of these calls or of malloc; null is allowed
 * @threads any
 */
void vosFree(void *pBlock);

/**
 * Allocates memory for code written for targets with a separate DMA heap. Here it is ordinary heap memory without
 * any promise about alignment or physical addresses.
 *
 * @param ulSize      bytes
 * @param ulReserved  not used
 * @return the block, owned by the caller, or null
 * @threads any
 */
void *vosDmaMalloc(uint32_t ulSize, uint32_t ulReserved);

/**
 * Releases a block of vosDmaMalloc().
 *
 * @param pBlock  the block; null is allowed
 * @threads any
 */
void vosDmaFree(void *pBlock);

/** Options of vosMemoryShareGet(). */
enum {
    VOS_SHARE_READ_ONLY = 1, /**< Attach the segment for reading only. */
    VOS_SHARE_CREATE = 2     /**< Create the segment if it does not exist. */
};

/**
 * Attaches the System V shared memory segment that belongs to a file and a project number, and creates it if asked to.
 * Every process that asks with the same file and number shares the segment. Access to its contents is not synchronised.
 * The library never detaches or removes it; a caller detaches it with shmdt().
 *
 * A segment is created with mode 0400 (owner read) with VOS_SHARE_READ_ONLY, else with mode 0420 (owner read, group
 * write). Processes with full privileges may read and write it whatever its mode.
 *
 * @param pPath      an existing file
 * @param ucProject  project number; with 0 the C library does not define which key results
 * @param ulSize     bytes; must not exceed the size of a segment that exists already
 * @param iOptions   VOS_SHARE_READ_ONLY, VOS_SHARE_CREATE, both or 0
 * @return the address, or null after one error line with the failed call (ftok, shmget or shmat), for a null path
 *         "parameter error."; errno is that of the failed call
 * @threads any
 */
void *vosMemoryShareGet(const char *pPath, uint8_t ucProject, uint32_t ulSize, int32_t iOptions);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
