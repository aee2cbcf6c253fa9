/* SPDX-License-Identifier: MIT */
/**
 * @file vosList.h
 * Intrusive lists in the style of real-time kernels: singly linked (sll) and doubly linked with a count (lst).
 *
 * The caller's records begin with a node, and the lists only link them. Only sllCreate() allocates; only sllDelete()
 * and lstFree() free. No call locks: a list is owned by one thread at a time, or the caller guards it with a lock. A
 * node may be in one list only, and is removed only from the list it is in; no call checks this. A null list or node is
 * refused: nothing is changed, one error line is logged, and the result is null, 0 or -1 (VOS_ERR_PARAM from
 * sllInit()).
 *
 *     struct Port { LST_NODE node; int number; };
 *     LST_LIST ports;
 *     lstInit(&ports);
 *     lstAdd(&ports, &port->node);
 *     for (LST_NODE *p = lstFirst(&ports); p != NULL; p = lstNext(p)) use((struct Port *)p);
 */
#ifndef VOS_LIST_H
#define VOS_LIST_H

#include "vosTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** Node of a singly linked list; the first field of the caller's record. */
typedef struct SLL_NODE {
    struct SLL_NODE *next; /**< The next node, or null at the end. */
} SLL_NODE;

/** A singly linked list. */
typedef struct SLL_LIST {
    SLL_NODE *head; /**< First node, or null when the list is empty. */
    SLL_NODE *tail; /**< Last node; without meaning while the list is empty. */
} SLL_LIST;

/** Node of a doubly linked list; the first field of the caller's record. */
typedef struct LST_NODE {
    struct LST_NODE *next;     /**< The next node, or null at the end. */
    struct LST_NODE *previous; /**< The node before, or null at the beginning. */
} LST_NODE;

/** A doubly linked list. Positions count from 1, the head. */
typedef struct LST_LIST {
    LST_NODE *head; /**< First node, or null. */
    LST_NODE *tail; /**< Last node, or null. */
    int32_t count;  /**< Number of nodes. */
} LST_LIST;

/**
 * Makes an empty list on the heap.
 *
 * @return the list, owned by the caller until sllDelete(); null after one error line when there is no memory
 * @threads any
 */
SLL_LIST *sllCreate(void);

/**
 * Makes a list empty, whatever it held.
 *
 * @param pList  the list
 * @return VOS_OK; VOS_ERR_PARAM when the list is null
 * @threads the one that owns the list
 */
int32_t sllInit(SLL_LIST *pList);

/**
 * Frees a list made by sllCreate(), not its nodes.
 *
 * @param pList  the list; null is allowed
 * @return VOS_OK
 * @threads the one that owns the list
 */
int32_t sllDelete(SLL_LIST *pList);

/**
 * Ends the use of a list that the caller owns. Does nothing.
 *
 * @param pList  the list
 * @return VOS_OK
 * @threads any
 */
int32_t sllTerminate(SLL_LIST *pList);

/**
 * Puts a node in front of all others.
 *
 * @param pList  the list
 * @param pNode  a node that is in no list
 * @threads the one that owns the list
 */
void sllPutAtHead(SLL_LIST *pList, SLL_NODE *pNode);

/**
 * Puts a node behind all others.
 *
 * @param pList  the list
 * @param pNode  a node that is in no list
 * @threads the one that owns the list
 */
void sllPutAtTail(SLL_LIST *pList, SLL_NODE *pNode);

/**
 * Takes the first node out of the list. The node's own link is not cleared.
 *
 * @param pList  the list
 * @return the node, or null when the list is empty
 * @threads the one that owns the list
 */
SLL_NODE *sllGet(SLL_LIST *pList);

/**
 * Takes a node out of the list.
 *
 * @param pList      the list
 * @param pNode      a node of this list
 * @param pPrevious  the node before it, null when it is the head; not checked; sllPrevious() finds it
 * @threads the one that owns the list
 */
void sllRemove(SLL_LIST *pList, SLL_NODE *pNode, SLL_NODE *pPrevious);

/**
 * Finds the node before another one by walking from the head.
 *
 * @param pList  the list
 * @param pNode  the node to look for
 * @return the node before it; null when it is the head or not in the list
 * @threads the one that owns the list
 */
SLL_NODE *sllPrevious(SLL_LIST *pList, SLL_NODE *pNode);

/**
 * Counts the nodes by walking the whole list.
 *
 * @param pList  the list
 * @return the number of nodes
 * @threads the one that owns the list
 */
uint32_t sllCount(SLL_LIST *pList);

