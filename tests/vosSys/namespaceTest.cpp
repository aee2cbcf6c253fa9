/* SPDX-License-Identifier: MIT */
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>
#include <barrier>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint16_t kPort = 4711;

sockaddr_in loopback() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void raiseLoopback() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request{};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    ASSERT_EQ(ioctl(fd, SIOCSIFFLAGS, &request), 0);
    close(fd);
}

/* Makes the namespace of a VRF, as the start-up of the device does. A thread enters a new namespace, binds it to a name
 * and ends. The loopback interface in it is up. */
void makeVrf(int number) {
    const std::string path = "/var/run/netns/ns" + std::to_string(number);
    std::ofstream{path};
    std::thread([&] {
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        raiseLoopback();
        ASSERT_EQ(mount("/proc/thread-self/ns/net", path.c_str(), nullptr, MS_BIND, nullptr), 0);
    }).join();
}

/* The namespace of the calling thread, as its inode number. */
ino_t here() {
    struct stat state {};
    stat("/proc/thread-self/ns/net", &state);
    return state.st_ino;
}

ino_t inVrf(uint32_t number) {
    int32_t saved = -1;
    EXPECT_EQ(vosSwitchToNetVrf(number, &saved), VOS_OK);
    const ino_t there = here();
    EXPECT_EQ(vosNetVrfRestore(saved), VOS_OK);
    return there;
}

int boundReceiver() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback();
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0) << strerror(errno);
    return fd;
}

void sendFrom(int fd, const std::string &text) {
    const sockaddr_in address = loopback();
    EXPECT_EQ(sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&address), sizeof address),
              static_cast<ssize_t>(text.size()));
}

std::string received(int fd) {
    char text[64] = {};
    const ssize_t length = recv(fd, text, sizeof text, 0);
    return {text, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

std::string errnoPair(int error) { return std::to_string(error) + " errstr " + strerror(error) + "."; }

int descriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto &each : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
}

}  // namespace

