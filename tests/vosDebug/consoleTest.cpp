/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;

namespace {

const char *const kConsole = "/dev/console";

void makeConsole() { std::ofstream{kConsole}; }

std::string written() {
    std::ifstream console{kConsole};
    return {std::istreambuf_iterator<char>{console}, {}};
}

}  // namespace

TEST(Console, WithoutAConsoleDeviceMinus1IsReturnedAndNothingPrinted) {
    const Outcome outcome = run([] { EXPECT_EQ(vosPrintConsole("text"), VOS_ERROR); });
    EXPECT_EQ(outcome.output, "");
}

TEST(Console, TextReachesTheConsoleAndNotStandardOutput) {
    makeConsole();
    const Outcome outcome = run([] { EXPECT_EQ(vosPrintConsole("%s=%d", "port", 3), 6); });
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(written(), "port=3");
}

TEST(Console, TheDeviceIsOpenedAndClosedByEveryCall) {
    makeConsole();
    run([] {
        const auto calls = Faults::record([] {
            vosPrintConsole("one");
            vosPrintConsole("two");
        });
        EXPECT_THAT(calls, testing::ElementsAre("fopen", "fclose", "fopen", "fclose"));
    });
}

TEST(Console, EachFailingCallGivesItsResultAndTheStreamIsClosed) {
    const auto attempts = failEachCall(makeConsole, [] { return vosPrintConsole("text"); });
    EXPECT_EQ(at(attempts, "fopen#1").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "fclose#1").result, 4);
    const Attempt unwritten = failCall({.call = "vfprintf"}, makeConsole, [] { return vosPrintConsole("text"); });
    EXPECT_EQ(unwritten.result, -1);
    expectNothingKept(attempts);
    expectNothingKept({unwritten});
}
