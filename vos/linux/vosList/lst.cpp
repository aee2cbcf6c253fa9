/* SPDX-License-Identifier: MIT */
/* Doubly linked lists with a count. */
#include <cstddef>
#include <cstdlib>

#include "refuse.h"
#include "vosList.h"

using vos::refuseNull;

static_assert(sizeof(LST_NODE) == 16 && offsetof(LST_NODE, next) == 0 && offsetof(LST_NODE, previous) == 8);
static_assert(sizeof(LST_LIST) == 24 && offsetof(LST_LIST, tail) == 8 && offsetof(LST_LIST, count) == 16);

namespace {

/* The pointer to what follows `previous`: its `next`, or the list's head when there is no previous node. */
LST_NODE *&nextOf(LST_LIST *list, LST_NODE *previous) { return previous == nullptr ? list->head : previous->next; }
/* The pointer to what precedes `next`: its `previous`, or the list's tail when there is no next node. */
LST_NODE *&previousOf(LST_LIST *list, LST_NODE *next) { return next == nullptr ? list->tail : next->previous; }

void insert(LST_LIST *list, LST_NODE *previous, LST_NODE *node) {
    LST_NODE *const next = nextOf(list, previous);
    node->previous = previous;
    node->next = next;
    nextOf(list, previous) = node;
    previousOf(list, next) = node;
    ++list->count;
}

/* Links the neighbours of a run of nodes to each other. The links of the run itself stay as they are. */
void cutOut(LST_LIST *list, LST_NODE *start, LST_NODE *end, int32_t length) {
    nextOf(list, start->previous) = end->next;
    previousOf(list, end->next) = start->previous;
    list->count -= length;
}

int32_t runLength(const LST_NODE *start, const LST_NODE *end) {
    int32_t length = 1;
    for (; start != end && start->next != nullptr; start = start->next) ++length;
    return length;
}

LST_NODE *step(LST_NODE *node, LST_NODE *LST_NODE::*link, int64_t steps) {
    for (; node != nullptr && steps > 0; --steps) node = node->*link;
    return node;
}

}  // namespace

void lstLibInit(void) {}

void lstInit(LST_LIST *pList) {
    if (refuseNull(__func__, pList)) return;
    *pList = {nullptr, nullptr, 0};
}

void lstInsert(LST_LIST *pList, LST_NODE *pPrevious, LST_NODE *pNode) {
    if (refuseNull(__func__, pList, pNode)) return;
    insert(pList, pPrevious, pNode);
}

void lstAdd(LST_LIST *pList, LST_NODE *pNode) {
    if (refuseNull(__func__, pList, pNode)) return;
    insert(pList, pList->tail, pNode);
}

/* Behind the head, never in front of it: applications keep at the head the entry that they are working on. */
void lstAddUrgent(LST_LIST *pList, LST_NODE *pNode) {
    if (refuseNull(__func__, pList, pNode)) return;
    insert(pList, pList->head, pNode);
}

void lstDelete(LST_LIST *pList, LST_NODE *pNode) {
    if (refuseNull(__func__, pList, pNode)) return;
    cutOut(pList, pNode, pNode, 1);
}

LST_NODE *lstGet(LST_LIST *pList) {
    if (refuseNull(__func__, pList)) return nullptr;
    LST_NODE *const first = pList->head;
    if (first == nullptr) return nullptr;
    pList->head = first->next;
    previousOf(pList, pList->head) = nullptr; /* not cutOut(), which would write where first->previous points */
    --pList->count;
    return first;
}

void lstExtract(LST_LIST *pList, LST_NODE *pStart, LST_NODE *pEnd, LST_LIST *pDestination) {
    if (refuseNull(__func__, pList, pStart, pEnd, pDestination)) return;
    const int32_t length = runLength(pStart, pEnd);
    cutOut(pList, pStart, pEnd, length);
    pStart->previous = nullptr;
    pEnd->next = nullptr;
    *pDestination = {pStart, pEnd, length};
}

void lstConcat(LST_LIST *pDestination, LST_LIST *pSource) {
    if (refuseNull(__func__, pDestination, pSource)) return;
    if (pSource->head == nullptr || pSource == pDestination) return;
    nextOf(pDestination, pDestination->tail) = pSource->head;
    pSource->head->previous = pDestination->tail;
    pDestination->tail = pSource->tail;
    pDestination->count += pSource->count;
    lstInit(pSource);
}

int32_t lstCount(LST_LIST *pList) { return refuseNull(__func__, pList) ? 0 : pList->count; }

LST_NODE *lstFirst(LST_LIST *pList) { return refuseNull(__func__, pList) ? nullptr : pList->head; }

LST_NODE *lstLast(LST_LIST *pList) { return refuseNull(__func__, pList) ? nullptr : pList->tail; }

LST_NODE *lstNext(LST_NODE *pNode) { return refuseNull(__func__, pNode) ? nullptr : pNode->next; }

LST_NODE *lstPrevious(LST_NODE *pNode) { return refuseNull(__func__, pNode) ? nullptr : pNode->previous; }

LST_NODE *lstNth(LST_LIST *pList, int32_t iPosition) {
    if (refuseNull(__func__, pList) || iPosition < 1 || iPosition > pList->count) return nullptr;
    if (iPosition >= pList->count / 2) return step(pList->tail, &LST_NODE::previous, pList->count - iPosition);
    return step(pList->head, &LST_NODE::next, iPosition - 1);
}

LST_NODE *lstNStep(LST_NODE *pNode, int32_t iSteps) {
    if (refuseNull(__func__, pNode)) return nullptr;
    const int64_t steps = iSteps;
    return steps < 0 ? step(pNode, &LST_NODE::previous, -steps) : step(pNode, &LST_NODE::next, steps);
}

int32_t lstFind(LST_LIST *pList, LST_NODE *pNode) {
    if (refuseNull(__func__, pList, pNode)) return -1;
    int32_t position = 1;
    for (const LST_NODE *node = pList->head; node != nullptr; node = node->next, ++position)
        if (node == pNode) return position;
    return -1;
}

void lstFree(LST_LIST *pList) {
    if (refuseNull(__func__, pList) || pList->count < 1) return;
    for (LST_NODE *node = pList->head; node != nullptr;) {
        LST_NODE *const next = node->next;
        free(node);
        node = next;
    }
    lstInit(pList);
}
