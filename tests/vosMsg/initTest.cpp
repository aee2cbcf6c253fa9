/* SPDX-License-Identifier: MIT */
#include <linux/netlink.h>

#include "peer.h"

using namespace vostest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

int reserved;

int32_t init(uint32_t flags, const char *name = "app") { return vosMsgInit(name, flags, &reserved); }

std::string boundTo(int fd) {
    sockaddr_un address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    return address.sun_path;
}

}  // namespace

TEST(Init, BothPartsOpenThePairAndTheNetlinkSocketBoundToTheProcess) {
    const Outcome outcome = run([] {
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        EXPECT_EQ(init(3), VOS_OK);
        vosDebugConfig(0);
        EXPECT_EQ(boundTo(g_vosFdProc), "/tmp/vos/app");
        EXPECT_EQ(boundTo(g_vosFdProcHigh), "/tmp/vos/appHigh");
        sockaddr_nl address{};
        socklen_t length = sizeof address;
        EXPECT_EQ(getsockname(g_vosFdNLUni, reinterpret_cast<sockaddr *>(&address), &length), 0);
        EXPECT_EQ(address.nl_pid, static_cast<uint32_t>(getpid()));
        EXPECT_EQ(address.nl_groups, 0u);
        printf("\r\n%d %d %d", g_vosFdProc, g_vosFdProcHigh, g_vosFdNLUni);
    });
    auto lines = withoutTuning(outcome.messages());
    ASSERT_FALSE(lines.empty());
    const std::string last = lines.back();
    const auto fd = [&](int index) {
        int found[3] = {};
        sscanf(last.c_str(), "%d %d %d", &found[0], &found[1], &found[2]);
        return std::to_string(found[index]);
    };
    lines.pop_back();
    EXPECT_THAT(lines,
                ElementsAre("vosMsgInit:start.", "vosMsgInit:create app socket " + fd(0) + ".",
                            "vosMsgInit:create app high socket " + fd(1) + ".",
                            "vosMsgInit:local socket " + fd(0) + " success.",
                            "vosMsgInit:local high socket " + fd(1) + " success.",
                            "vosMsgInit:create netlink unicast socket " + fd(2) + ".",
                            "vosMsgInit:netlink unicast socket " + fd(2) + " success.", "vosMsgInit:end return 0."));
}

TEST(Init, TheDirectoryIsMadeForAllUsersLessWhatTheUmaskTakes) {
    for (const mode_t mask : {0U, 022U, 077U})
        run([=] {
            freshWorld();
            umask(mask);
            openChannel("app");
            struct stat state {};
            EXPECT_EQ(stat("/tmp/vos", &state), 0);
            EXPECT_EQ(state.st_mode & 07777, 0777u & ~mask);
        });
}

TEST(Init, ANameOf94CharactersIsTheLongestThatOpensBothSockets) {
    run([] {
        vosDebugConfig(0);
        EXPECT_EQ(init(1, std::string(95, 'n').c_str()), VOS_ERROR);
        EXPECT_EQ(boundTo(g_vosFdProc), "/tmp/vos/" + std::string(95, 'n')); /* open and recorded */
        EXPECT_EQ(g_vosFdProcHigh, -1);
        g_vosFdProc = -1;
        EXPECT_EQ(init(1, std::string(94, 'n').c_str()), VOS_OK);
        EXPECT_EQ(boundTo(g_vosFdProcHigh), "/tmp/vos/" + std::string(94, 'n') + "High");
    });
}

TEST(Init, ItsLinesShowTheNameAsItWasGiven) {
    const Outcome outcome = run([] {
        freshWorld();
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        EXPECT_EQ(init(1, "dir/%s%n"), VOS_OK);
        vosDebugConfig(0);
        EXPECT_TRUE(exists("/tmp/vos/%s%n"));
    });
    EXPECT_THAT(outcome.messages(), Contains(testing::MatchesRegex("vosMsgInit:create dir/%s%n socket [0-9]+\\.")));
    EXPECT_THAT(outcome.messages(),
                Contains(testing::MatchesRegex("vosMsgInit:create dir/%s%n high socket [0-9]+\\.")));
}