TEST(Vrf, AThreadEntersANamespaceAndReturns) {
    const Outcome outcome = run([] {
        makeVrf(3);
        const ino_t home = here();
        const int before = descriptors();
        int32_t saved = -1;
        ASSERT_EQ(vosSwitchToNetVrf(3, &saved), VOS_OK);
        EXPECT_GE(saved, 0);
        EXPECT_EQ(fcntl(saved, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_NE(here(), home);
        EXPECT_EQ(vosNetVrfRestore(saved), VOS_OK);
        EXPECT_EQ(here(), home);
        EXPECT_EQ(descriptors(), before);
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(Vrf, NumberZeroIsTheDefaultNamespaceAndThereIsNothingToSwitchTo) {
    const Outcome outcome = run([] {
        int32_t saved = 77;
        EXPECT_EQ(vosSwitchToNetVrf(0, &saved), VOS_ERR_PARAM);
        EXPECT_EQ(saved, -1);
        EXPECT_EQ(vosNetVrfRestore(saved), VOS_OK);
        EXPECT_EQ(vosNetVrfRestore(-77), VOS_OK);
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(Vrf, ANamespaceThatDoesNotExistPrintsItsPathAndLeaksNothing) {
    const Outcome outcome = run([] {
        vosDebugConfig(0); /* these lines are not filtered */
        const int before = descriptors();
        int32_t saved = 77;
        EXPECT_EQ(vosSwitchToNetVrf(3, &saved), VOS_ERROR);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(saved, -1);
        EXPECT_EQ(descriptors(), before);
        EXPECT_EQ(vosSwitchToNetVrf(0xFFFFFFFFU, &saved), VOS_ERROR);
    });
    EXPECT_EQ(outcome.output, "\r\nvosSwitchToNetVrf:open netns /var/run/netns/ns3 failed errno " + errnoPair(ENOENT) +
                                  "\r\nvosSwitchToNetVrf:open netns /var/run/netns/ns-1 failed errno " +
                                  errnoPair(ENOENT));
}

TEST(Vrf, AFileThatIsNoNamespaceCannotBeEntered) {
    const Outcome outcome = run([] {
        std::ofstream{"/var/run/netns/ns3"};
        const int before = descriptors();
        int32_t saved = 77;
        EXPECT_EQ(vosSwitchToNetVrf(3, &saved), VOS_ERROR);
        EXPECT_EQ(saved, -1);
        EXPECT_EQ(descriptors(), before);
    });
    EXPECT_THAT(outcome.output, testing::MatchesRegex("\r\nvosSwitchToNetVrf:setns [0-9]+ failed errno 22 errstr "
                                                      "Invalid argument\\."));
}

TEST(Vrf, TheSameAddressExistsInTwoVrfsAndASocketStaysWhereItWasMade) {
    run([] {
        makeVrf(1);
        makeVrf(2);
        int receiver[3];
        int sender[3];
        receiver[0] = boundReceiver();
        sender[0] = socket(AF_INET, SOCK_DGRAM, 0);
        for (const uint32_t vrf : {1U, 2U}) {
            int32_t saved = -1;
            ASSERT_EQ(vosSwitchToNetVrf(vrf, &saved), VOS_OK);
            receiver[vrf] = boundReceiver(); /* the address is free in each of them */
            sender[vrf] = vosSocket(AF_INET, SOCK_DGRAM, 0);
            ASSERT_EQ(vosNetVrfRestore(saved), VOS_OK);
        }
        const char *const text[] = {"at home", "in the first", "in the second"};
        for (const int vrf : {2, 0, 1}) sendFrom(sender[vrf], text[vrf]);
        for (const int vrf : {0, 1, 2}) EXPECT_EQ(received(receiver[vrf]), text[vrf]);
    });
}

TEST(Vrf, ThreadsSwitchIndependently) {
    run([] {
        constexpr uint32_t kVrfs = 4;
        std::array<ino_t, kVrfs + 1> namespaces{here()};
        for (uint32_t vrf = 1; vrf <= kVrfs; ++vrf) {
            makeVrf(static_cast<int>(vrf));
            namespaces.at(vrf) = inVrf(vrf);
        }
        std::barrier together{kVrfs + 1};
        std::vector<std::thread> threads;
        for (uint32_t vrf = 1; vrf <= kVrfs; ++vrf)
            threads.emplace_back([&, vrf] {
                for (int round = 0; round < 50; ++round) {
                    int32_t saved = -1;
                    EXPECT_EQ(vosSwitchToNetVrf(vrf, &saved), VOS_OK);
                    together.arrive_and_wait();
                    EXPECT_EQ(here(), namespaces.at(vrf));
                    together.arrive_and_wait();
                    EXPECT_EQ(vosNetVrfRestore(saved), VOS_OK);
                    EXPECT_EQ(here(), namespaces[0]);
                }
            });
        for (int round = 0; round < 50; ++round) {
            together.arrive_and_wait();
            EXPECT_EQ(here(), namespaces[0]) << "the main thread has not moved";
            together.arrive_and_wait();
        }
        for (auto &thread : threads) thread.join();
    });
}

TEST(Vrf, AThreadReturnsToItsOwnNamespaceAndNotToTheMainThreads) {
    run([] {
        makeVrf(1);
        makeVrf(2);
        const ino_t first = inVrf(1);
        const ino_t second = inVrf(2);
        std::thread([&] {
            int32_t home = -1;
            ASSERT_EQ(vosSwitchToNetVrf(1, &home), VOS_OK);
            int32_t saved = -1;
            ASSERT_EQ(vosSwitchToNetVrf(2, &saved), VOS_OK);
            EXPECT_EQ(here(), second);
            ASSERT_EQ(vosNetVrfRestore(saved), VOS_OK);
            EXPECT_EQ(here(), first);
            ASSERT_EQ(vosNetVrfRestore(home), VOS_OK);
        }).join();
    });
}

TEST(Vrf, SwitchesNestInTheMainThreadToo) {
    run([] {
        makeVrf(1);
        makeVrf(2);
        const ino_t home = here();
        const ino_t first = inVrf(1);
        int32_t outer = -1;
        int32_t inner = -1;
        ASSERT_EQ(vosSwitchToNetVrf(1, &outer), VOS_OK);
        ASSERT_EQ(vosSwitchToNetVrf(2, &inner), VOS_OK);
        EXPECT_EQ(vosNetVrfRestore(inner), VOS_OK);
        EXPECT_EQ(here(), first);
        EXPECT_EQ(vosNetVrfRestore(outer), VOS_OK);
        EXPECT_EQ(here(), home);
    });
}

TEST(Vrf, EveryFailingCallOfTheSwitchIsPrinted) {
    const auto attempts = failEachCall([] { makeVrf(3); },
                                       [] {
                                           const ino_t home = here();
                                           int32_t saved = 77;
                                           const int32_t result = vosSwitchToNetVrf(3, &saved);
                                           EXPECT_EQ(errno, result == VOS_OK ? errno : EIO);
                                           EXPECT_EQ(saved == -1, result != VOS_OK);
                                           EXPECT_EQ(here() == home, result != VOS_OK);
                                           if (saved >= 0) close(saved);
                                           return result;
                                       });
    expectNothingKept(attempts);
    ASSERT_EQ(attempts.size(), 4U);
    const std::string name = "\r\nvosSwitchToNetVrf:";
    EXPECT_EQ(at(attempts, "open#1").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "open#1").outcome.output, name + "open self netns failed errno " + errnoPair(EIO));
    EXPECT_EQ(at(attempts, "open#2").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "open#2").outcome.output,
              name + "open netns /var/run/netns/ns3 failed errno " + errnoPair(EIO));
    EXPECT_EQ(at(attempts, "setns#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "setns#1").outcome.output,
                testing::MatchesRegex(name + "setns [0-9]+ failed errno 5 errstr Input/output error\\."));
    EXPECT_EQ(at(attempts, "close#1").result, VOS_OK);
    EXPECT_EQ(at(attempts, "close#1").outcome.output, "");
}

TEST(Vrf, ARestoreThatCannotMoveTheThreadKeepsTheDescriptorForAnotherTry) {
    const Outcome outcome = run([] {
        makeVrf(3);
        const ino_t home = here();
        int32_t saved = -1;
        ASSERT_EQ(vosSwitchToNetVrf(3, &saved), VOS_OK);
        ASSERT_EQ(dup3(saved, 50, O_CLOEXEC), 50);
        Faults::arm({.call = "setns", .error = EPERM});
        EXPECT_EQ(vosNetVrfRestore(50), VOS_ERROR);
        EXPECT_EQ(errno, EPERM);
        EXPECT_TRUE(Faults::disarm());
        EXPECT_NE(here(), home);
        EXPECT_EQ(vosNetVrfRestore(50), VOS_OK);
        EXPECT_EQ(here(), home);
    });
    EXPECT_EQ(outcome.output, "\r\nvosNetVrfRestore:setns 50 failed errno " + errnoPair(EPERM));
}

TEST(Vrf, ARestoreWhoseCloseFailsMovesTheThreadAndReportsTheFailure) {
    const Outcome outcome = run([] {
        makeVrf(3);
        const ino_t home = here();
        int32_t saved = -1;
        ASSERT_EQ(vosSwitchToNetVrf(3, &saved), VOS_OK);
        ASSERT_EQ(dup3(saved, 50, O_CLOEXEC), 50);
        Faults::arm({.call = "close"});
        EXPECT_EQ(vosNetVrfRestore(50), VOS_ERROR);
        EXPECT_EQ(errno, EIO);
        EXPECT_TRUE(Faults::disarm());
        EXPECT_EQ(here(), home);
    });
    EXPECT_EQ(outcome.output, "\r\nvosNetVrfRestore:close 50 failed errno " + errnoPair(EIO));
}

TEST(Vrf, ANullPointerIsRefused) {
    const Outcome outcome = run([] { EXPECT_EQ(vosSwitchToNetVrf(3, nullptr), VOS_ERR_PARAM); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosSwitchToNetVrf:parameter error."));
}
