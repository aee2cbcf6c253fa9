/* SPDX-License-Identifier: MIT */
/* Saves with the journal. Every call of a save fails once, the process is killed once at every call, and the recovery
 * is killed once at every call. Each time the next process must read the old content or the new one. */
#include <csignal>
#include <set>

#include "vosFile/journal.h"

using namespace vostest;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void useJournal() {
    szVosJournalDir = kJournal;
    vosProcessGetName(); /* reads the name from a file, only once */
}

/* The calls that an action makes, each with its number. */
std::vector<FaultPoint> pointsOf(const std::function<void()> &action) {
    run([&] {
        useJournal();
        std::ofstream names("/tmp/calls");
        for (const std::string &each : Faults::record(action)) names << each << '\n';
    });
    std::vector<FaultPoint> points;
    std::map<std::string, int> count;
    std::ifstream in("/tmp/calls");
    for (std::string call; std::getline(in, call);) points.push_back({.call = call, .occurrence = ++count[call]});
    return points;
}

bool moves(const FaultPoint &point) {
    return point.call == "write" || point.call == "writev" || point.call == "pwrite";
}

/* Kills at the call; calls that write are also cut short and then killed. */
std::vector<FaultPoint> cutsOf(const std::function<void()> &action) {
    std::vector<FaultPoint> cuts;
    for (FaultPoint point : pointsOf(action)) {
        point.ends = true;
        cuts.push_back(point);
        for (const long moved : {1L, 700L}) {
            if (!moves(point)) continue;
            point.shortTo = moved;
            cuts.push_back(point);
        }
    }
    return cuts;
}

void killAt(const FaultPoint &point, const std::function<void()> &action) {
    const Outcome outcome = run([&] {
        useJournal();
        Faults::arm(point);
        action();
    });
    EXPECT_TRUE(outcome.killedBy(SIGKILL)) << describe(point);
}

class EachStore : public testing::TestWithParam<Store> {
  protected:
    const Store &store = GetParam();

    void start() const {
        putState({});
        store.putOld();
    }
    /* A fresh process reads, twice. */
    void expectOldOrNew(const std::string &what) const {
        run([&] {
            useJournal();
            vosDebugConfig(0);
            const std::string found = store.read();
            EXPECT_TRUE(found == store.before || found == store.after) << what << ": " << found.size() << " bytes";
            EXPECT_EQ(store.read(), found) << what;
        });
        EXPECT_THAT(journalFiles(), testing::Not(testing::Contains(testing::EndsWith(".save")))) << what;
    }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Journal, EachStore, testing::ValuesIn(stores()),
                         [](const auto &each) { return each.param.name; });

TEST_P(EachStore, ASaveLeavesTheNewContentAndNoEntryAndWritesNoLine) {
    start();
    const Outcome outcome = run([&] {
        useJournal();
        EXPECT_GE(store.saveNew(), 0);
        EXPECT_EQ(store.read(), store.after);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
    EXPECT_THAT(journalFiles(), IsEmpty());
}

TEST_P(EachStore, WhateverCallFailsTheNextProcessReadsOldOrNew) {
    start();
    for (const FaultPoint &point : pointsOf(store.saveNew)) {
        start();
        const Attempt attempt = failCall(point, useJournal, store.saveNew);
        EXPECT_EQ(attempt.descriptorsKept, 0) << describe(point);
        EXPECT_EQ(attempt.blocksKept, 0) << describe(point);
        EXPECT_EQ(attempt.locksKept, 0) << describe(point);
        if (attempt.result >= 0) {
            run([&] {
                useJournal();
                EXPECT_EQ(store.read(), store.after) << describe(point) << " was reported as saved";
            });
        }
        expectOldOrNew(describe(point));
    }
}

TEST_P(EachStore, WhereverTheSaveAndThenTheRecoveryAreKilledTheNextProcessReadsOldOrNew) {
    std::set<State> states;
    start();
    const auto cuts = cutsOf(store.saveNew);
    ASSERT_GT(cuts.size(), 15u);
    for (const FaultPoint &cut : cuts) {
        start();
        killAt(cut, store.saveNew);
        states.insert(stateOfFlash());
    }
    EXPECT_GT(states.size(), 3u);
    std::size_t recoveries = 0;
    for (const State &state : states) {
        putState(state);
        for (const FaultPoint &cut : cutsOf([&] { static_cast<void>(store.read()); })) {
            putState(state);
            killAt(cut, [&] { static_cast<void>(store.read()); });
            expectOldOrNew("recovery killed at " + describe(cut));
            ++recoveries;
        }
        putState(state);
        expectOldOrNew("killed save");
    }
    EXPECT_GT(recoveries, 40u);
}

TEST_P(EachStore, ALaterSaveWithoutTheJournalIsNeverReplaced) {
    std::set<State> states;
    start();
    for (const FaultPoint &cut : cutsOf(store.saveNew)) {
        start();
        killAt(cut, store.saveNew);
        states.insert(stateOfFlash());
    }
    const bool partition = store.after == "2";
    for (const State &state : states) {
        putState(state);
        if (partition && !state.contains(store.path)) continue;
        if (partition)
            putItems(store.name == "factory" ? kFactory : kSystem);
        else
            putFile(store.path, "another content");
        if (partition) run([&] { setWord(store.name == "factory" ? kFactory.item : kSystem.item, 3); });
        run([&] {
            useJournal();
            vosDebugConfig(0);
            EXPECT_EQ(store.read(), partition ? "3" : "another content");
        });
    }
}

TEST(JournalCalls, OfASaveAndOfARead) {
    putState({});
    putFile("/flash/data", "old");
    run([] {
        useJournal();
        EXPECT_THAT(Faults::record([] { saveFile("/flash/data"); }),
                    ElementsAre("open", "flock", "fstat", "lstat", "open", "openat", "writev", "fsync", "close",
                                "renameat", "fsync", "fstatvfs", "ftruncate", "write", "fsync", "syncfs", "unlinkat",
                                "fsync", "flock", "close", "close"));
        EXPECT_THAT(Faults::record([] { readFile("/flash/data"); }),
                    ElementsAre("access", "open", "flock", "lstat", "read", "flock", "close"));
    });
}
