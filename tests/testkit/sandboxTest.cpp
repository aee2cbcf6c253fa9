/* SPDX-License-Identifier: MIT */
/* The sandbox in which every test runs, seen from inside. */
#include <gmock/gmock.h>
#include <ifaddrs.h>
#include <linux/capability.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/child.h"

namespace fs = std::filesystem;
using testing::IsEmpty;

namespace {

std::vector<std::string> entriesOf(const char *directory) {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator{directory}) names.push_back(entry.path().filename());
    return names;
}

/* Permitted and effective, as the kernel shows them. */
uint64_t heldCapabilities() {
    uint64_t held = 0;
    std::ifstream status{"/proc/self/status"};
    for (std::string word; status >> word;)
        if (word == "CapPrm:" || word == "CapEff:") {
            status >> word;
            held |= std::stoull(word, nullptr, 16);
        }
    return held;
}

bool binds(const sockaddr *address, socklen_t length) {
    const int fd = socket(address->sa_family, SOCK_STREAM, 0);
    const bool bound = bind(fd, address, length) == 0;
    close(fd);
    return bound;
}

}  // namespace

TEST(Sandbox, FlashAndAppAreEmptyAndWritable) {
    for (const char *const directory : {"/flash", "/app"}) {
        EXPECT_THAT(entriesOf(directory), IsEmpty()) << directory;
        std::ofstream{std::string(directory) + "/probe"} << "x";
        EXPECT_EQ(fs::file_size(std::string(directory) + "/probe"), 1u);
    }
}

TEST(Sandbox, TheTemporaryDirectoryHoldsNothingOfTheMachine) {
    for (const auto &name : entriesOf("/tmp")) /* at most the path of this checkout, when it is there */
        EXPECT_TRUE(vostest::testPrograms().starts_with("/tmp/" + name)) << name;
}

TEST(Sandbox, EtcIsItsOwnAndHasNoLocaltime) {
    EXPECT_FALSE(fs::exists("/etc/localtime"));
    EXPECT_FALSE(fs::exists("/etc/machine-id"));
    std::ofstream{"/etc/TZ"} << "UTC0";
    EXPECT_TRUE(fs::exists("/etc/TZ"));
}

TEST(Sandbox, TunablesCanBeWrittenAndReadBack) {
    for (const char *const name :
         {"vm/overcommit_memory", "kernel/core_uses_pid", "kernel/core_pattern", "fs/suid_dumpable",
          "net/core/wmem_max", "net/core/rmem_max", "net/unix/max_dgram_qlen"}) {
        const std::string path = std::string("/proc/sys/") + name;
        std::ofstream{path} << "4242";
        std::string value;
        std::ifstream{path} >> value;
        EXPECT_EQ(value, "4242") << name;
    }
}

TEST(Sandbox, ProcessIdsAreItsOwn) {
    EXPECT_LT(getpid(), 1000);
    EXPECT_TRUE(fs::exists("/proc/1"));
}

TEST(Sandbox, LoopbackIsUpAndTheOnlyInterface) {
    ifaddrs *first = nullptr;
    ASSERT_EQ(getifaddrs(&first), 0);
    for (const ifaddrs *each = first; each != nullptr; each = each->ifa_next) {
        EXPECT_STREQ(each->ifa_name, "lo");
        EXPECT_NE(each->ifa_flags & IFF_UP, 0u);
    }
    freeifaddrs(first);
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_TRUE(binds(reinterpret_cast<sockaddr *>(&v4), sizeof v4));
    sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    v6.sin6_addr = in6addr_loopback;
    EXPECT_TRUE(binds(reinterpret_cast<sockaddr *>(&v6), sizeof v6));
}

TEST(Sandbox, TheHostNameIsItsOwnAndMayBeChanged) {
    EXPECT_EQ(sethostname("probe", 5), 0);
    utsname names{};
    ASSERT_EQ(uname(&names), 0);
    EXPECT_STREQ(names.nodename, "probe");
}

TEST(Sandbox, SharedMemoryIsItsOwn) {
    shm_info info{};
    ASSERT_GE(shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds *>(&info)), 0);
    EXPECT_EQ(info.used_ids, 0);
}

TEST(Sandbox, TheRightsToSetTheClockToRebootAndToLoadModulesAreGivenUp) {
    const uint64_t held = heldCapabilities();
    for (const int right : {CAP_SYS_TIME, CAP_WAKE_ALARM, CAP_SYS_BOOT, CAP_SYS_MODULE}) {
        EXPECT_EQ(held >> right & 1, 0u) << right;
        EXPECT_EQ(prctl(PR_CAPBSET_READ, right), 0) << right;
    }
    EXPECT_EQ(held >> CAP_SYS_ADMIN & 1, 1u) << "namespaces are made by the tests";
}

TEST(Sandbox, ThereIsNoConsoleButThereArePseudoTerminals) {
    EXPECT_FALSE(fs::exists("/dev/console"));
    EXPECT_TRUE(fs::exists("/dev/ptmx"));
    EXPECT_TRUE(fs::exists("/dev/null"));
}

TEST(Sandbox, TheMachinesOwnFilesCannotBeWritten) {
    EXPECT_FALSE(std::ofstream{"/usr/probe"}.is_open());
    EXPECT_FALSE(std::ofstream{"/bin/probe"}.is_open());
}
