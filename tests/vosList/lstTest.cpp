/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <climits>
#include <vector>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/* Returns the nodes from head to tail. Also checks that the list is the same from tail to head, that both ends are null
 * and that the count is right. */
std::vector<LST_NODE *> nodesOf(LST_LIST &list) {
    std::vector<LST_NODE *> forward;
    for (LST_NODE *node = lstFirst(&list); node != nullptr; node = lstNext(node)) forward.push_back(node);
    std::vector<LST_NODE *> backward;
    for (LST_NODE *node = lstLast(&list); node != nullptr; node = lstPrevious(node)) backward.push_back(node);
    std::ranges::reverse(backward);
    EXPECT_EQ(forward, backward);
    EXPECT_EQ(lstCount(&list), static_cast<int32_t>(forward.size()));
    return forward;
}

struct Nodes {
    LST_LIST list{};
    std::array<LST_NODE, 5> node{};
    explicit Nodes(std::size_t count) {
        lstLibInit();
        lstInit(&list);
        for (std::size_t i = 0; i < count; ++i) lstAdd(&list, &node[i]);
    }
};

}  // namespace

TEST(Lst, InitEmptiesWhateverAListHeld) {
    run([] {
        Nodes n{3};
        lstInit(&n.list);
        EXPECT_THAT(nodesOf(n.list), IsEmpty());
    });
}

TEST(Lst, InsertGoesToTheHeadTheMiddleAndTheTail) {
    run([] {
        Nodes n{0};
        auto &[a, b, c, d, e] = n.node;
        lstInsert(&n.list, nullptr, &b);
        lstInsert(&n.list, nullptr, &a);
        lstInsert(&n.list, &b, &d);
        lstInsert(&n.list, &b, &c);
        lstAdd(&n.list, &e);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&a, &b, &c, &d, &e));
    });
}

TEST(Lst, AddUrgentOnABGivesAXBAndOnAnEmptyListX) {
    run([] {
        Nodes n{2};
        auto &[a, b, x, y, z] = n.node;
        lstAddUrgent(&n.list, &x);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&a, &x, &b));
        lstInit(&n.list);
        lstAddUrgent(&n.list, &y);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&y));
        lstAddUrgent(&n.list, &z);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&y, &z));
    });
}

TEST(Lst, DeleteUnlinksAtEitherEndAndInBetweenAndLeavesTheNodesLinks) {
    run([] {
        Nodes n{4};
        auto &[a, b, c, d, e] = n.node;
        lstDelete(&n.list, &b);
        EXPECT_EQ(b.previous, &a);
        EXPECT_EQ(b.next, &c);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&a, &c, &d));
        lstDelete(&n.list, &d);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&a, &c));
        lstDelete(&n.list, &a);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&c));
        lstDelete(&n.list, &c);
        EXPECT_THAT(nodesOf(n.list), IsEmpty());
    });
}

TEST(Lst, GetTakesTheHeadUntilTheListIsEmpty) {
    run([] {
        Nodes n{2};
        auto &[a, b, c, d, e] = n.node;
        EXPECT_EQ(lstGet(&n.list), &a);
        EXPECT_EQ(a.next, &b) << "the node's own link is left";
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&b));
        EXPECT_EQ(lstGet(&n.list), &b);
        EXPECT_THAT(nodesOf(n.list), IsEmpty());
        EXPECT_EQ(lstGet(&n.list), nullptr);
        EXPECT_EQ(lstCount(&n.list), 0);
    });
}

/* An application has removed the head itself and has not changed `previous` of the new head. */
TEST(Lst, GetDoesNotFollowTheHeadsPreviousLink) {
    run([] {
        Nodes n{3};
        auto &[a, b, c, d, e] = n.node;
        n.list.head = &b;
        n.list.count = 2;
        EXPECT_EQ(lstGet(&n.list), &b);
        EXPECT_EQ(a.next, &b) << "a is not in the list and is not written";
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&c));
        EXPECT_EQ(lstGet(&n.list), &c);
        EXPECT_THAT(nodesOf(n.list), IsEmpty());
        EXPECT_EQ(lstGet(&n.list), nullptr);
    });
}

