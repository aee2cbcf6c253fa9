/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>
#include <sys/shm.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int32_t kReadWrite = 0;
constexpr int32_t kReadOnly = VOS_SHARE_READ_ONLY;
constexpr int32_t kCreate = VOS_SHARE_CREATE;
static_assert(kReadOnly == 1 && kCreate == 2);
const char *const kName = "/tmp/segment";

void nameSegment() { std::ofstream{kName}; }

char *share(uint32_t size, int32_t options) { return static_cast<char *>(vosMemoryShareGet(kName, 7, size, options)); }

}  // namespace

TEST(SharedMemory, APathThatDoesNotExistGivesNullAndTheFtokLine) {
    const Outcome outcome = run([] { EXPECT_EQ(vosMemoryShareGet("/tmp/missing", 7, 64, kCreate), nullptr); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMemoryShareGet:ftok failed errno:" + errnoText(ENOENT) + "."));
}

TEST(SharedMemory, CreateMakesTheSegmentAndEveryProcessSharesIt) {
    nameSegment();
    run([] {
        char *const segment = share(64, kCreate);
        ASSERT_NE(segment, nullptr);
        strcpy(segment, "from another process");
    });
    const Outcome reader = run([] { EXPECT_STREQ(share(64, kReadWrite), "from another process"); });
    EXPECT_THAT(reader.messages(), IsEmpty());
}

TEST(SharedMemory, WithoutCreateAMissingSegmentFailsAtShmgetWithNoEntry) {
    nameSegment();
    const Outcome outcome = run([] { EXPECT_EQ(share(64, kReadWrite), nullptr); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMemoryShareGet:shmget failed errno:" + errnoText(ENOENT) + "."));
}

TEST(SharedMemory, ReadOnlyAttachesAnExistingSegmentAndAWriteToItFaults) {
    nameSegment();
    run([] { strcpy(share(64, kCreate), "kept"); });
    const Outcome outcome = run([] {
        volatile char *const segment = share(64, kReadOnly);
        ASSERT_NE(segment, nullptr);
        EXPECT_EQ(segment[0], 'k');
        signal(SIGSEGV, SIG_DFL);
        segment[0] = 'x';
    });
    EXPECT_TRUE(outcome.killedBy(SIGSEGV));
}

TEST(SharedMemory, ASizeLargerThanAnExistingSegmentFailsAtShmgetAsInvalid) {
    nameSegment();
    run([] { EXPECT_NE(share(64, kCreate), nullptr); });
    const Outcome outcome = run([] { EXPECT_EQ(share(2 * 65536, kReadWrite), nullptr); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMemoryShareGet:shmget failed errno:" + errnoText(EINVAL) + "."));
}

TEST(SharedMemory, PermissionsAreOwnerReadOrOwnerReadAndGroupWrite) {
    nameSegment();
    const auto modeOf = [](int project, int32_t options) {
        EXPECT_NE(vosMemoryShareGet(kName, static_cast<uint8_t>(project), 64, options), nullptr);
        shmid_ds state{};
        EXPECT_EQ(shmctl(shmget(ftok(kName, project), 0, 0), IPC_STAT, &state), 0);
        return state.shm_perm.mode & 0777;
    };
    run([&] {
        EXPECT_EQ(modeOf(1, kCreate), 0420);
        EXPECT_EQ(modeOf(2, kCreate | kReadOnly), 0400);
    });
}

TEST(SharedMemory, EachFailingCallIsNamedInItsLine) {
    const auto attempts = failEachCall(nameSegment, [] { return share(64, kCreate) == nullptr ? -1L : 0L; });
    expectNothingKept(attempts);
    ASSERT_EQ(attempts.size(), 3u);
    for (const char *const call : {"ftok", "shmget", "shmat"}) {
        const Attempt &attempt = at(attempts, std::string(call) + "#1");
        EXPECT_EQ(attempt.result, -1);
        EXPECT_THAT(attempt.messages,
                    ElementsAre("vosMemoryShareGet:" + std::string(call) + " failed errno:" + errnoText(EIO) + "."));
    }
}

TEST(SharedMemory, ANullPathIsRefused) {
    const Outcome outcome = run([] { EXPECT_EQ(vosMemoryShareGet(nullptr, 7, 64, kCreate), nullptr); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMemoryShareGet:parameter error."));
}
