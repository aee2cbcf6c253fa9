/* SPDX-License-Identifier: MIT */
/* The registry of descriptors changes while a receive loop serves them. A handler must run only for a descriptor that
 * was found readable in this wake-up and has been registered ever since. */
#include <fcntl.h>

#include <map>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/* The handler calls in order: the name of the descriptor, and whether there was a byte to read. */
std::vector<std::string> seen;
std::map<std::string, std::function<void()>> onCall;

int32_t take(int32_t fd, void *argument) {
    const std::string name = static_cast<const char *>(argument);
    char byte = 0;
    seen.push_back(read(fd, &byte, 1) == 1 ? name : name + " for nothing");
    const auto action = onCall.find(name);
    if (action != onCall.end()) action->second();
    return 0;
}

/* A pipe whose reading end does not block. */
struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() { EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0); }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    void fill() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    [[nodiscard]] int fd() const { return ends[0]; }
};

void add(int fd, const char *name) { EXPECT_EQ(vosMsgSockAdd(fd, take, const_cast<char *>(name)), VOS_OK); }

VOS_MSG_USER_SOCKET node(const Pipe &pipe, const char *name) {
    return {nullptr, pipe.fd(), take, const_cast<char *>(name)};
}

/* Closes the descriptor and opens another pipe, with nothing to read, under the same number. */
void reopen(const Pipe &pipe) {
    static const Pipe silent; /* stays open: a pipe without a writer is always readable */
    EXPECT_EQ(dup2(silent.fd(), pipe.fd()), pipe.fd());
}

/* What an application does when a session has ended and the next one gets the same descriptor. */
void replaceSession(const Pipe &pipe) {
    EXPECT_EQ(vosMsgSockDelete(pipe.fd()), VOS_OK);
    reopen(pipe);
    add(pipe.fd(), "new session");
}

/* Serves until no descriptor is readable, in the main loop or in the second one. */
using Loop = int32_t (*)(uint32_t, void *, uint32_t, uint32_t, VOS_MSG_PEER *);

void runDry(Loop receiveWith) {
    char room[100];
    VOS_MSG_PEER peer;
    EXPECT_EQ(receiveWith(0, room, sizeof room, 0, &peer), VOS_ERR_TIMEOUT);
}

/* Runs a scenario in each of the two loops that serve descriptors. */
void inBothLoops(const std::function<void(Loop)> &scenario) {
    for (const Loop receiveWith : {vosMsgRecv, vosMsgRecv2})
        run([&] {
            openChannel("A");
            vosDebugConfig(0);
            int reserved = 0;
            EXPECT_EQ(vosMsgInit2("B", 1, &reserved), VOS_OK);
            vosDebugConfig(VOS_DEBUG_ERROR);
            scenario(receiveWith);
        });
}

const char *normalPathOf(Loop receiveWith) { return receiveWith == vosMsgRecv ? "/tmp/vos/A" : "/tmp/vos/B"; }

}  // namespace

TEST(UserSocketChanges, ANodeThatAHandlerRemovesAndAddsAgainIsServedInALaterWakeUp) {
    inBothLoops([](Loop receiveWith) {
        const Pipe a;
        const Pipe b;
        static VOS_MSG_USER_SOCKET nodeOfA;
        static VOS_MSG_USER_SOCKET nodeOfB;
        nodeOfA = node(a, "a");
        nodeOfB = node(b, "b");
        EXPECT_EQ(vosMsgSockAddUser(&nodeOfA), VOS_OK);
        EXPECT_EQ(vosMsgSockAddUser(&nodeOfB), VOS_OK);
        onCall["b"] = [] {
            EXPECT_EQ(vosMsgSockDelUser(&nodeOfA), VOS_OK);
            EXPECT_EQ(vosMsgSockAddUser(&nodeOfA), VOS_OK);
        };
        a.fill();
        b.fill();
        runDry(receiveWith);
        EXPECT_THAT(seen, ElementsAre("b", "a"));
    });
}

TEST(UserSocketChanges, ANewDescriptorWithTheSameNumberIsNotServedForTheOldOne) {
    inBothLoops([](Loop receiveWith) {
        const Pipe session;
        const Pipe other;
        add(session.fd(), "old session");
        add(other.fd(), "other");
        onCall["other"] = [&] { replaceSession(session); };
        session.fill();
        other.fill();
        runDry(receiveWith);
        EXPECT_THAT(seen, ElementsAre("other"));
    });
}

TEST(UserSocketChanges, TheNewDescriptorIsServedWhenSomethingComes) {
    inBothLoops([](Loop receiveWith) {
        const Pipe session;
        const Pipe next;
        const Pipe other;
        add(session.fd(), "old session");
        add(other.fd(), "other");
        onCall["other"] = [&] {
            EXPECT_EQ(vosMsgSockDelete(session.fd()), VOS_OK);
            EXPECT_EQ(dup2(next.fd(), session.fd()), session.fd());
            add(session.fd(), "new session");
        };
        session.fill();
        other.fill();
        next.fill();
        runDry(receiveWith);
        EXPECT_THAT(seen, ElementsAre("other", "new session"));
    });
}

