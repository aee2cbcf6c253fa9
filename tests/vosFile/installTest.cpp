/* SPDX-License-Identifier: MIT */
#include <sys/mount.h>

#include <csignal>

#include "vosFile/images.h"

using namespace vostest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const char *const kBootDevice = "/tmp/mtdblock0";
constexpr uint32_t kTrace = VOS_DEBUG_ERROR | VOS_DEBUG_TRACE;
const std::string kNew = applicationImage("new");

void putReleased() {
    putApplication("old");
    putFile(kVersion, named("1.0"));
    std::filesystem::remove(kBackup);
    std::filesystem::remove(kBackupVersion);
}

long installNew() { return installApplication(kNew); }

void putBootDevice() {
    putApplication();
    putFile(kBootDevice, std::string(64, '.'));
    szBootLoaderFileName = kBootDevice;
}

}  // namespace

TEST(AppWrite, TheImageIsInstalledWithItsHeaderAndTheEarlierOneIsTheBackup) {
    putReleased();
    const std::string old = fileContent(kApplication);
    const Outcome outcome = run([] { EXPECT_EQ(installNew(), VOS_OK); });
    EXPECT_THAT(outcome.messages(), IsEmpty());
    EXPECT_EQ(fileContent(kApplication), kNew);
    EXPECT_EQ(fileContent(kBackup), old);
    EXPECT_EQ(fileContent(kBackupVersion), named("1.0"));
    EXPECT_FALSE(present(kVersion));
}

TEST(AppWrite, WithoutAVersionFileNoBackupIsMade) {
    putApplication("a longer image than the new one");
    run([] { EXPECT_EQ(installNew(), VOS_OK); });
    EXPECT_EQ(fileContent(kApplication), kNew);
    EXPECT_FALSE(present(kBackup));
}

TEST(AppWrite, AnUnsoundImageChangesNothing) {
    putReleased();
    const std::string old = fileContent(kApplication);
    run([] {
        std::string image = kNew;
        image.back() ^= 1;
        EXPECT_EQ(installApplication(image), VOS_ERR_IMAGE_CRC);
        EXPECT_EQ(installApplication(bootImage("boot")), VOS_ERR_IMAGE_TYPE);
        for (uint32_t length = 0; length < 16; ++length)
            EXPECT_EQ(vosFileAppWrite(raw(kNew), length), VOS_ERROR) << length;
    });
    EXPECT_EQ(fileContent(kApplication), old);
    EXPECT_TRUE(present(kVersion));
    EXPECT_FALSE(present(kBackup));
}

TEST(AppWrite, NullIsRefusedAndTheStepsAreTraced) {
    putApplication();
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        EXPECT_EQ(vosFileAppWrite(nullptr, 5), VOS_ERR_PARAM);
        EXPECT_EQ(installNew(), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileAppWrite:start ulBufLen 5.", "vosFileAppWrite:parameter error.",
                                                "vosFileAppWrite:start ulBufLen 19.", "vosFileAppWrite:end return 0."));
}

TEST(AppWrite, ItIsFlushedInOrderAfterTheLockIsReleased) {
    putApplication();
    run([] {
        EXPECT_THAT(Faults::record([] { installNew(); }),
                    ElementsAre("open", "read", "close", "access", "open", "flock", "write", "flock", "fsync", "syncfs",
                                "close"));
    });
}

TEST(AppWrite, AShortWriteFails) {
    const Attempt attempt = failCall(
        {.call = "write", .shortTo = 5}, [] { putApplication(); }, installNew);
    EXPECT_EQ(attempt.result, VOS_ERROR);
    EXPECT_THAT(attempt.messages, ElementsAre("vosFileAppWrite:write app file need 19 but only write 5."));
    EXPECT_EQ(fileContent(kApplication), kNew.substr(0, 5));
}