TEST(Lst, ExtractIntoItsOwnSourceLeavesTheRun) {
    run([] {
        Nodes n{4};
        auto &[w, x, y, z, e] = n.node;
        lstExtract(&n.list, &x, &y, &n.list);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&x, &y));
        EXPECT_EQ(lstCount(&n.list), 2);
    });
}

TEST(Lst, ExtractOfXYFromWXYZLeavesWZAndGivesXY) {
    run([] {
        Nodes n{4};
        auto &[w, x, y, z, e] = n.node;
        LST_LIST destination{&e, &e, 99};
        lstExtract(&n.list, &x, &y, &destination);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&w, &z));
        EXPECT_EQ(lstCount(&n.list), 2);
        EXPECT_THAT(nodesOf(destination), ElementsAre(&x, &y));
        EXPECT_EQ(lstCount(&destination), 2);
    });
}

TEST(Lst, ExtractTakesAWholeListOrASingleEnd) {
    run([] {
        Nodes n{3};
        auto &[a, b, c, d, e] = n.node;
        LST_LIST destination;
        lstExtract(&n.list, &c, &c, &destination);
        EXPECT_THAT(nodesOf(destination), ElementsAre(&c));
        lstExtract(&n.list, &a, &b, &destination);
        EXPECT_THAT(nodesOf(destination), ElementsAre(&a, &b));
        EXPECT_THAT(nodesOf(n.list), IsEmpty());
    });
}

TEST(Lst, ConcatAppendsAndEmptiesTheSource) {
    run([] {
        Nodes n{2};
        auto &[a, b, c, d, e] = n.node;
        LST_LIST source;
        lstInit(&source);
        lstConcat(&n.list, &source);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&a, &b));
        lstAdd(&source, &c);
        lstAdd(&source, &d);
        lstConcat(&n.list, &source);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&a, &b, &c, &d));
        EXPECT_THAT(nodesOf(source), IsEmpty());
    });
}

TEST(Lst, ConcatIntoAnEmptyListTakesOverAllNodesAndTheSourceIsEmpty) {
    run([] {
        Nodes n{3};
        auto &[a, b, c, d, e] = n.node;
        LST_LIST destination;
        lstInit(&destination);
        lstConcat(&destination, &n.list);
        EXPECT_THAT(nodesOf(destination), ElementsAre(&a, &b, &c));
        EXPECT_THAT(nodesOf(n.list), IsEmpty());
    });
}

TEST(Lst, ConcatOfAListWithItselfChangesNothing) {
    run([] {
        Nodes n{2};
        lstConcat(&n.list, &n.list);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&n.node[0], &n.node[1]));
    });
}

TEST(Lst, NthCountsFromOneAndIsNullOutsideTheList) {
    run([] {
        Nodes n{5};
        EXPECT_EQ(lstNth(&n.list, 0), nullptr);
        EXPECT_EQ(lstNth(&n.list, -1), nullptr);
        EXPECT_EQ(lstNth(&n.list, 6), nullptr);
        for (int32_t position = 1; position <= 5; ++position)
            EXPECT_EQ(lstNth(&n.list, position), &n.node[static_cast<std::size_t>(position - 1)]);
    });
}

TEST(Lst, NthOf3In5IsReachedFromTheTailAnd1FromTheHead) {
    run([] {
        Nodes n{5};
        LST_NODE *const third = &n.node[2];
        n.node[0].next = nullptr; /* a walk from the head would end here */
        EXPECT_EQ(lstNth(&n.list, 3), third);
        EXPECT_EQ(lstNth(&n.list, 2), &n.node[1]) << "2 >= 5 / 2 also walks from the tail";
        n.node[4].previous = nullptr; /* a walk from the tail would end here */
        EXPECT_EQ(lstNth(&n.list, 1), &n.node[0]);
    });
}