namespace {

std::function<void()> onEvent;

int32_t handleMac(uint32_t, uint32_t, uint32_t, void *) {
    onEvent();
    return 0;
}

}  // namespace

TEST(UserSocketChanges, ADescriptorThatTheHandlerOfAMessageReplacesIsNotServedForTheOldOne) {
    inBothLoops([](Loop receiveWith) {
        const Pipe session;
        add(session.fd(), "old session");
        onEvent = [&] { replaceSession(session); };
        vosMsgRegisterMac(handleMac);
        session.fill();
        EXPECT_TRUE(Peer{}.send(normalPathOf(receiveWith), message({.type = VOS_MSG_TYPE_MAC})));
        runDry(receiveWith);
        EXPECT_THAT(seen, IsEmpty());
    });
}

TEST(UserSocketChanges, ADescriptorThatATimerReplacesIsNotServedForTheOldOne) {
    inBothLoops([](Loop receiveWith) {
        const Pipe session;
        add(session.fd(), "old session");
        onEvent = [&] { replaceSession(session); };
        const VOS_MSG_TIMER_PROC expired = [](uint32_t, uint64_t) { onEvent(); };
        VOS_MSG_TIMER *timer = nullptr;
        EXPECT_EQ((receiveWith == vosMsgRecv ? vosTimerRegister : vosTimerRegister2)(0, 0, expired, &timer, 0), VOS_OK);
        session.fill();
        runDry(receiveWith);
        EXPECT_THAT(seen, IsEmpty());
    });
}

TEST(UserSocketChanges, ADescriptorThatAHandlerAddsIsServedInALaterWakeUp) {
    inBothLoops([](Loop receiveWith) {
        const Pipe a;
        const Pipe b;
        const Pipe added;
        add(a.fd(), "a");
        add(b.fd(), "b");
        onCall["b"] = [&] { add(added.fd(), "added"); };
        for (const Pipe *each : {&a, &b, &added}) each->fill();
        runDry(receiveWith);
        EXPECT_THAT(seen, ElementsAre("b", "a", "added"));
    });
}

TEST(UserSocketChanges, TheOthersAreServedInTheSameWakeUpWhateverTheFirstChanges) {
    inBothLoops([](Loop receiveWith) {
        const Pipe a;
        const Pipe b;
        const Pipe c;
        const Pipe busy;
        add(a.fd(), "a");
        add(b.fd(), "b");
        add(c.fd(), "c");
        add(busy.fd(), "busy");
        onCall["busy"] = [&] { /* always the first, always readable, and another list each time */
                               EXPECT_EQ(vosMsgSockDelete(busy.fd()), VOS_OK);
                               EXPECT_EQ(vosMsgSockDelete(b.fd()), seen.size() == 1 ? VOS_OK : VOS_ERROR);
                               add(busy.fd(), "busy");
                               if (seen.size() < 6) busy.fill();
        };
        for (const Pipe *each : {&a, &b, &c, &busy}) each->fill();
        runDry(receiveWith);
        EXPECT_THAT(seen, ElementsAre("busy", "c", "a", "busy", "busy", "busy"));
    });
}

TEST(UserSocketChanges, AHandlerMayRemoveAllDescriptors) {
    inBothLoops([](Loop receiveWith) {
        const int blocks = Faults::liveBlocks();
        const Pipe a;
        const Pipe b;
        const Pipe c;
        for (const Pipe *each : {&a, &b, &c}) {
            add(each->fd(), "any");
            each->fill();
        }
        onCall["any"] = [] {
            while (g_pUserSocketList != nullptr) EXPECT_EQ(vosMsgSockDelete(g_pUserSocketList->iFd), VOS_OK);
        };
        runDry(receiveWith);
        EXPECT_THAT(seen, ElementsAre("any"));
        EXPECT_EQ(Faults::liveBlocks(), blocks);
    });
}

/* A handler must not receive. Even if one does, no descriptor may be served twice. */
TEST(UserSocketChanges, ADescriptorThatAReceiveInsideAHandlerHasServedIsNotServedAgain) {
    inBothLoops([](Loop receiveWith) {
        const Pipe a;
        const Pipe b;
        add(a.fd(), "a");
        add(b.fd(), "b");
        onCall["b"] = [=] { runDry(receiveWith); };
        a.fill();
        b.fill();
        runDry(receiveWith);
        EXPECT_THAT(seen, ElementsAre("b", "a"));
    });
}

TEST(UserSocketChanges, AHandlerThatIsRemovedDuringTheWakeUpIsNotCalled) {
    inBothLoops([](Loop receiveWith) {
        const Pipe a;
        const Pipe b;
        static VOS_MSG_USER_SOCKET nodeOfA;
        nodeOfA = node(a, "a");
        EXPECT_EQ(vosMsgSockAddUser(&nodeOfA), VOS_OK);
        add(b.fd(), "b");
        onCall["b"] = [] { nodeOfA.pProc = nullptr; };
        a.fill();
        b.fill();
        runDry(receiveWith);
        EXPECT_THAT(seen, ElementsAre("b"));
        EXPECT_EQ(vosMsgSockDelUser(&nodeOfA), VOS_OK);
    });
}