TEST(AppWrite, EachFailingCallOfTheInstallation) {
    const auto attempts = failEachCall([] { putApplication(); }, installNew);
    expectNothingKept(attempts);
    expectLines(attempts, "open#1", VOS_ERROR, {failedLine("vosFileImageCheck:open app file")});
    expectLines(attempts, "read#1", VOS_ERROR, {failedLine("vosFileImageCheck:read app file")});
    expectLines(attempts, "access#1", VOS_OK, {});
    expectLines(attempts, "open#2", VOS_ERROR, {failedLine("vosFileAppWrite:open app file")});
    expectLines(attempts, "flock#1", VOS_OK, {failedLine("vosFileAppWrite:lock app file")});
    expectLines(attempts, "write#1", VOS_ERROR, {failedLine("vosFileAppWrite:write app file")});
    expectLines(attempts, "flock#2", VOS_OK, {failedLine("vosFileAppWrite:unlock app file")});
    for (const char *const call : {"fsync#1", "syncfs#1", "close#1", "close#2"})
        expectLines(attempts, call, VOS_OK, {});
}

TEST(AppWrite, NoFailureOfTheBackupStopsTheInstallation) {
    const auto attempts = failEachCall(
        [] {
            vosProcessGetName(); /* reads the name from a file, only once */
            putReleased();
        },
        installNew);
    expectNothingKept(attempts);
    const std::string noBackup = "vosFileAppWrite:failed to backup application.";
    const std::string noVersion = "vosFileAppWrite:failed to backup application version.";
    expectLines(attempts, "access#1", VOS_OK, {}); /* of the version file: as if there were none */
    expectLines(attempts, "access#2", VOS_OK, {noBackup});
    expectLines(attempts, "malloc#1", VOS_OK, {"vosFileCopy:vosMalloc failed.", noBackup});
    expectLines(attempts, "open#2", VOS_OK, {failedLine("vosFileCopy:open file /app/hostImage.bin"), noBackup});
    expectLines(attempts, "open#3", VOS_OK, {failedLine("vosFileCopy:open file /flash/hostImage.bin.last"), noBackup});
    expectLines(attempts, "malloc#2", VOS_OK, {"vosFileCopy:vosMalloc failed.", noVersion});
    expectLines(attempts, "open#4", VOS_OK, {failedLine("vosFileCopy:open file /app/hostImage.bin.ver"), noVersion});
    expectLines(attempts, "open#5", VOS_OK,
                {failedLine("vosFileCopy:open file /flash/hostImage.bin.last.ver"), noVersion});
    expectLines(attempts, "remove#3", VOS_OK, {failedLine("vosFileDelete:remove file /app/hostImage.bin.ver")});
    for (const Attempt &each : attempts) {
        const std::string name = describe(each.point);
        if (name == "open#1" || name == "read#1" || name == "open#6" || name == "write#3") continue;
        EXPECT_EQ(each.result, VOS_OK) << name;
    }
    EXPECT_EQ(at(attempts, "open#6").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "write#3").result, VOS_ERROR);
}

TEST(AppWrite, ACutBetweenTheVersionAndTheImageLeavesTheOldOneWholeWithoutAVersion) {
    putReleased();
    const std::string old = fileContent(kApplication);
    const Outcome cut = run([] {
        Faults::arm({.call = "open", .occurrence = 6, .ends = true});
        installNew();
    });
    EXPECT_TRUE(cut.killedBy(SIGKILL));
    EXPECT_FALSE(present(kVersion));
    EXPECT_EQ(fileContent(kApplication), old);
    EXPECT_EQ(fileContent(kBackup), old) << "equal to its backup: the old one";
}

TEST(AppWrite, WithAnEmptyVersionFileTheBackupIsMade) {
    putReleased();
    putFile(kVersion, "");
    run([] { EXPECT_EQ(installNew(), VOS_OK); });
    EXPECT_TRUE(present(kBackup));
    EXPECT_EQ(fileContent(kBackupVersion), "");
}

TEST(AppWrite, TheVersionIsGoneAlsoWhenTheInstallationFailsAfterTheBackup) {
    const Attempt open = failCall({.call = "open", .occurrence = 6}, putReleased, installNew);
    EXPECT_EQ(open.result, VOS_ERROR);
    EXPECT_FALSE(present(kVersion));
    EXPECT_EQ(fileContent(kApplication), applicationImage("old")) << "not opened, so unchanged";
}

