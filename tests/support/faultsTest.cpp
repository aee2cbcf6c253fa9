/* SPDX-License-Identifier: MIT */
/* The fault injection itself: what it counts, what it fails, and that nothing libvos calls escapes it. */
#include "support/faults.h"

#include <gmock/gmock.h>

#include <cstdlib>

#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Faults, EveryImportOfTheLibraryHasAnOverrideOrWasReviewed) { EXPECT_THAT(Faults::unreviewedImports(), IsEmpty()); }

TEST(Faults, TheChosenOccurrenceFailsAndOnlyThatOne) {
    run([] {
        Faults::arm({.call = "malloc", .occurrence = 2});
        void *const first = vosMalloc(8);
        EXPECT_NE(first, nullptr);
        errno = 0;
        EXPECT_EQ(vosMalloc(8), nullptr);
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_TRUE(Faults::disarm());
        void *const third = vosMalloc(8);
        EXPECT_NE(third, nullptr);
        vosFree(first);
        vosFree(third);
    });
}

TEST(Faults, AFaultThatIsNotReachedHasNotStruck) {
    run([] {
        Faults::arm({.call = "malloc", .occurrence = 2});
        vosFree(vosMalloc(8));
        EXPECT_FALSE(Faults::disarm());
    });
}

TEST(Faults, CallsOfTheTestProgramItselfAreNeitherCountedNorFailed) {
    run([] {
        Faults::arm({.call = "malloc"});
        void *const own = malloc(8);
        EXPECT_NE(own, nullptr);
        free(own);
        EXPECT_FALSE(Faults::disarm());
        EXPECT_THAT(Faults::record([] { free(malloc(8)); }), IsEmpty());
    });
}

TEST(Faults, CallsAreRecordedInOrder) {
    run([] {
        char name[33] = {};
        EXPECT_THAT(Faults::record([&] { vosProcessGetNameByPid(vosProcessGetId(), name); }),
                    ElementsAre("open", "read", "close"));
    });
}

TEST(Faults, BlocksThatTheLibraryTookAndKeepsAreCounted) {
    run([] {
        const int before = Faults::liveBlocks();
        void *block = vosMalloc(8);
        EXPECT_EQ(Faults::liveBlocks(), before + 1);
        block = vosRealloc(block, 4096);
        EXPECT_EQ(Faults::liveBlocks(), before + 1);
        vosFree(block);
        EXPECT_EQ(Faults::liveBlocks(), before);
    });
}

TEST(Faults, AReadIsCutShort) {
    run([] {
        char name[33] = {};
        Faults::arm({.call = "read", .shortTo = 1});
        EXPECT_EQ(vosProcessGetNameByPid(vosProcessGetId(), name), VOS_OK);
        EXPECT_TRUE(Faults::disarm());
        EXPECT_NE(name[0], '\0');
        EXPECT_EQ(name[1], '\0');
    });
}

TEST(Faults, EachCallOfAnActionFailsInItsTurn) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           char name[33] = {};
                                           return vosProcessGetNameByPid(vosProcessGetId(), name);
                                       });
    std::vector<std::string> failed;
    for (const Attempt &each : attempts) failed.push_back(describe(each.point));
    EXPECT_THAT(failed, ElementsAre("open#1", "read#1", "close#1"));
    EXPECT_EQ(at(attempts, "open#1").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "read#1").result, VOS_OK);
}

TEST(Faults, WhatAnActionKeepsIsSeen) {
    const Attempt kept = failCall(
        {.call = "realloc"}, [] {},
        [] {
            void *const block = vosMalloc(8);
            return vosRealloc(block, 16) == nullptr ? 1L : 0L;
        });
    EXPECT_EQ(kept.result, 1);
    EXPECT_EQ(kept.blocksKept, 1);
    EXPECT_EQ(kept.descriptorsKept, 0);
}
