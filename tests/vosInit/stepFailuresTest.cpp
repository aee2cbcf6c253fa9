/* SPDX-License-Identifier: MIT */
/* Steps that fail. The program defines the functions of the steps itself, because those of the library never fail. */
#include <gmock/gmock.h>

#include "support/child.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;

namespace {
int32_t oomResult = VOS_OK;
int32_t coreDumpResult = VOS_OK;
int32_t netResult = VOS_OK;
}  // namespace

int32_t vosLinuxOOMInit(void) {
    vosPrintf("\r\nmemory");
    return oomResult;
}

int32_t vosLinuxCoreDumpInit(const char *pProcName) {
    vosPrintf("\r\ncore files of %s", pProcName);
    return coreDumpResult;
}

int32_t vosLinuxNetInit(void) {
    vosPrintf("\r\nsockets");
    return netResult;
}

int32_t vosSysConfigDataInit(void) {
    vosPrintf("\r\ndevice data");
    return VOS_ERROR;
}

TEST(InitSteps, AllAreTakenInTheirOrderAndTheDataStepsResultIsIgnored) {
    const Outcome outcome = run([] { EXPECT_EQ(vosInit("demo"), VOS_OK); });
    EXPECT_THAT(outcome.messages(), ElementsAre("memory", "core files of demo", "sockets", "device data"));
}

TEST(InitSteps, EachFailureHasItsLineAndThatOfTheCoreFilesNamesTheMemoryStep) {
    const Outcome outcome = run([] {
        oomResult = coreDumpResult = netResult = VOS_ERROR;
        EXPECT_EQ(vosInit("demo"), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("memory", "vosInit:vosLinuxOOMInit failed.", "core files of demo",
                                                "vosInit:vosLinuxOOMInit failed.", "sockets",
                                                "vosInit:vosLinuxNetInit failed.", "device data"));
}

TEST(InitSteps, AnyResultButZeroIsAFailure) {
    const Outcome outcome = run([] {
        netResult = 1;
        EXPECT_EQ(vosInit("demo"), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("memory", "core files of demo", "sockets",
                                                "vosInit:vosLinuxNetInit failed.", "device data"));
}
