/* SPDX-License-Identifier: MIT */
/* The journal's record of an installation. */
#include <sys/stat.h>

#include <csignal>

#include "vosFile/journal.h"

using namespace vostest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::string kOld = applicationImage("the old application"), kNew = applicationImage("new");
const std::string kBootDevice = "/tmp/mtdblock0";

std::string recordName(const std::string &path = kApplication) { return entryName(path, ".image"); }

/* A record by its description. The header of an image is at its start or at its end. */
std::string recordOf(const std::string &path, const std::string &image, const std::string &header,
                     const std::string &old = "") {
    const std::string fixed = networkWord(0x4A494D47) + networkWord(1) + networkWord(size32(named(path))) +
                              networkWord(size32(image)) + header + networkWord(old.empty() ? 0 : 1) +
                              networkWord(size32(old)) + (old.empty() ? std::string(16, '\0') : old.substr(0, 16));
    return fixed + networkWord(imageCrc(fixed + named(path))) + named(path);
}
const std::string kRecord = recordOf(kApplication, kNew, kNew.substr(0, 16), kOld);

void useJournal() {
    szVosJournalDir = kJournal;
    vosProcessGetName(); /* is read from a file once */
}
void putReleased() {
    putState({{kApplication, kOld}, {kVersion, named("1.0")}});
    std::filesystem::remove(kJournal);
}
long installNew() { return installApplication(kNew); }

}  // namespace

