/* SPDX-License-Identifier: MIT */
/* Singly linked lists. A list that sllGet() has emptied may keep an old tail: code that needs the tail first checks
 * that there is a head. */
#include <cstddef>
#include <cstdlib>

#include "refuse.h"
#include "vosList.h"

using vos::refuseNull;

static_assert(sizeof(SLL_NODE) == 8 && offsetof(SLL_NODE, next) == 0);
static_assert(sizeof(SLL_LIST) == 16 && offsetof(SLL_LIST, head) == 0 && offsetof(SLL_LIST, tail) == 8);

SLL_LIST *sllCreate(void) {
    auto *const list = static_cast<SLL_LIST *>(malloc(sizeof(SLL_LIST)));
    if (list == nullptr) {
        vos::error(__func__, "%s:malloc failed.");
        return nullptr;
    }
    sllInit(list);
    return list;
}

int32_t sllInit(SLL_LIST *pList) {
    if (refuseNull(__func__, pList)) return VOS_ERR_PARAM;
    *pList = {nullptr, nullptr};
    return VOS_OK;
}

int32_t sllDelete(SLL_LIST *pList) {
    free(pList);
    return VOS_OK;
}

int32_t sllTerminate(SLL_LIST * /*pList*/) { return VOS_OK; }

void sllPutAtHead(SLL_LIST *pList, SLL_NODE *pNode) {
    if (refuseNull(__func__, pList, pNode)) return;
    pNode->next = pList->head;
    if (pList->head == nullptr) pList->tail = pNode;
    pList->head = pNode;
}

void sllPutAtTail(SLL_LIST *pList, SLL_NODE *pNode) {
    if (refuseNull(__func__, pList, pNode)) return;
    pNode->next = nullptr;
    (pList->head == nullptr ? pList->head : pList->tail->next) = pNode;
    pList->tail = pNode;
}

SLL_NODE *sllGet(SLL_LIST *pList) {
    if (refuseNull(__func__, pList)) return nullptr;
    SLL_NODE *const first = pList->head;
    if (first != nullptr) pList->head = first->next;
    return first;
}

void sllRemove(SLL_LIST *pList, SLL_NODE *pNode, SLL_NODE *pPrevious) {
    if (refuseNull(__func__, pList, pNode)) return;
    (pPrevious == nullptr ? pList->head : pPrevious->next) = pNode->next;
    if (pList->tail == pNode) pList->tail = pPrevious;
}

SLL_NODE *sllPrevious(SLL_LIST *pList, SLL_NODE *pNode) {
    if (refuseNull(__func__, pList, pNode)) return nullptr;
    SLL_NODE *candidate = pList->head;
    while (candidate != nullptr && candidate->next != pNode) candidate = candidate->next;
    return candidate;
}

uint32_t sllCount(SLL_LIST *pList) {
    if (refuseNull(__func__, pList)) return 0;
    uint32_t count = 0;
    for (const SLL_NODE *node = pList->head; node != nullptr; node = node->next) ++count;
    return count;
}
