/* SPDX-License-Identifier: MIT */
/* What vos-faults knows of the calls of libvos. */
#include "faults/calls.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <set>

#include "support/imports.h"
#include "support/overrides.h"

using namespace vosfaults;

TEST(FaultCalls, EveryCallOfLibvosThatCanFailIsKnown) {
    int known = 0;
    for (const vostest::Import &import : vostest::importsOfLibvos()) {
        if (vostest::cannotFail(import.name) || import.name == "free") continue;
        const std::size_t call = findCall(import.name.c_str());
        EXPECT_LT(call, kCallCount) << import.name;
        if (call == kCallCount) continue;
        EXPECT_FALSE(kCalls[call].ofLibvos) << import.name;
        ++known;
    }
    EXPECT_GT(known, 80);
}

TEST(FaultCalls, EveryExportedFunctionIsKnownOnce) {
    std::set<std::string> names;
    for (std::size_t i = 0; i < kExportCount; ++i) {
        EXPECT_NE(dlsym(RTLD_DEFAULT, kCalls[i].name), nullptr) << kCalls[i].name;
        EXPECT_TRUE(names.insert(kCalls[i].name).second) << kCalls[i].name;
    }
    EXPECT_GT(names.size(), 200u);
}

TEST(FaultCalls, AFailureIsTheOneThatTheHeaderDocuments) {
    const auto usual = [](const char *name) { return kCalls[findCall(name)].usual; };
    EXPECT_EQ(usual("vosMsgSend"), -1);
    EXPECT_EQ(usual("vosMsgSockAddUser"), -6);
    EXPECT_EQ(usual("vosMalloc"), 0);
    EXPECT_EQ(kCalls[findCall("vosMalloc")].failure, Failure::Value);
    EXPECT_EQ(kCalls[findCall("vosSleep")].failure, Failure::Unknown);
    EXPECT_FALSE(kCalls[findCall("vosMsgRegisterBldrun")].mayFail);
    EXPECT_TRUE(kCalls[findCall("vosMsgRecv2")].mayFail) << "documented as another function";
}

TEST(FaultCalls, AParameterIsFoundByItsName) {
    const Call &write = kCalls[findCall("write")];
    EXPECT_EQ(positionOf(write, "fd"), 0);
    EXPECT_EQ(positionOf(write, "length", "size_t"), 2);
    EXPECT_EQ(positionOf(write, "length", "int"), -1);
    EXPECT_EQ(positionOf(write, "engt"), -1);
    EXPECT_EQ(positionOf(kCalls[findCall("vosMsgSend")], "pDestName", "const char *"), 0);
    EXPECT_EQ(positionOf(kCalls[findCall("sendto")], "address", "const sockaddr *"), 4);
    EXPECT_EQ(positionOf(kCalls[findCall("fork")], "fd"), -1);
}