TEST(ImageRecord, TellsWhatWasInstalledOverWhatAndStays) {
    putReleased();
    const Outcome outcome = run([] {
        useJournal();
        umask(0);
        EXPECT_EQ(installNew(), VOS_OK);
        EXPECT_EQ(vosFileAppVerUpdate("2.0"), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
    EXPECT_EQ(fileContent(recordName()), kRecord);
    EXPECT_EQ(modeOf(recordName()), 0600u);
    EXPECT_EQ(modeOf(kJournal), 0700u);
    EXPECT_THAT(journalFiles(), SizeIs(1));
    run([] {
        useJournal();
        EXPECT_EQ(installApplication(kOld), VOS_OK);
    });
    EXPECT_EQ(fileContent(recordName()), recordOf(kApplication, kOld, kOld.substr(0, 16), kNew));
}

TEST(ImageRecord, AnImageThatIsRefusedAndAPackageLeaveNone) {
    putReleased();
    run([] {
        useJournal();
        std::string torn = kNew;
        torn.back() ^= 1;
        EXPECT_EQ(installApplication(torn), VOS_ERR_IMAGE_CRC);
        EXPECT_EQ(installApplication(packageOf(0, "")), VOS_OK);
    });
    EXPECT_FALSE(present(kJournal));
}

TEST(ImageRecord, OfABootLoaderTellsNothingOfTheOldOne) {
    putReleased();
    const std::string image = bootImage("boot");
    run([&] {
        useJournal();
        putFile(kBootDevice, std::string(64, '.'));
        szBootLoaderFileName = kBootDevice.c_str();
        EXPECT_EQ(installBoot(image), VOS_OK);
    });
    EXPECT_EQ(fileContent(recordName(kBootDevice)), recordOf(kBootDevice, image, image.substr(4)));
}

TEST(ImageRecord, ComesBeforeAllOtherCallsOfTheInstallation) {
    putReleased();
    run([] {
        useJournal();
        mkdir(kJournal, 0700);
        std::filesystem::remove(kVersion);
        EXPECT_THAT(Faults::record([] { installNew(); }),
                    ElementsAre("open", "read", "close", "open", "fstat", "pread", "close", "open", "flock", "openat",
                                "write", "fsync", "close", "renameat", "fsync", "close", "access", "open", "flock",
                                "write", "flock", "fsync", "syncfs", "close"));
    });
}

TEST(ImageRecord, AFailureOfItIsLoggedAndStopsNoInstallation) {
    putReleased();
    const std::string failed = "vosFileAppWrite:journal of file /app/hostImage.bin failed errno:";
    for (const char *const call : {"openat", "write", "fsync", "renameat"}) {
        putReleased();
        std::filesystem::create_directory(kJournal);
        putFile(recordName(), "of an earlier installation");
        std::filesystem::remove(kVersion);
        const Attempt attempt = failCall({.call = call}, useJournal, installNew);
        EXPECT_EQ(attempt.result, VOS_OK) << call;
        EXPECT_THAT(attempt.messages, ElementsAre(HasSubstr(failed))) << call;
        EXPECT_THAT(attempt.messages[0], HasSubstr(", the installation is not recorded.")) << call;
        expectNothingKept({attempt});
        EXPECT_THAT(journalFiles(), IsEmpty()) << call;
        EXPECT_EQ(fileContent(kApplication), kNew) << call;
    }
    putReleased();
    putFile(kJournal, "no directory");
    const Outcome outcome = run([] {
        useJournal();
        std::filesystem::remove(kVersion);
        EXPECT_EQ(installNew(), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(failed + errnoText(ENOTDIR) + ", the installation is not recorded."));
}

TEST(ImageRecord, EachFailingCallGivesEverythingBack) {
    const auto prepare = [] {
        useJournal();
        putReleased();
        std::filesystem::create_directory(kJournal);
        std::filesystem::remove(kVersion);
    };
    const auto attempts = failEachCall(prepare, installNew);
    expectNothingKept(attempts);
    EXPECT_THAT(attempts, SizeIs(24));
    /* An old application that cannot be looked at is not named in the record. */
    for (const char *const call : {"open#2", "fstat#1", "pread#1"}) {
        EXPECT_EQ(at(attempts, call).result, VOS_OK) << call;
        EXPECT_THAT(at(attempts, call).messages, IsEmpty()) << call;
    }
}

TEST(ImageRecord, SomethingUnderItsNamesIsReplacedAndNotFollowed) {
    putReleased();
    putFile("/tmp/victim", "victim");
    std::filesystem::create_directory(kJournal);
    std::filesystem::create_symlink("/tmp/victim", recordName());
    std::filesystem::create_symlink("/tmp/victim", entryName(kApplication, ".part"));
    run([] {
        useJournal();
        EXPECT_EQ(installNew(), VOS_OK);
    });
    EXPECT_FALSE(std::filesystem::is_symlink(recordName()));
    EXPECT_EQ(fileContent(recordName()), kRecord);
    EXPECT_EQ(fileContent("/tmp/victim"), "victim");
}

/* Wherever the installation is killed: without a record nothing has been changed, and with it an application that is
 * neither the old nor the new one is recognised as a torn one. */
TEST(ImageRecord, WhereverTheInstallationIsKilledItTellsWhatLiesThere) {
    int before = 0, old = 0, torn = 0, whole = 0;
    for (int occurrence = 1, calls = 1; calls > 0; ++occurrence) {
        calls = 0;
        for (const char *const call : {"open", "openat", "read", "pread", "write", "fsync", "close", "renameat",
                                       "flock", "access", "remove", "fstat", "syncfs"}) {
            putReleased();
            const Outcome outcome = run([&] {
                useJournal();
                Faults::arm({.call = call, .occurrence = occurrence, .ends = true});
                installNew();
            });
            if (!outcome.killedBy(SIGKILL)) continue;
            ++calls;
            const std::string now = fileContent(kApplication);
            if (!present(recordName())) {
                EXPECT_EQ(now, kOld) << call << occurrence;
                EXPECT_TRUE(present(kVersion)) << call << occurrence;
                ++before;
                continue;
            }
            EXPECT_EQ(fileContent(recordName()), kRecord) << call << occurrence;
            (now == kOld ? old : now == kNew ? whole : torn) += 1;
        }
    }
    EXPECT_GT(before, 3);
    EXPECT_GT(old, 3);
    EXPECT_GT(torn, 0);
    EXPECT_GT(whole, 3);
}