TEST(Init, ARefusedCallHasNoEndLine) {
    const Outcome outcome = run([] {
        openChannel("app");
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        EXPECT_EQ(init(1), VOS_ERR_EXIST);
        EXPECT_EQ(vosMsgInit("app", 1, nullptr), VOS_ERR_PARAM);
        vosDebugConfig(0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgInit:start.", testing::StartsWith("vosMsgInit:g_vosFdProc "),
                                                "vosMsgInit:start.", "vosMsgInit:parameter error."));
}

TEST(Init, ASecondCallFindsEachSocketOpen) {
    const Outcome outcome = run([] {
        openChannel("app", 3);
        printf("\r\n%d %d", g_vosFdProc, g_vosFdNLUni);
        EXPECT_EQ(init(1), VOS_ERR_EXIST);
        EXPECT_EQ(init(2), VOS_ERR_EXIST);
        g_vosFdProc = -1;
        EXPECT_EQ(init(1), VOS_ERR_EXIST);
    });
    const auto lines = outcome.messages();
    ASSERT_EQ(lines.size(), 4u);
    int normal = 0;
    int netlink = 0;
    sscanf(lines[0].c_str(), "%d %d", &normal, &netlink);
    EXPECT_EQ(lines[1], "vosMsgInit:g_vosFdProc " + std::to_string(normal) + " exist.");
    EXPECT_EQ(lines[2], "vosMsgInit:g_vosFdNLUni " + std::to_string(netlink) + " exist.");
    EXPECT_EQ(lines[3], "vosMsgInit:g_vosFdProcHigh " + std::to_string(normal + 1) + " exist.");
}

TEST(Init, ANullNameOrThirdArgumentIsRefusedAndNothingIsCreated) {
    const Outcome outcome = run([] {
        freshWorld();
        EXPECT_EQ(vosMsgInit("app", 1, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgInit(nullptr, 1, &reserved), VOS_ERR_PARAM);
        EXPECT_FALSE(exists("/tmp/vos"));
        EXPECT_EQ(g_vosFdProc, -1);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgInit:parameter error.", "vosMsgInit:parameter error."));
}

TEST(Init, WithoutFlagsNothingIsOpened) {
    run([] {
        freshWorld();
        EXPECT_EQ(init(0), VOS_OK);
        EXPECT_EQ(g_vosFdProc, -1);
        EXPECT_EQ(g_vosFdProcHigh, -1);
        EXPECT_EQ(g_vosFdNLUni, -1);
        EXPECT_FALSE(exists("/tmp/vos"));
    });
}

TEST(Init, ANameWithADirectoryYieldsThePathsOfItsLastPart) {
    run([] {
        openChannel("/usr/bin/app");
        EXPECT_EQ(boundTo(g_vosFdProc), "/tmp/vos/app");
        EXPECT_EQ(boundTo(g_vosFdProcHigh), "/tmp/vos/appHigh");
    });
}

TEST(Init, ARestartedProcessTakesItsPathsOver) {
    Process first = start([] {
        openChannel("app");
        ready();
        pause();
    });
    first.awaitReady();
    run([] {
        openChannel("app");
        const Peer peer;
        EXPECT_TRUE(peer.send("/tmp/vos/app", application("for the new one")));
        EXPECT_EQ(receive().bytes.substr(0, 15), "for the new one");
    });
}

TEST(Init, ANameTooLongForAnAddressFailsAsAnOrdinaryBind) {
    const Outcome outcome = run([] {
        EXPECT_EQ(init(1, std::string(99, 'n').c_str()), VOS_ERROR);
        EXPECT_EQ(g_vosFdProc, -1);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(testing::StartsWith("vosMsgInit:local bind iSocketFd ")));
    EXPECT_THAT(outcome.output, testing::HasSubstr("failed errno:" + errnoText(EINVAL)));
}

TEST(Init, ANormalNameThatFitsAndAHighNameThatDoesNotFailAtTheHighBind) {
    const Outcome outcome = run([] { EXPECT_EQ(init(1, std::string(97, 'n').c_str()), VOS_ERROR); });
    EXPECT_THAT(withoutTuning(outcome.messages()),
                ElementsAre(testing::StartsWith("vosMsgInit:local bind high  iSocketFd ")));
}

namespace {

std::vector<Attempt> failInit(uint32_t flags) {
    return failEachCall(freshWorld, [=] { return long{init(flags)}; });
}

}  // namespace

TEST(Init, EachFailingCallOfThePairIsNamedAndTheDescribedSocketsStayOpen) {
    const auto attempts = failInit(1);
    struct Expected {
        const char *call;
        long result;
        const char *line;
        int descriptorsKept;
    };
    /* The pair is open after success. A failed bind closes the socket that it was for and no other. */
    const Expected expected[] = {
        {"socket#1", -1, "vosMsgInit:local socket failed.", 0},
        {"setsockopt#1", 0, "vosMsgLocalSocket:setsockopt SO_SNDTIMEO failed errno:", 2},
        {"setsockopt#2", 0, "vosMsgLocalSocket:setsockopt SO_RCVTIMEO failed errno:", 2},
        {"socket#2", -1, "vosMsgInit:local high socket failed.", 1},
        {"setsockopt#3", 0, "vosMsgLocalSocket:setsockopt SO_SNDTIMEO failed errno:", 2},
        {"setsockopt#4", 0, "vosMsgLocalSocket:setsockopt SO_RCVTIMEO failed errno:", 2},
        {"mkdir#1", -1, "vosMsgInit:local bind iSocketFd ", 1},
        {"unlink#1", 0, nullptr, 2},
        {"bind#1", -1, "vosMsgInit:local bind iSocketFd ", 1},
        {"setsockopt#5", 0, "vosMsgSocketOptmize:SO_SNDBUF failed.", 2},
        {"getsockopt#1", 0, "vosMsgSocketOptmize: getsockopt SO_SNDBUF failed.", 2},
        {"setsockopt#6", 0, "vosMsgSocketOptmize:SO_RCVBUF failed.", 2},
        {"getsockopt#2", 0, "vosMsgSocketOptmize: getsockopt SO_RCVBUF failed.", 2},
        {"unlink#2", 0, nullptr, 2},
        {"bind#2", -1, "vosMsgInit:local bind high  iSocketFd ", 1},
        {"setsockopt#7", 0, "vosMsgSocketOptmize:SO_SNDBUF failed.", 2},
        {"getsockopt#3", 0, "vosMsgSocketOptmize: getsockopt SO_SNDBUF failed.", 2},
        {"setsockopt#8", 0, "vosMsgSocketOptmize:SO_RCVBUF failed.", 2},
        {"getsockopt#4", 0, "vosMsgSocketOptmize: getsockopt SO_RCVBUF failed.", 2},
    };
    ASSERT_EQ(attempts.size(), std::size(expected));
    for (const Expected &each : expected) {
        const Attempt &attempt = at(attempts, each.call);
        EXPECT_EQ(attempt.result, each.result) << each.call;
        EXPECT_EQ(attempt.descriptorsKept, each.descriptorsKept) << each.call;
        EXPECT_EQ(attempt.blocksKept, 0) << each.call;
        if (each.line != nullptr) {
            EXPECT_THAT(attempt.messages, Contains(testing::StartsWith(each.line))) << each.call;
        }
    }
}

TEST(Init, AFailedBindOfTheHighSocketLeavesTheNormalOneRecorded) {
    const Attempt attempt = failCall(
        {.call = "bind", .occurrence = 2}, [] {},
        [] {
            EXPECT_EQ(init(1), VOS_ERROR);
            EXPECT_EQ(boundTo(g_vosFdProc), "/tmp/vos/app");
            return g_vosFdProcHigh;
        });
    EXPECT_EQ(attempt.result, -1);
    EXPECT_THAT(
        withoutTuning(attempt.messages),
        ElementsAre(testing::MatchesRegex("vosMsgInit:local bind high  iSocketFd [0-9]+ failed errno:5\\(.*\\)\\.")));
}

TEST(Init, EachFailingCallOfTheNetlinkPartIsNamed) {
    const auto attempts = failInit(2);
    ASSERT_EQ(attempts.size(), 6u);
    EXPECT_EQ(at(attempts, "socket#1").result, -1);
    EXPECT_THAT(at(attempts, "socket#1").messages, ElementsAre("vosMsgInit:netlink unicast socket failed."));
    EXPECT_EQ(at(attempts, "socket#1").descriptorsKept, 0);
    EXPECT_EQ(at(attempts, "bind#1").result, -1);
    EXPECT_THAT(at(attempts, "bind#1").messages, ElementsAre(errnoLine("vosMsgInit:netlink unicast bind", EIO)));
    EXPECT_EQ(at(attempts, "bind#1").descriptorsKept, 0);
    EXPECT_THAT(at(attempts, "setsockopt#1").messages, Contains("vosMsgNetlinkSocketOptmize:SO_SNDBUF failed."));
    EXPECT_THAT(at(attempts, "getsockopt#1").messages,
                Contains("vosMsgNetlinkSocketOptmize: getsockopt SO_SNDBUF failed."));
    EXPECT_THAT(at(attempts, "setsockopt#2").messages, Contains("vosMsgNetlinkSocketOptmize:SO_RCVBUF failed."));
    EXPECT_THAT(at(attempts, "getsockopt#2").messages,
                Contains("vosMsgNetlinkSocketOptmize: getsockopt SO_RCVBUF failed."));
    for (const char *const call : {"setsockopt#1", "getsockopt#1", "setsockopt#2", "getsockopt#2"})
        EXPECT_EQ(at(attempts, call).result, VOS_OK);
}

TEST(Init, ANetlinkBufferBelowTheRequestIsLoggedWithTwoFullStops) {
    const Attempt attempt = failCall(
        {.call = "setsockopt", .occurrence = 1}, [] {}, [] { return long{init(2)}; });
    EXPECT_THAT(attempt.messages, Contains(testing::MatchesRegex(
                                      "vosMsgNetlinkSocketOptmize: SO_SNDBUF set 4194304 but only [0-9]+, need "
                                      "to just KERNEL_NET_MEM_MAX value\\.\\.")));
}

TEST(Init, WhenTheNetlinkPartFailsThePairStaysRecorded) {
    run([] {
        Faults::arm({.call = "socket", .occurrence = 3});
        vosDebugConfig(0);
        EXPECT_EQ(init(3), VOS_ERROR);
        EXPECT_TRUE(Faults::disarm());
        EXPECT_NE(g_vosFdProc, -1);
        EXPECT_NE(g_vosFdProcHigh, -1);
        EXPECT_EQ(g_vosFdNLUni, -1);
    });
}
