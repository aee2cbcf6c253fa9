/* SPDX-License-Identifier: MIT */
/* Debug output that another process changes. */
#include <fcntl.h>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/* Sends with `send` to the process's own channel and runs the receive loop until no message is left. */
void apply(const std::function<int32_t()> &send) {
    EXPECT_EQ(send(), VOS_OK);
    EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
}

/* A pseudo-terminal. What is written to it is read from the master. */
class Terminal {
  public:
    Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
        EXPECT_EQ(grantpt(master_), 0);
        EXPECT_EQ(unlockpt(master_), 0);
        char name[64] = {};
        EXPECT_EQ(ptsname_r(master_, name, sizeof name), 0);
        EXPECT_EQ(sscanf(name, "/dev/pts/%u", &number_), 1);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    ~Terminal() { close(master_); }
    [[nodiscard]] uint32_t number() const { return number_; }
    [[nodiscard]] std::string read() const {
        char text[256];
        const ssize_t count = ::read(master_, text, sizeof text);
        return count < 0 ? "nothing" : std::string(text, static_cast<std::size_t>(count));
    }

  private:
    int master_;
    uint32_t number_ = 0;
};

}  // namespace

TEST(DebugControl, TheFlagWordOfAnotherProcessIsSet) {
    Process server = start([] {
        openChannel("A");
        ready();
        receive();
    });
    server.awaitReady();
    run([] {
        EXPECT_EQ(vosMsgDebugVos("A", 6), VOS_OK);
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("traced")));
    });
    EXPECT_THAT(server.finish().messages(),
                testing::IsSupersetOf({"vosMsgRecvStream:start.", "vosMsgRecv:receive VOS_MSG_TYPE_SELF."}));
}

TEST(DebugControl, TheSecondDebugWordIsStoredAndReturned) {
    run([] {
        EXPECT_EQ(vosMsgDebugSmdGet(), 0x805u);
        EXPECT_EQ(g_vosDebugSmdFlags, 2053u);
        EXPECT_EQ(vosMsgDebugSmdSet(0xFFFFFFFF), VOS_OK);
        EXPECT_EQ(vosMsgDebugSmdGet(), 0xFFFFFFFFu);
        openChannel("A");
        apply([] { return vosMsgDebugSmd("A", 77); });
        EXPECT_EQ(g_vosDebugSmdFlags, 77u);
    });
}

TEST(DebugControl, TheMessagesAreBareHeadersFromAnUnnamedSocketToTheNormalOne) {
    run([] {
        Peer normal{"/tmp/vos/A"};
        EXPECT_EQ(vosMsgDebugVos("dir/A", 6), VOS_OK);
        EXPECT_EQ(normal.receive(), message({.type = 5, .value1 = 6}));
        EXPECT_EQ(normal.sender, "");
        EXPECT_EQ(vosMsgDebugSmd("A", 7), VOS_OK);
        EXPECT_EQ(normal.receive(), message({.type = 6, .value1 = 7}));
        EXPECT_EQ(vosMsgDebugMsgSend("A", 7, 1, 3), VOS_OK);
        EXPECT_EQ(normal.receive(), message({.type = 7, .value1 = 1, .value2 = 3}));
    });
}

TEST(DebugControl, EachSenderMakesTheseCallsAndLogsUnderItsOwnName) {
    const std::pair<std::string, std::function<int32_t()>> senders[] = {
        {"vosMsgDebugVos", [] { return vosMsgDebugVos("A", 6); }},
        {"vosMsgDebugSmd", [] { return vosMsgDebugSmd("A", 6); }},
        {"vosMsgDebugMsgSend", [] { return vosMsgDebugMsgSend("A", 7, 0, 0); }},
    };
    for (const auto &[name, send] : senders) {
        const Outcome traced = run([&, send = send] {
            freshWorld();
            stay("/tmp/vos/A");
            vosDebugConfig(VOS_DEBUG_TRACE);
            EXPECT_THAT(Faults::record([&] { send(); }),
                        ElementsAre("socket", "setsockopt", "setsockopt", "sendto", "close"));
        });
        EXPECT_THAT(traced.messages(),
                    ElementsAre(testing::MatchesRegex(name + ":create socket [0-9]+\\."), "vosMsgSendStream:start.",
                                "vosMsgSendStream:end return 32.", name + ":end return 0."));
        const auto attempts = failEachCall(
            [] {
                freshWorld();
                stay("/tmp/vos/A");
            },
            [&, send = send] { return long{send()}; });
        expectNothingKept({at(attempts, "socket#1"), at(attempts, "sendto#1")});
        EXPECT_EQ(at(attempts, "socket#1").result, VOS_ERROR);
        EXPECT_THAT(at(attempts, "socket#1").messages, ElementsAre(name + ":vosMsgLocalSocket failed."));
        EXPECT_EQ(at(attempts, "sendto#1").result, VOS_ERROR);
        EXPECT_THAT(at(attempts, "sendto#1").messages,
                    ElementsAre(errnoLine("vosMsgSendStream:sendto", EIO), name + ":vosMsgSendStream failed."));
        EXPECT_EQ(at(attempts, "close#1").result, VOS_OK);
    }
}