/* Neither a result nor a line reports that the backup is incomplete. Only a check of the backup shows it. */
TEST(AppWrite, AFullFlashCutsTheBackupShortWithoutALine) {
    const Outcome outcome = run([] {
        ASSERT_EQ(mount("none", "/flash", "tmpfs", 0, "size=64k"), 0) << strerror(errno);
        putApplication(std::string(200000, 'o'));
        putFile(kVersion, named("1.0"));
        EXPECT_EQ(installNew(), VOS_OK);
        EXPECT_EQ(fileContent(kApplication), kNew);
        EXPECT_EQ(fileContent(kBackup).size(), 65536u);
        EXPECT_FALSE(present(kVersion));
        EXPECT_EQ(vosFileImageCheckFile(2, kBackup), VOS_ERR_IMAGE_CRC);
        EXPECT_EQ(umount("/flash"), 0);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(AppWrite, AFailedBackupKeepsTheVersionFile) {
    failCall({.call = "malloc"}, putReleased, installNew);
    EXPECT_EQ(fileContent(kApplication), kNew);
    EXPECT_TRUE(present(kVersion));
}

TEST(VersionUpdate, TheTextIsWrittenWithItsNul) {
    run([] { EXPECT_EQ(vosFileAppVerUpdate("2.1"), VOS_OK); });
    EXPECT_EQ(fileContent(kVersion), named("2.1"));
}

TEST(VersionUpdate, NullAndEmptyTextsAreRefused) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosFileAppVerUpdate(nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosFileAppVerUpdate(""), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
    EXPECT_FALSE(present(kVersion));
}

TEST(VersionUpdate, APathOf252CharactersIsTheLongest) {
    const std::string longest = "/app/" + std::string(247, 'n'); /* with .ver a file name of 251 */
    ASSERT_EQ(longest.size(), 252u);
    const std::string longer = longest + 'n';
    const Outcome outcome = run([&] {
        szAppFileName = longest.c_str();
        EXPECT_EQ(vosFileAppVerUpdate("1"), VOS_OK);
        szAppFileName = longer.c_str();
        EXPECT_EQ(vosFileAppVerUpdate("1"), VOS_ERROR);
        szAppFileName = nullptr;
        EXPECT_EQ(vosFileAppVerUpdate("1"), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileAppVerUpdate:file name is too long.",
                                                "vosFileAppVerUpdate:file name is too long."));
    EXPECT_EQ(fileContent(longest + ".ver"), named("1"));
}

TEST(VersionUpdate, TheResultOfTheWriteIsReturned) {
    const auto attempts = failEachCall([] {}, [] { return vosFileAppVerUpdate("1"); });
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "open#1").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "write#1").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "fsync#1").result, VOS_OK);
}

TEST(BackupVersion, WithNoBackupTheFlagIsZeroAndTheTextEmpty) {
    run([] {
        int32_t exist = 7;
        std::string version(520, '.');
        EXPECT_EQ(vosFileAppBackupVerGet(&exist, version.data()), VOS_OK);
        EXPECT_EQ(exist, 0);
        EXPECT_EQ(version, std::string(513, '\0') + ".......");
    });
}

TEST(BackupVersion, IsThatOfTheBackupUpTo512Bytes) {
    putFile(kBackup, "x");
    putFile(kBackupVersion, named("1.0"));
    run([] {
        int32_t exist = 7;
        std::string version(513, '.');
        EXPECT_EQ(vosFileAppBackupVerGet(&exist, version.data()), VOS_OK);
        EXPECT_EQ(exist, 1);
        EXPECT_STREQ(version.c_str(), "1.0");
        putFile(kBackupVersion, std::string(600, 'v'));
        EXPECT_EQ(vosFileAppBackupVerGet(&exist, version.data()), VOS_OK);
        EXPECT_EQ(version, std::string(512, 'v') + '\0');
    });
}

