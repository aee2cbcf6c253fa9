/* SPDX-License-Identifier: MIT */
/* The application's own descriptors: the registry, and how the receive loop serves them. */
#include <fcntl.h>
#include <sys/resource.h>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> seen;
std::function<void(int32_t)> inHandler;

/* Reads one byte, so that the descriptor is not readable afterwards, and records the argument. */
int32_t note(int32_t fd, void *argument) {
    char byte = 0;
    EXPECT_EQ(read(fd, &byte, 1), 1);
    seen.push_back(static_cast<const char *>(argument));
    if (inHandler) inHandler(fd);
    return -1;
}

struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() { EXPECT_EQ(pipe(ends), 0); }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    void fill() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    [[nodiscard]] int fd() const { return ends[0]; }
};

void add(const Pipe &pipe, const char *name) {
    EXPECT_EQ(vosMsgSockAdd(pipe.fd(), note, const_cast<char *>(name)), VOS_OK);
}

void runDry() { EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT); }

}  // namespace

TEST(UserSocket, ADescriptorIsAddedOnceAndDeletedOnce) {
    const Outcome outcome = run([] {
        const int blocks = Faults::liveBlocks();
        EXPECT_EQ(vosMsgSockAdd(5, note, nullptr), VOS_OK);
        EXPECT_EQ(vosMsgSockAdd(5, note, nullptr), VOS_ERR_EXIST);
        EXPECT_EQ(vosMsgSockAdd(-1, note, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgSockAdd(0, nullptr, nullptr), VOS_OK);
        EXPECT_EQ(vosMsgSockDelete(5), VOS_OK);
        EXPECT_EQ(vosMsgSockDelete(5), VOS_ERROR);
        EXPECT_EQ(vosMsgSockDelete(0), VOS_OK);
        EXPECT_EQ(g_pUserSocketList, nullptr);
        EXPECT_EQ(g_vosUserSocketNum, 0u);
        EXPECT_EQ(Faults::liveBlocks(), blocks);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(UserSocket, ANodeOfTheCallersOwnIsListedAndUnlisted) {
    run([] {
        VOS_MSG_USER_SOCKET node{nullptr, 7, note, nullptr};
        VOS_MSG_USER_SOCKET twin{nullptr, 7, note, nullptr};
        VOS_MSG_USER_SOCKET other{nullptr, 8, note, nullptr};
        EXPECT_EQ(vosMsgSockAddUser(&node), VOS_OK);
        EXPECT_EQ(vosMsgSockAddUser(&node), VOS_ERR_EXIST);
        EXPECT_EQ(vosMsgSockAddUser(&twin), VOS_ERR_EXIST);
        EXPECT_EQ(vosMsgSockDelUser(&other), VOS_ERROR);
        EXPECT_EQ(g_pUserSocketList, &node);
        EXPECT_EQ(vosMsgSockAddUser(&other), VOS_OK);
        EXPECT_EQ(g_pUserSocketList, &other);
        EXPECT_EQ(other.pNext, &node);
        EXPECT_EQ(vosMsgSockDelUser(&node), VOS_OK);
        EXPECT_EQ(vosMsgSockDelUser(&other), VOS_OK);
        EXPECT_EQ(vosMsgSockDelUser(&other), VOS_ERROR);
        EXPECT_EQ(vosMsgSockDelUser(nullptr), VOS_ERROR);
    });
}

TEST(UserSocket, ANodeWhoseDescriptorWasAddedByNumberIsRefused) {
    run([] {
        EXPECT_EQ(vosMsgSockAdd(7, note, nullptr), VOS_OK);
        VOS_MSG_USER_SOCKET node{nullptr, 7, note, nullptr};
        EXPECT_EQ(vosMsgSockAddUser(&node), VOS_ERR_EXIST);
        EXPECT_EQ(vosMsgSockDelete(7), VOS_OK);
    });
}

TEST(UserSocket, TheNewestIsServedFirst) {
    run([] {
        openChannel("A");
        const Pipe a;
        const Pipe b;
        const Pipe c;
        add(a, "5");
        add(b, "6");
        add(c, "7");
        for (const Pipe *each : {&a, &b, &c}) each->fill();
        runDry();
        EXPECT_THAT(seen, ElementsAre("7", "6", "5"));
    });
}

TEST(UserSocket, ADescriptorThatStaysReadableIsServedInTheNextTurnAndTheCallDoesNotReturn) {
    run([] {
        openChannel("A");
        const Pipe a;
        add(a, "a");
        a.fill();
        a.fill();
        runDry();
        EXPECT_THAT(seen, ElementsAre("a", "a"));
    });
}

TEST(UserSocket, AnApplicationMessageIsReturnedBeforeTheyAreServed) {
    run([] {
        openChannel("A");
        const Pipe a;
        add(a, "a");
        a.fill();
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("first")));
        EXPECT_EQ(receive().bytes.substr(0, 5), "first");
        EXPECT_THAT(seen, IsEmpty());
        runDry();
        EXPECT_THAT(seen, ElementsAre("a"));
    });
}

TEST(UserSocket, AHandlerMayDeleteItsOwnNode) {
    run([] {
        openChannel("A");
        const Pipe a;
        const Pipe b;
        add(a, "a");
        add(b, "b");
        inHandler = [](int32_t fd) { EXPECT_EQ(vosMsgSockDelete(fd), VOS_OK); };
        a.fill();
        b.fill();
        runDry();
        EXPECT_THAT(seen, ElementsAre("b", "a"));
        EXPECT_EQ(g_pUserSocketList, nullptr);
    });
}

TEST(UserSocket, AHandlerMayDeleteTheNodeThatFollows) {
    run([] {
        openChannel("A");
        const Pipe a;
        const Pipe b;
        const Pipe c;
        add(a, "a");
        add(b, "b");
        add(c, "c");
        inHandler = [&](int32_t) { vosMsgSockDelete(b.fd()); };
        for (const Pipe *each : {&a, &b, &c}) each->fill();
        runDry();
        EXPECT_THAT(seen, ElementsAre("c", "a"));
    });
}

TEST(UserSocket, ANodeWithoutAHandlerIsListedAndNotWatched) {
    run([] {
        openChannel("A");
        const Pipe a;
        EXPECT_EQ(vosMsgSockAdd(a.fd(), nullptr, nullptr), VOS_OK);
        EXPECT_EQ(vosMsgSockAdd(a.fd(), note, nullptr), VOS_ERR_EXIST);
        a.fill();
        /* one wait, which the readable descriptor does not end */
        EXPECT_THAT(Faults::record([] { EXPECT_EQ(receive(100, 20).result, VOS_ERR_TIMEOUT); }), ElementsAre("select"));
        g_pUserSocketList->pProc = note;
        g_pUserSocketList->pArg = const_cast<char *>("now watched");
        runDry();
        EXPECT_THAT(seen, ElementsAre("now watched"));
    });
}

TEST(UserSocket, ADescriptorBeyondTheSelectRangeIsRefusedWithALine) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "scenario");
        EXPECT_EQ(vosMsgSockAdd(1023, note, nullptr), VOS_OK);
        EXPECT_EQ(vosMsgSockDelete(1023), VOS_OK);
        EXPECT_EQ(vosMsgSockAdd(1024, note, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgSockAdd(0x7FFFFFFF, note, nullptr), VOS_ERR_PARAM);
        for (const int32_t fd : {1024, -1}) {
            VOS_MSG_USER_SOCKET node{nullptr, fd, note, nullptr};
            EXPECT_EQ(vosMsgSockAddUser(&node), VOS_ERR_PARAM);
        }
        EXPECT_EQ(vosMsgSockAddUser(nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(g_pUserSocketList, nullptr);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgSockAdd:socket 1024 is out of select range.",
                                                "vosMsgSockAdd:socket 2147483647 is out of select range.",
                                                "vosMsgSockAddUser:socket 1024 is out of select range.",
                                                "vosMsgSockAddUser:socket -1 is out of select range.",
                                                "vosMsgSockAddUser:parameter error."));
}

TEST(UserSocket, ANodeWhoseDescriptorWasChangedBeyondTheRangeIsSkippedWithALine) {
    const Outcome outcome = run([] {
        openChannel("A");
        static VOS_MSG_USER_SOCKET node{nullptr, 7, note, nullptr};
        EXPECT_EQ(vosMsgSockAddUser(&node), VOS_OK);
        for (const int32_t fd : {1024, 0x7FFFFFFF, -5}) {
            node.iFd = fd;
            runDry();
        }
        EXPECT_EQ(vosMsgSockDelUser(&node), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgRecv:user socket 1024 is out of select range.",
                                                "vosMsgRecv:user socket 2147483647 is out of select range.",
                                                "vosMsgRecv:user socket -5 is out of select range."));
}

TEST(UserSocket, AListedNodeIsRefusedAsListedWhateverItsDescriptorHasBecome) {
    const Outcome outcome = run([] {
        VOS_MSG_USER_SOCKET node{nullptr, 7, note, nullptr};
        EXPECT_EQ(vosMsgSockAddUser(&node), VOS_OK);
        for (const int32_t fd : {1024, 2000, -3, 8}) {
            node.iFd = fd;
            EXPECT_EQ(vosMsgSockAddUser(&node), VOS_ERR_EXIST);
        }
        EXPECT_EQ(vosMsgSockDelUser(&node), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(UserSocket, AClosedDescriptorFailsTheWait) {
    const Outcome outcome = run([] {
        openChannel("A");
        const int closed = dup(0);
        close(closed);
        EXPECT_EQ(vosMsgSockAdd(closed, note, nullptr), VOS_OK);
        EXPECT_EQ(receive(100, 0).result, VOS_ERROR);
        EXPECT_EQ(vosMsgSockDelete(closed), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgRecv:select", EBADF)));
}

TEST(UserSocket, AFailedAllocationIsNamed) {
    const auto attempts =
        failEachCall([] { strcpy(szVosProcName, "scenario"); }, [] { return long{vosMsgSockAdd(5, note, nullptr)}; });
    ASSERT_EQ(attempts.size(), 1u);
    EXPECT_EQ(attempts[0].result, VOS_ERR_MEMORY);
    EXPECT_THAT(attempts[0].messages, ElementsAre("vosMsgSockAdd:malloc failed."));
    expectNothingKept(attempts);
}