TEST(DebugControl, AReceiverThatDoesNotRunFailsTheSend) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosMsgDebugVos("nobody", 6), VOS_ERROR);
        EXPECT_EQ(vosMsgDebugVos(nullptr, 6), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre(errnoLine("vosMsgSendStream:sendto", ENOENT), "vosMsgDebugVos:vosMsgSendStream failed.",
                            "vosMsgDebugVos:parameter error."));
}

TEST(DebugControl, ANameTooLongForTheAddressFailsTheSendAndReachesNoProcess) {
    for (const std::size_t length : {99u, 118u, 300u}) {
        const Outcome outcome = run([=] {
            freshWorld();
            const Peer other{"/tmp/vos/" + std::string(98, 'n')};
            EXPECT_EQ(vosMsgDebugVos(std::string(length, 'n').c_str(), 6), VOS_ERROR);
            EXPECT_EQ(errno, EINVAL);
            EXPECT_FALSE(other.hasMail());
        });
        EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgSendStream:sendto", EINVAL),
                                                    "vosMsgDebugVos:vosMsgSendStream failed."));
    }
}

TEST(Redirection, OutputGoesToThePseudoTerminalAndBack) {
    const Outcome outcome = run([] {
        openChannel("A");
        const Terminal terminal;
        vosPrintf("before,");
        apply([&] { return vosMsgDebugMsgSend("A", 7, 1, terminal.number() + 1); });
        vosPrintf("on the terminal");
        EXPECT_EQ(terminal.read(), "on the terminal");
        apply([] { return vosMsgDebugMsgSend("A", 7, 0, 0); });
        vosPrintf("after");
        apply([&] { return vosMsgDebugMsgSend("A", 7, 1, terminal.number() + 1); });
        vosPrintf("again");
        EXPECT_EQ(terminal.read(), "again");
    });
    EXPECT_EQ(outcome.output, "before,after");
}

TEST(Redirection, EachKeepsOneMoreDescriptor) {
    run([] {
        const Terminal terminal;
        const auto open = [] {
            int count = 0;
            for (int fd = 0; fd < 256; ++fd) count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
            return count;
        };
        const int before = open();
        EXPECT_EQ(vosMsgDebugStdRedirect(1, terminal.number() + 1), VOS_OK);
        EXPECT_EQ(open(), before + 2); /* the saved copy and the terminal */
        EXPECT_EQ(vosMsgDebugStdRedirect(1, terminal.number() + 1), VOS_OK);
        EXPECT_EQ(open(), before + 3);
        EXPECT_EQ(vosMsgDebugStdRedirect(0, 0), VOS_OK);
        EXPECT_EQ(open(), before + 3);
    });
}

TEST(Redirection, BadActionsAndARestoreWithNothingSavedFailWithoutALine) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosMsgDebugStdRedirect(2, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgDebugStdRedirect(0xFFFFFFFF, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgDebugStdRedirect(0, 0), VOS_ERROR);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(vosMsgDebugStdRedirect(1, 0), VOS_ERROR); /* there is no console here */
        EXPECT_EQ(vosMsgDebugStdRedirect(1, 4000000000u), VOS_ERROR);
        printf("still here");
    });
    EXPECT_EQ(outcome.output, "still here");
}

TEST(Redirection, EachFailingCallIsMinusOneAndClosesTheTerminal) {
    const Terminal terminal;
    const auto attempts = failEachCall([] {}, [&] { return long{vosMsgDebugStdRedirect(1, terminal.number() + 1)}; });
    ASSERT_EQ(attempts.size(), 3u);
    for (const Attempt &each : attempts) {
        EXPECT_EQ(each.result, VOS_ERROR);
        EXPECT_THAT(each.messages, IsEmpty());
    }
    EXPECT_EQ(at(attempts, "fcntl#1").descriptorsKept, 0);
    EXPECT_EQ(at(attempts, "open#1").descriptorsKept, 1); /* the saved copy is used by a later redirection */
    EXPECT_EQ(at(attempts, "dup2#1").descriptorsKept, 1);
}

TEST(Redirection, WithoutAFreeDescriptorItFailsAndOutputStays) {
    const Outcome outcome = run([] {
        const Terminal terminal;
        while (dup(STDIN_FILENO) != -1) continue;
        const auto redirect = [&] { return vosMsgDebugStdRedirect(1, terminal.number() + 1); };
        EXPECT_EQ(redirect(), VOS_ERROR); /* no copy of standard output */
        EXPECT_EQ(errno, EMFILE);
        EXPECT_EQ(vosMsgDebugStdRedirect(0, 0), VOS_ERROR);
        close(1000);
        EXPECT_EQ(redirect(), VOS_ERROR); /* the copy takes the only free descriptor */
        EXPECT_EQ(errno, EMFILE);
        close(1001);
        EXPECT_EQ(redirect(), VOS_OK);
        EXPECT_EQ(vosMsgDebugStdRedirect(0, 0), VOS_OK);
        printf("still here");
        fflush(stdout);
        _exit(testing::Test::HasFailure()); /* the run time of a sanitizer needs descriptors in exit() */
    });
    EXPECT_EQ(outcome.output, "still here");
}
