/* SPDX-License-Identifier: MIT */
/* What a started program inherits: standard output, and none of the message sockets. */
#include <fcntl.h>

#include "peer.h"

using namespace vostest;

namespace {

bool closesOnExec(int fd) {
    const int flags = fcntl(fd, F_GETFD);
    EXPECT_NE(flags, -1) << fd << " is not open";
    return (flags & FD_CLOEXEC) != 0;
}

/* The process's end of a pseudo-terminal. */
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
    [[nodiscard]] int master() const { return master_; }
    /* The argument of vosMsgDebugStdRedirect(). */
    [[nodiscard]] uint32_t number() const { return number_ + 1; }
    [[nodiscard]] std::string read() const {
        char text[256];
        const ssize_t count = ::read(master_, text, sizeof text);
        return count < 0 ? "nothing" : std::string(text, static_cast<std::size_t>(count));
    }

  private:
    int master_;
    uint32_t number_ = 0;
};

/* A started program that runs until the test ends it. It writes nothing to the output that it inherits. */
class Program {
  public:
    Program() { EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0); }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    ~Program() {
        close(ends_[0]);
        close(ends_[1]);
    }
    /* Returns when the program runs: until then it is a copy of its parent. */
    void start() const {
        int running[2] = {-1, -1};
        EXPECT_EQ(pipe2(running, O_CLOEXEC), 0);
        if (fork() == 0) {
            dup2(ends_[0], STDIN_FILENO);
            dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
            execl("/bin/cat", "cat", nullptr);
            _exit(127);
        }
        close(running[1]);
        char byte = 0;
        EXPECT_EQ(read(running[0], &byte, 1), 0);
        close(running[0]);
    }

  private:
    int ends_[2] = {-1, -1};
};

/* Opens every kind of message socket that this process may have. */
void openEverything() {
    int reserved = 0;
    int32_t thread = -1;
    openChannel("A", VOS_MSG_OPEN_LOCAL | VOS_MSG_OPEN_NETLINK);
    vosDebugConfig(0);
    EXPECT_EQ(vosMsgInit2("second", 1, &reserved), VOS_OK);
    EXPECT_EQ(vosMsgThreadInit("A", 7, &thread, 0), VOS_OK);
}

}  // namespace

TEST(Inheritance, TheNamesOfADeadProcessAreFreeWhileAProgramThatItStartedRuns) {
    const Program program;
    Process server = start([&] {
        freshWorld();
        openEverything();
        program.start();
        ready();
        pause();
    });
    server.awaitReady();
    server.send(SIGKILL);
    server.finish();
    run([] {
        char text[] = "ping";
        uint32_t code = 0;
        vosDebugConfig(0);
        const auto refused = [](int32_t result) {
            EXPECT_EQ(result, VOS_ERROR);
            EXPECT_EQ(errno, ECONNREFUSED);
        };
        refused(vosMsgSend("A", text, 4, 0, &code, 20000, 0));
        refused(vosMsgSend("A", text, 4, 0, &code, 20000, VOS_MSG_TO_HIGH));
        refused(vosMsgSend("second", text, 4, 0, &code, 20000, 0));
        refused(vosMsgThreadSend("A", 7, text, 4, 0, &code, 20000, 0));
        refused(vosMsgDebugVos("A", 2));
    });
}

TEST(Inheritance, EverySocketIsClosedByAProgramThatIsStarted) {
    run([] {
        freshWorld();
        openEverything();
        for (const int fd : {g_vosFdProc, g_vosFdProcHigh, g_vosFdNLUni, g_vosFdProc_thread, g_vosFdProcHigh_thread})
            EXPECT_TRUE(closesOnExec(fd)) << fd;
        int32_t thread = -1;
        EXPECT_EQ(vosMsgThreadInit("A", 8, &thread, 1), VOS_OK);
        EXPECT_TRUE(closesOnExec(thread));
        const int fd = vosMsgLocalSocket(3000);
        EXPECT_TRUE(closesOnExec(fd));
        close(fd);
    });
}

TEST(Inheritance, ARedirectedStandardOutputIsInheritedAndTheCopiesAreNot) {
    run([] {
        const Terminal terminal;
        EXPECT_EQ(vosMsgDebugStdRedirect(VOS_MSG_STDOUT_TERMINAL, terminal.number()), VOS_OK);
        EXPECT_FALSE(closesOnExec(STDOUT_FILENO));
        int kept = 0;
        for (int fd = 3; fd < 64; ++fd)
            if (fd != terminal.master() && fcntl(fd, F_GETFD) != -1 && isatty(fd) == 1 && ttyname(fd) != nullptr &&
                strcmp(ttyname(fd), ttyname(STDOUT_FILENO)) == 0) {
                EXPECT_TRUE(closesOnExec(fd)) << fd;
                ++kept;
            }
        EXPECT_EQ(kept, 1);
        EXPECT_EQ(system("printf told"), 0);
        EXPECT_EQ(terminal.read(), "told");
    });
}

TEST(Inheritance, TheSavedStandardOutputIsNotInheritedAndComesBackInheritable) {
    const Outcome outcome = run([] {
        const Terminal terminal;
        const int saved = dup(STDOUT_FILENO); /* the number that the copy will get */
        close(saved);
        EXPECT_EQ(vosMsgDebugStdRedirect(VOS_MSG_STDOUT_TERMINAL, terminal.number()), VOS_OK);
        EXPECT_TRUE(closesOnExec(saved));
        EXPECT_EQ(vosMsgDebugStdRedirect(VOS_MSG_STDOUT_RESTORE, 0), VOS_OK);
        EXPECT_FALSE(closesOnExec(STDOUT_FILENO));
        EXPECT_EQ(system("printf back"), 0);
    });
    EXPECT_EQ(outcome.output, "back");
}

TEST(Inheritance, ATerminalThatBecomesDescriptorOneAtOnceIsInheritedToo) {
    const Outcome outcome = run([] {
        const Terminal terminal;
        EXPECT_EQ(vosMsgDebugStdRedirect(VOS_MSG_STDOUT_TERMINAL, terminal.number()), VOS_OK);
        close(STDOUT_FILENO); /* the next descriptor that is opened gets this number */
        EXPECT_EQ(vosMsgDebugStdRedirect(VOS_MSG_STDOUT_TERMINAL, terminal.number()), VOS_OK);
        EXPECT_FALSE(closesOnExec(STDOUT_FILENO));
        EXPECT_EQ(system("printf told"), 0);
        EXPECT_EQ(terminal.read(), "told");
        EXPECT_EQ(vosMsgDebugStdRedirect(VOS_MSG_STDOUT_RESTORE, 0), VOS_OK);
        vosPrintf("back");
    });
    EXPECT_EQ(outcome.output, "back");
}

TEST(Inheritance, ARedirectionDoesNotMakeTheTerminalTheControllingOne) {
    run([] {
        const Terminal terminal;
        EXPECT_NE(setsid(), -1); /* a session leader gets one by opening it */
        EXPECT_EQ(vosMsgDebugStdRedirect(VOS_MSG_STDOUT_TERMINAL, terminal.number()), VOS_OK);
        EXPECT_EQ(open("/dev/tty", O_WRONLY), -1);
        EXPECT_EQ(errno, ENXIO);
    });
}
