/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>

#include <vector>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<SLL_NODE *> nodesOf(const SLL_LIST &list) {
    std::vector<SLL_NODE *> nodes;
    for (SLL_NODE *node = list.head; node != nullptr; node = node->next) nodes.push_back(node);
    return nodes;
}

struct Nodes {
    SLL_LIST list{};
    SLL_NODE a{}, b{}, c{};
    Nodes() { sllInit(&list); }
    void fill() {
        for (SLL_NODE *const node : {&a, &b, &c}) sllPutAtTail(&list, node);
    }
};

}  // namespace

TEST(Sll, InitEmptiesWhateverAListHeld) {
    run([] {
        Nodes n;
        n.fill();
        EXPECT_EQ(sllInit(&n.list), VOS_OK);
        EXPECT_EQ(n.list.head, nullptr);
        EXPECT_EQ(n.list.tail, nullptr);
        EXPECT_EQ(sllTerminate(&n.list), VOS_OK);
    });
}

TEST(Sll, CreateMakesAnEmptyListThatDeleteFrees) {
    run([] {
        const int before = Faults::liveBlocks();
        SLL_LIST *const list = sllCreate();
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(Faults::liveBlocks(), before + 1);
        EXPECT_EQ(sllCount(list), 0u);
        EXPECT_EQ(sllDelete(list), VOS_OK);
        EXPECT_EQ(Faults::liveBlocks(), before);
        EXPECT_EQ(sllDelete(nullptr), VOS_OK);
    });
}

TEST(Sll, CreateWithoutMemoryGivesNullAndOneLine) {
    /* One allocation: malloc(), or calloc() when the compiler has merged it with the initialisation. */
    const auto attempts = failEachCall([] {}, [] { return sllCreate() == nullptr ? 1L : 0L; });
    ASSERT_EQ(attempts.size(), 1u);
    EXPECT_EQ(attempts[0].result, 1);
    EXPECT_THAT(attempts[0].messages, ElementsAre("sllCreate:malloc failed."));
    expectNothingKept(attempts);
}

TEST(Sll, PutsAtHeadAndAtTail) {
    run([] {
        Nodes n;
        sllPutAtHead(&n.list, &n.b);
        sllPutAtHead(&n.list, &n.a);
        sllPutAtTail(&n.list, &n.c);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&n.a, &n.b, &n.c));
        EXPECT_EQ(n.list.tail, &n.c);
        EXPECT_EQ(sllCount(&n.list), 3u);
    });
}

TEST(Sll, GetOnAnEmptyListReturnsNull) {
    run([] {
        Nodes n;
        EXPECT_EQ(sllGet(&n.list), nullptr);
    });
}

TEST(Sll, GetTakesFromTheHeadAndLeavesTheNodesLinkAndTheTail) {
    run([] {
        Nodes n;
        n.fill();
        EXPECT_EQ(sllGet(&n.list), &n.a);
        EXPECT_EQ(n.a.next, &n.b);
        EXPECT_EQ(sllGet(&n.list), &n.b);
        EXPECT_EQ(sllGet(&n.list), &n.c);
        EXPECT_EQ(n.list.head, nullptr);
        EXPECT_EQ(n.list.tail, &n.c) << "stale by design, and never followed";
        EXPECT_EQ(sllGet(&n.list), nullptr);
    });
}

TEST(Sll, PutAAtTailGetAPutBAtHeadMakesBHeadAndTail) {
    run([] {
        Nodes n;
        sllPutAtTail(&n.list, &n.a);
        EXPECT_EQ(sllGet(&n.list), &n.a);
        sllPutAtHead(&n.list, &n.b);
        EXPECT_EQ(n.list.head, &n.b);
        EXPECT_EQ(n.list.tail, &n.b);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&n.b));
    });
}

TEST(Sll, PutAtTailAfterGetHasEmptiedTheListStartsAfresh) {
    run([] {
        Nodes n;
        sllPutAtTail(&n.list, &n.a);
        sllGet(&n.list);
        sllPutAtTail(&n.list, &n.b);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&n.b));
        EXPECT_EQ(n.a.next, nullptr);
        EXPECT_EQ(n.list.tail, &n.b);
    });
}

TEST(Sll, RemoveOfTheTailMakesItsPredecessorTheTail) {
    run([] {
        Nodes n;
        n.fill();
        sllRemove(&n.list, &n.c, &n.b);
        EXPECT_EQ(n.list.tail, &n.b);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&n.a, &n.b));
    });
}

TEST(Sll, RemoveOfTheOnlyNodeEmptiesTheList) {
    run([] {
        Nodes n;
        sllPutAtTail(&n.list, &n.a);
        sllRemove(&n.list, &n.a, nullptr);
        EXPECT_EQ(n.list.head, nullptr);
        EXPECT_EQ(n.list.tail, nullptr);
    });
}

TEST(Sll, RemoveOfTheHeadAndOfAMiddleNodeKeepsTheTail) {
    run([] {
        Nodes n;
        n.fill();
        sllRemove(&n.list, &n.b, &n.a);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&n.a, &n.c));
        sllRemove(&n.list, &n.a, nullptr);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&n.c));
        EXPECT_EQ(n.list.tail, &n.c);
    });
}

TEST(Sll, PreviousOfTheHeadAndOfANodeNotInTheListIsNull) {
    run([] {
        Nodes n;
        SLL_NODE stranger{};
        EXPECT_EQ(sllPrevious(&n.list, &n.a), nullptr);
        n.fill();
        EXPECT_EQ(sllPrevious(&n.list, &n.a), nullptr);
        EXPECT_EQ(sllPrevious(&n.list, &stranger), nullptr);
        EXPECT_EQ(sllPrevious(&n.list, &n.b), &n.a);
        EXPECT_EQ(sllPrevious(&n.list, &n.c), &n.b);
    });
}

TEST(Sll, CountWalksTheWholeListEachTime) {
    run([] {
        Nodes n;
        n.fill();
        EXPECT_EQ(sllCount(&n.list), 3u);
        n.b.next = nullptr; /* only a call that walks the list finds this */
        EXPECT_EQ(sllCount(&n.list), 2u);
    });
}

TEST(Sll, NullArgumentsAreRefusedWithOneLineEach) {
    const Outcome outcome = run([] {
        Nodes n;
        EXPECT_EQ(sllInit(nullptr), VOS_ERR_PARAM);
        sllPutAtHead(nullptr, &n.a);
        sllPutAtHead(&n.list, nullptr);
        sllPutAtTail(nullptr, &n.a);
        sllPutAtTail(&n.list, nullptr);
        EXPECT_EQ(sllGet(nullptr), nullptr);
        sllRemove(nullptr, &n.a, nullptr);
        sllRemove(&n.list, nullptr, nullptr);
        EXPECT_EQ(sllPrevious(nullptr, &n.a), nullptr);
        EXPECT_EQ(sllPrevious(&n.list, nullptr), nullptr);
        EXPECT_EQ(sllCount(nullptr), 0u);
        EXPECT_THAT(nodesOf(n.list), IsEmpty());
    });
    EXPECT_THAT(
        outcome.messages(),
        ElementsAre("sllInit:parameter error.", "sllPutAtHead:parameter error.", "sllPutAtHead:parameter error.",
                    "sllPutAtTail:parameter error.", "sllPutAtTail:parameter error.", "sllGet:parameter error.",
                    "sllRemove:parameter error.", "sllRemove:parameter error.", "sllPrevious:parameter error.",
                    "sllPrevious:parameter error.", "sllCount:parameter error."));
}
