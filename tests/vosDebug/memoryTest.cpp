/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <span>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::IsEmpty;

TEST(Memory, MallocOfZeroReturnsWhatTheCLibraryReturns) {
    run([] {
        void *const theirs = malloc(0);
        void *const ours = vosMalloc(0);
        EXPECT_EQ(ours == nullptr, theirs == nullptr);
        free(theirs);
        vosFree(ours);
    });
}

TEST(Memory, CallocGivesZeros) {
    run([] {
        auto *const block = static_cast<unsigned char *>(vosCalloc(100, 16));
        ASSERT_NE(block, nullptr);
        EXPECT_TRUE(std::ranges::all_of(std::span{block, 1600}, [](unsigned char c) { return c == 0; }));
        vosFree(block);
    });
}

TEST(Memory, ReallocKeepsTheContents) {
    run([] {
        auto *block = static_cast<char *>(vosMalloc(4));
        std::ranges::copy("abc", block);
        block = static_cast<char *>(vosRealloc(block, 1 << 20));
        ASSERT_NE(block, nullptr);
        EXPECT_STREQ(block, "abc");
        vosFree(block);
    });
}

TEST(Memory, ReallocToZeroReleasesTheBlockAndGivesNull) {
    run([] {
        const int before = Faults::liveBlocks();
        void *const block = vosMalloc(40);
        EXPECT_EQ(Faults::liveBlocks(), before + 1);
        EXPECT_EQ(vosRealloc(block, 0), nullptr);
        EXPECT_EQ(Faults::liveBlocks(), before);
    });
}

TEST(Memory, BlocksMayBeReleasedByTheCLibraryAndTheOtherWayRound) {
    run([] {
        free(vosMalloc(16));
        free(vosCalloc(2, 8));
        free(vosDmaMalloc(16, 0));
        vosFree(malloc(16));
        vosDmaFree(malloc(16));
        vosFree(nullptr);
        vosDmaFree(nullptr);
    });
}

TEST(Memory, SizesOf32BitsDoNotWrap) {
    run([] {
        EXPECT_EQ(vosCalloc(0xFFFFFFFFu, 0xFFFFFFFFu), nullptr);
        void *const large = vosDmaMalloc(0x80000000u, 1);
        ASSERT_NE(large, nullptr);
        EXPECT_GE(malloc_usable_size(large), 0x80000000u);
        vosDmaFree(large);
    });
}

TEST(Memory, EachFailingAllocationGivesNullWithoutALine) {
    const struct {
        const char *call;
        std::function<void *()> allocate;
    } cases[] = {
        {"malloc", [] { return vosMalloc(8); }},
        {"calloc", [] { return vosCalloc(1, 8); }},
        {"realloc", [] { return vosRealloc(nullptr, 8); }},
        {"malloc", [] { return vosDmaMalloc(8, 0); }},
    };
    for (const auto &each : cases) {
        const Attempt attempt = failCall(
            {.call = each.call}, [] {}, [&] { return each.allocate() == nullptr ? 1L : 0L; });
        EXPECT_EQ(attempt.result, 1) << each.call;
        EXPECT_THAT(attempt.messages, IsEmpty());
        expectNothingKept({attempt});
    }
}

TEST(Memory, AFailedReallocLeavesTheOldBlockValid) {
    run([] {
        auto *const block = static_cast<char *>(vosMalloc(4));
        std::ranges::copy("abc", block);
        Faults::arm({.call = "realloc"});
        EXPECT_EQ(vosRealloc(block, 1 << 20), nullptr);
        EXPECT_TRUE(Faults::disarm());
        EXPECT_STREQ(block, "abc");
        vosFree(block);
    });
}
