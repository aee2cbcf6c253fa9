/* SPDX-License-Identifier: MIT */
/* The limit of the header. The library never makes a process name that is this long. So this program defines a larger
 * variable of that name, as an application may. */
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "support/child.h"
#include "vosDebug.h"

extern "C" char szVosProcName[128];
char szVosProcName[128];

using namespace vostest;
using testing::ElementsAre;

namespace {

const char *const kComplaint = "vosDebugPrintf iLen > VOS_PRINTF_HEAD_LEN.";

/* Sets a process name with which the header has exactly that many characters. */
void headerOf(std::size_t length) {
    const std::size_t around = strlen("\r\n() ") + std::to_string(getpid()).size();
    const std::string name(length - around, 'n');
    strcpy(szVosProcName, name.c_str());
}

}  // namespace

TEST(LongName, ANameOf60CharactersPrintsTheErrorTextAndReturnsMinus1) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, std::string(60, 'n').c_str());
        EXPECT_EQ(vosDebugPrintf(VOS_DEBUG_ERROR, "f:line."), VOS_ERROR);
    });
    EXPECT_EQ(outcome.output, std::string("\r\n") + kComplaint);
}

TEST(LongName, AHeaderOf64CharactersIsPrintedAndOneOf65IsNot) {
    const Outcome outcome = run([] {
        headerOf(64);
        EXPECT_EQ(vosDebugPrintf(VOS_DEBUG_ERROR, "f:line."), 64 + 7);
        headerOf(65);
        EXPECT_EQ(vosDebugPrintf(VOS_DEBUG_ERROR, "f:line."), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("f:line.", kComplaint));
}

TEST(LongName, AHeaderOf64PercentSignsLeavesRoomForTheWholeMessage) {
    const std::string message(255, 'm');
    const Outcome outcome = run([&] {
        headerOf(64);
        memset(szVosProcName, '%', strlen(szVosProcName));
        EXPECT_EQ(vosDebugPrintf(VOS_DEBUG_ERROR, "%s", message.c_str()), 64 + 255);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(message));
}
