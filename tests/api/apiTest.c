/* SPDX-License-Identifier: MIT */
/* The interface as a C program uses it: plain C17, nothing but the public headers. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <vos.h>

#define EXPECT(condition) \
    ((condition) ? (void)0 : (printf("FAILED: line %d: %s\n", __LINE__, #condition), (void)++failures))

static int failures;

struct Port {
    LST_NODE node;
    int number;
};

static void lists(void) {
    struct Port ports[3] = {{{NULL, NULL}, 1}, {{NULL, NULL}, 2}, {{NULL, NULL}, 3}};
    LST_LIST list;
    lstInit(&list);
    for (int i = 0; i < 3; ++i) lstAdd(&list, &ports[i].node);
    int sum = 0;
    for (LST_NODE *node = lstFirst(&list); node != NULL; node = lstNext(node)) sum += ((struct Port *)node)->number;
    EXPECT(sum == 6);
    EXPECT(lstFind(&list, &ports[2].node) == 3);

    SLL_LIST *const queue = sllCreate();
    SLL_NODE entry;
    sllPutAtTail(queue, &entry);
    EXPECT(sllGet(queue) == &entry);
    EXPECT(sllDelete(queue) == VOS_OK);
}

static void terminate(int32_t reserved) { (void)reserved; }

static void identity(void) {
    EXPECT(vosProcessInit("api") == VOS_OK);
    EXPECT(strcmp(vosProcessGetName(), "api") == 0);
    EXPECT(vosProcessRegTerminateProc(terminate) == VOS_OK);
    EXPECT(vosProcessCheck(vosProcessGetId()) == VOS_OK);
}

static void memory(void) {
    char *const block = vosCalloc(4, 8);
    EXPECT(block != NULL && block[31] == 0);
    vosFree(block);
}

static void messages(void) {
    const VOS_MSG_HEAD head = {VOS_MSG_TYPE_SELF, 0, 0, 254, 0, 0, 0, 5};
    EXPECT(sizeof head == 32 && offsetof(VOS_MSG_HEAD, ulBufLen) == 28);
    EXPECT(sizeof g_vosMsgBufferRecv == VOS_MSG_BUFFER_LEN);
    EXPECT(vosMsgCheck() == VOS_OK);
}

int main(void) {
    lists();
    identity();
    memory();
    messages();
    EXPECT(vosDebugPrintf(VOS_DEBUG_ERROR, "%s:%d failures.", "main", failures) > 0);
    EXPECT(vosPrintf("\r\n") == 2);
    return failures != 0;
}