/**
 * Prepares the doubly linked lists. Does nothing; kept for code written for real-time kernels.
 *
 * @threads any
 */
void lstLibInit(void);

/**
 * Makes a list empty, whatever it held.
 *
 * @param pList  the list
 * @threads the one that owns the list
 */
void lstInit(LST_LIST *pList);

/**
 * Puts a node behind another one.
 *
 * @param pList      the list
 * @param pPrevious  a node of this list, or null to put the node in front of all others
 * @param pNode      a node that is in no list
 * @threads the one that owns the list
 */
void lstInsert(LST_LIST *pList, LST_NODE *pPrevious, LST_NODE *pNode);

/**
 * Puts a node behind all others.
 *
 * @param pList  the list
 * @param pNode  a node that is in no list
 * @threads the one that owns the list
 */
void lstAdd(LST_LIST *pList, LST_NODE *pNode);

/**
 * Puts a node behind the head: second in a list that is not empty, alone in one that is.
 *
 * @param pList  the list
 * @param pNode  a node that is in no list
 * @threads the one that owns the list
 */
void lstAddUrgent(LST_LIST *pList, LST_NODE *pNode);

/**
 * Takes a node out of the list. The node's own links are not cleared.
 *
 * @param pList  the list
 * @param pNode  a node of this list
 * @threads the one that owns the list
 */
void lstDelete(LST_LIST *pList, LST_NODE *pNode);

/**
 * Takes the first node out of the list. The node's own links are not cleared.
 *
 * @param pList  the list
 * @return the node, or null when the list is empty
 * @threads the one that owns the list
 */
LST_NODE *lstGet(LST_LIST *pList);

/**
 * Cuts a run of nodes out of a list and makes it the whole of another one.
 *
 * @param pList         the list
 * @param pStart        first node of the run
 * @param pEnd          last node of the run, the start or a node behind it
 * @param pDestination  list that is overwritten with the run; need not be initialised; may be the list itself, whose
 *                      other nodes are then in no list
 * @threads the one that owns both lists
 */
void lstExtract(LST_LIST *pList, LST_NODE *pStart, LST_NODE *pEnd, LST_LIST *pDestination);

/**
 * Moves all nodes of one list behind those of another.
 *
 * @param pDestination  list that takes the nodes
 * @param pSource       list that is empty afterwards
 * @threads the one that owns both lists
 */
void lstConcat(LST_LIST *pDestination, LST_LIST *pSource);

/**
 * The number of nodes.
 *
 * @param pList  the list
 * @return the count
 * @threads the one that owns the list
 */
int32_t lstCount(LST_LIST *pList);

/**
 * The first node.
 *
 * @param pList  the list
 * @return the head, or null when the list is empty
 * @threads the one that owns the list
 */
LST_NODE *lstFirst(LST_LIST *pList);

/**
 * The last node.
 *
 * @param pList  the list
 * @return the tail, or null when the list is empty
 * @threads the one that owns the list
 */
LST_NODE *lstLast(LST_LIST *pList);

/**
 * The node behind a node.
 *
 * @param pNode  the node
 * @return the next node, or null at the end
 * @threads the one that owns the list
 */
LST_NODE *lstNext(LST_NODE *pNode);

/**
 * The node before a node.
 *
 * @param pNode  the node
 * @return the node before, or null at the beginning
 * @threads the one that owns the list
 */
LST_NODE *lstPrevious(LST_NODE *pNode);

/**
 * The node at a position, walking from the nearer end.
 *
 * @param pList      the list
 * @param iPosition  position, 1 is the head
 * @return the node; null when the position is below 1 or above the count
 * @threads the one that owns the list
 */
LST_NODE *lstNth(LST_LIST *pList, int32_t iPosition);

/**
 * The node a number of steps away.
 *
 * @param pNode   where to start
 * @param iSteps  steps forward, or backward when negative; 0 gives the node itself
 * @return the node, or null when the list ends before
 * @threads the one that owns the list
 */
LST_NODE *lstNStep(LST_NODE *pNode, int32_t iSteps);

/**
 * The position of a node.
 *
 * @param pList  the list
 * @param pNode  the node to look for
 * @return its position, 1 is the head; -1 when it is not in the list
 * @threads the one that owns the list
 */
int32_t lstFind(LST_LIST *pList, LST_NODE *pNode);

/**
 * Frees every node with free() and makes the list empty. Does nothing when the count is below 1.
 *
 * @param pList  the list; every node is the start of a block of vosMalloc() or malloc()
 * @threads the one that owns the list
 */
void lstFree(LST_LIST *pList);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