TEST(BackupVersion, NullPointersAreRefused) {
    const Outcome outcome = run([] {
        int32_t exist = 7;
        std::string version(513, '.');
        EXPECT_EQ(vosFileAppBackupVerGet(&exist, nullptr), VOS_ERROR);
        EXPECT_EQ(exist, 7);
        EXPECT_EQ(vosFileAppBackupVerGet(nullptr, version.data()), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileAppBackupVerGet:parameter error."));
}

TEST(BackupVersion, EachFailingCallLeavesATerminatedText) {
    const auto attempts = failEachCall([] { putFile(kBackupVersion, "1.0"); },
                                       [] {
                                           int32_t exist = 7;
                                           std::string version(513, '.');
                                           const int32_t result = vosFileAppBackupVerGet(&exist, version.data());
                                           EXPECT_EQ(version.back(), '\0');
                                           return result;
                                       });
    expectNothingKept(attempts);
    for (const Attempt &each : attempts) EXPECT_EQ(each.result, VOS_OK);
}

TEST(BootWrite, TheImageIsWrittenFromTheStartOfTheDeviceAndTheRestStays) {
    putBootDevice();
    const std::string image = bootImage("boot");
    run([&] {
        putBootDevice();
        EXPECT_EQ(installBoot(image), VOS_OK);
    });
    EXPECT_EQ(fileContent(kBootDevice), image + std::string(64 - image.size(), '.'));
}

TEST(BootWrite, AMissingDeviceIsNotCreated) {
    putApplication();
    const Outcome outcome = run([] {
        szBootLoaderFileName = "/tmp/missing";
        EXPECT_EQ(installBoot(bootImage("boot")), VOS_ERROR);
        szBootLoaderFileName = nullptr;
        EXPECT_EQ(installBoot(bootImage("boot")), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(failedLine("vosFileBootWrite:open app file", ENOENT),
                                                failedLine("vosFileBootWrite:open app file", EFAULT)));
    EXPECT_FALSE(present("/tmp/missing"));
}

TEST(BootWrite, NullAndAnUnsoundImageAreRefusedAndTheWriteIsTracedAndNotFlushed) {
    const Outcome outcome = run([] {
        putBootDevice();
        EXPECT_EQ(vosFileBootWrite(nullptr, 5), VOS_ERR_PARAM);
        EXPECT_EQ(installBoot(kNew), VOS_ERR_IMAGE_TYPE);
        EXPECT_THAT(Faults::record([] { installBoot(bootImage("boot")); }),
                    ElementsAre("open", "read", "close", "open", "flock", "write", "flock", "close"));
        vosDebugConfig(kTrace);
        EXPECT_EQ(installBoot(bootImage("boot")), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosFileBootWrite:parameter error.", "vosFileBootWrite:start ulBufLen 20.",
                            "vosFileBootWrite:end return 0."));
}

TEST(BootWrite, EachFailingCallAndAShortWrite) {
    const auto install = [] { return long{installBoot(bootImage("boot"))}; };
    const auto attempts = failEachCall(putBootDevice, install);
    expectNothingKept(attempts);
    EXPECT_THAT(attempts, SizeIs(8));
    expectLines(attempts, "open#2", VOS_ERROR, {failedLine("vosFileBootWrite:open app file")});
    expectLines(attempts, "flock#1", VOS_OK, {failedLine("vosFileBootWrite:lock app file")});
    expectLines(attempts, "write#1", VOS_ERROR, {failedLine("vosFileBootWrite:write app file")});
    expectLines(attempts, "flock#2", VOS_OK, {failedLine("vosFileBootWrite:unlock app file")});
    expectLines(attempts, "close#2", VOS_OK, {});
    const Attempt shortened = failCall({.call = "write", .shortTo = 5}, putBootDevice, install);
    EXPECT_EQ(shortened.result, VOS_ERROR);
    EXPECT_THAT(shortened.messages, ElementsAre("vosFileBootWrite:write app file need 20 but only write 5."));
}