TEST(Lst, NStepOfMinus2FromTheSecondNodeReturnsNull) {
    run([] {
        Nodes n{5};
        EXPECT_EQ(lstNStep(&n.node[1], -2), nullptr);
        EXPECT_EQ(lstNStep(&n.node[1], -1), &n.node[0]);
        EXPECT_EQ(lstNStep(&n.node[1], 0), &n.node[1]);
        EXPECT_EQ(lstNStep(&n.node[1], 3), &n.node[4]);
        EXPECT_EQ(lstNStep(&n.node[1], 4), nullptr);
        EXPECT_EQ(lstNStep(&n.node[1], INT_MIN), nullptr);
        EXPECT_EQ(lstNStep(&n.node[1], INT_MAX), nullptr);
    });
}

TEST(Lst, FindGivesThePositionOrMinus1) {
    run([] {
        Nodes n{4};
        EXPECT_EQ(lstFind(&n.list, &n.node[0]), 1);
        EXPECT_EQ(lstFind(&n.list, &n.node[3]), 4);
        EXPECT_EQ(lstFind(&n.list, &n.node[4]), -1);
    });
}

TEST(Lst, FreeReleasesEveryNodeAndEmptiesTheList) {
    run([] {
        LST_LIST list;
        lstInit(&list);
        const int before = Faults::liveBlocks();
        for (int i = 0; i < 3; ++i) lstAdd(&list, static_cast<LST_NODE *>(vosMalloc(sizeof(LST_NODE) + 8)));
        EXPECT_EQ(Faults::liveBlocks(), before + 3);
        lstFree(&list);
        EXPECT_EQ(Faults::liveBlocks(), before);
        EXPECT_THAT(nodesOf(list), IsEmpty());
    });
}

TEST(Lst, FreeOnAListWithCount0FreesNothing) {
    run([] {
        Nodes n{1};
        n.list.count = 0; /* wrong on purpose: there is a head, which is no heap block */
        lstFree(&n.list);
        EXPECT_EQ(n.list.head, &n.node[0]);
        n.list.count = -1;
        lstFree(&n.list);
        EXPECT_EQ(n.list.head, &n.node[0]);
    });
}

TEST(Lst, NullArgumentsAreRefusedWithOneLineEach) {
    const Outcome outcome = run([] {
        Nodes n{1};
        LST_NODE node{};
        LST_LIST other{};
        lstInit(nullptr);
        lstInsert(nullptr, nullptr, &node);
        lstInsert(&n.list, nullptr, nullptr);
        lstAdd(nullptr, &node);
        lstAdd(&n.list, nullptr);
        lstAddUrgent(nullptr, &node);
        lstAddUrgent(&n.list, nullptr);
        lstDelete(nullptr, &node);
        lstDelete(&n.list, nullptr);
        EXPECT_EQ(lstGet(nullptr), nullptr);
        lstExtract(nullptr, &node, &node, &other);
        lstExtract(&n.list, nullptr, &node, &other);
        lstExtract(&n.list, &node, nullptr, &other);
        lstExtract(&n.list, &node, &node, nullptr);
        lstConcat(nullptr, &n.list);
        lstConcat(&n.list, nullptr);
        EXPECT_EQ(lstCount(nullptr), 0);
        EXPECT_EQ(lstFirst(nullptr), nullptr);
        EXPECT_EQ(lstLast(nullptr), nullptr);
        EXPECT_EQ(lstNext(nullptr), nullptr);
        EXPECT_EQ(lstPrevious(nullptr), nullptr);
        EXPECT_EQ(lstNth(nullptr, 1), nullptr);
        EXPECT_EQ(lstNStep(nullptr, 1), nullptr);
        EXPECT_EQ(lstFind(nullptr, &node), -1);
        EXPECT_EQ(lstFind(&n.list, nullptr), -1);
        lstFree(nullptr);
        EXPECT_THAT(nodesOf(n.list), ElementsAre(&n.node[0]));
    });
    EXPECT_THAT(outcome.messages(),
                testing::AllOf(testing::SizeIs(26), testing::Each(testing::EndsWith(":parameter error."))));
}
