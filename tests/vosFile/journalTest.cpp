/* SPDX-License-Identifier: MIT */
/* The journal: what recovery does and logs, entries that other programs have made, a full flash. */
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "vosFile/journal.h"

using namespace vostest;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const char *const kPath = "/flash/data";
const std::string kRestored = "vosFileRead:file /flash/data restored from the journal.";
const std::string kNotUsed = "vosFileRead:journal entry of file /flash/data is not used, the file is another one.";
const std::string kNotValid = "vosFileRead:journal entry of file /flash/data is not valid.";
const std::string kRefused = "vosFileWrite_m:journal of file /flash/data failed errno:";

/* Reads the file in a process with the journal. */
std::vector<std::string> linesOfRead(const std::string &expected) {
    return run([&] {
               szVosJournalDir = kJournal;
               EXPECT_EQ(readFile(kPath), expected);
           })
        .messages();
}

/* Kills a save when the file has been truncated. */
void tear(const std::function<void()> &save) {
    const Outcome outcome = run([&] {
        szVosJournalDir = kJournal;
        Faults::arm({.call = "write", .ends = true});
        save();
    });
    EXPECT_TRUE(outcome.killedBy(SIGKILL));
    EXPECT_THAT(journalFiles(), SizeIs(1));
}
void tearFile() {
    putFile(kPath, kOldContent);
    tear([] { saveFile(kPath); });
    EXPECT_EQ(fileContent(kPath), "");
}

std::vector<std::string> linesOfSave(long expected) {
    return run([&] {
               szVosJournalDir = kJournal;
               EXPECT_EQ(saveFile(kPath), expected);
           })
        .messages();
}

/* Also when all tests run in one sandbox, each one begins with nothing on flash. */
class Journal : public testing::Test {
  protected:
    Journal() {
        emptyFlash();
        std::filesystem::remove("/tmp/victim");
    }
};
class HostileEntry : public Journal {};

}  // namespace

TEST_F(Journal, IsOffByDefaultAndASaveThenMakesNoDirectory) {
    run([] {
        EXPECT_EQ(szVosJournalDir, nullptr);
        EXPECT_EQ(saveFile(kPath), VOS_OK);
    });
    EXPECT_FALSE(present(kJournal));
}

TEST_F(Journal, ItsDirectoryIsMadeForItsOwnerAloneAndSoAreItsEntries) {
    run([] {
        szVosJournalDir = kJournal;
        umask(0);
        Faults::arm({.call = "ftruncate", .error = EIO});
        EXPECT_EQ(saveFile(kPath), VOS_ERROR);
    });
    EXPECT_EQ(modeOf(kJournal), 0700u);
    EXPECT_EQ(modeOf(entryName(kPath)), 0600u);
    EXPECT_EQ(fileContent(entryName(kPath)), entryBytes({kPath, kNewContent}));
}

TEST_F(Journal, AnInterruptedSaveIsCompletedByTheNextReaderWithOneLine) {
    tearFile();
    EXPECT_THAT(linesOfRead(kNewContent), ElementsAre(kRestored));
    EXPECT_EQ(fileContent(kPath), kNewContent);
    EXPECT_THAT(journalFiles(), IsEmpty());
    EXPECT_THAT(linesOfRead(kNewContent), IsEmpty());
}

TEST_F(Journal, ASaveThatFindsAnEntryCompletesItFirst) {
    tearFile();
    EXPECT_THAT(linesOfSave(VOS_OK), ElementsAre("vosFileWrite_m:file /flash/data restored from the journal."));
    EXPECT_THAT(journalFiles(), IsEmpty());
}

TEST_F(Journal, ASizeACopyAndAConfigurationAreThoseOfTheCompletedFile) {
    tearFile();
    run([] {
        szVosJournalDir = kJournal;
        uint32_t size = 0;
        EXPECT_EQ(vosFileSizeGet(kPath, &size), VOS_OK);
        EXPECT_EQ(size, kNewContent.size());
    });
    tearFile();
    run([] {
        szVosJournalDir = kJournal;
        EXPECT_EQ(vosFileSize(kPath), static_cast<int32_t>(kNewContent.size()));
    });
    tearFile();
    run([] {
        szVosJournalDir = kJournal;
        EXPECT_EQ(vosFileCopy(kPath, "/flash/copy"), VOS_OK);
    });
    EXPECT_EQ(fileContent("/flash/copy"), kNewContent);
    putFile("/flash/zebcfg", kOldContent);
    tear([] { saveConfiguration(); });
    run([] {
        szVosJournalDir = kJournal;
        EXPECT_EQ(readConfiguration(), kNewContent);
    });
}

TEST_F(Journal, TwoProcessesThatFindAnEntryAtOnceCompleteItOnce) {
    tearFile();
    const int fd = open(kPath, O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    const auto read = [] {
        szVosJournalDir = kJournal;
        EXPECT_EQ(readFile(kPath), kNewContent);
    };
    Process one = start(read), two = start(read);
    EXPECT_TRUE(eventually([] {
        const std::string locks = fileContent("/proc/locks");
        const std::size_t first = locks.find("->");
        return first != std::string::npos && locks.find("->", first + 2) != std::string::npos;
    })) << "two wait";
    ASSERT_EQ(flock(fd, LOCK_UN), 0);
    close(fd);
    const auto first = one.finish().messages(), second = two.finish().messages();
    EXPECT_EQ(std::ranges::count(first, kRestored) + std::ranges::count(second, kRestored), 1);
    EXPECT_EQ(first.size() + second.size(), 1u);
}

TEST_F(Journal, AnotherWholeContentIsALaterSaveAndStays) {
    for (const std::string &later : {std::string("other"), kNewContent + "and more", kOldContent}) {
        tearFile();
        putFile(kPath, later);
        EXPECT_THAT(linesOfRead(later), ElementsAre(kNotUsed));
        EXPECT_THAT(journalFiles(), IsEmpty());
    }
}

TEST_F(Journal, TheBeginningOfTheContentAndZerosInItsPlaceCountAsInterrupted) {
    std::string holes = kNewContent.substr(0, 4500);
    std::fill(holes.begin() + 1000, holes.begin() + 3000, '\0');
    for (const std::string &torn : {kNewContent.substr(0, 4096), kNewContent, holes, std::string(5000, '\0')}) {
        tearFile();
        putFile(kPath, torn);
        EXPECT_THAT(linesOfRead(kNewContent), ElementsAre(kRestored));
        EXPECT_EQ(fileContent(kPath), kNewContent);
    }
}

TEST_F(Journal, AnUntouchedOrTornPartitionIsCompletedAndAValidOtherOneStays) {
    const auto read = [](const std::string &expected) {
        return run([&] {
                   szVosJournalDir = kJournal;
                   EXPECT_EQ(readItem(BSP_BANDRATE), expected);
               })
            .messages();
    };
    const auto interrupt = [] {
        putItems(kSystem);
        tear([] { setWord(BSP_BANDRATE, 2); });
    };
    const std::string restored = "readFlashAppData:file /flash/sysdata restored from the journal.";
    interrupt();
    EXPECT_THAT(read("2"), ElementsAre(restored));
    interrupt();
    std::string torn = fileContent(kSystem.path);
    putFile(kSystem.path, torn.replace(500, 100, std::string(100, 'x')));
    EXPECT_THAT(read("2"), ElementsAre(restored));
    interrupt();
    putFile(kSystem.path, "short");
    EXPECT_THAT(read("2"), ElementsAre(restored));
    interrupt();
    run([] { EXPECT_EQ(setWord(BSP_BANDRATE, 3), VOS_OK); });
    EXPECT_THAT(read("3"), ElementsAre("readFlashAppData:journal entry of file /flash/sysdata is not used, the file is "
                                       "another one."));
}

TEST_F(Journal, StartUpCompletesAPartitionAndNeverErasesOneThatCannotBeCompleted) {
    putErased();
    putItems(kSystem);
    tear([] { setWord(BSP_BANDRATE, 2); });
    putFile(kSystem.path, "torn");
    const State torn = stateOfFlash();
    const Outcome failing = run([] {
        szVosJournalDir = kJournal;
        ASSERT_EQ(mount(nullptr, "/flash", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        vosSysConfigDataInit();
        ASSERT_EQ(mount(nullptr, "/flash", nullptr, MS_REMOUNT, nullptr), 0);
    });
    EXPECT_THAT(failing.messages(),
                Contains(HasSubstr("readFlashAppData:file /flash/sysdata cannot be restored from the journal")));
    EXPECT_EQ(stateOfFlash(), torn);
    const Outcome outcome = run([] {
        szVosJournalDir = kJournal;
        vosSysConfigDataInit();
        EXPECT_EQ(readItem(BSP_BANDRATE), "2");
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("readFlashAppData:file /flash/sysdata restored from the journal."));
}

TEST_F(Journal, AFileThatCannotBeCompletedIsNotReadAndKeepsItsEntry) {
    for (const char *const call : {"open", "flock", "lstat", "malloc", "fstat", "pread", "pwrite", "fsync", "syncfs"}) {
        std::filesystem::remove_all(kJournal);
        tearFile();
        /* The first open and the first flock are the reader's own. */
        const bool own = strcmp(call, "flock") == 0;
        const FaultPoint point{.call = call, .occurrence = own || strcmp(call, "open") == 0 ? 2 : 1};
        const Attempt attempt = failCall(
            point, [] { szVosJournalDir = kJournal; }, [] { return readFile(kPath) == kFailed ? -1L : 0L; });
        EXPECT_EQ(attempt.result, -1) << call;
        EXPECT_THAT(attempt.messages, ElementsAre(HasSubstr("cannot be restored from the journal errno:"))) << call;
        expectNothingKept({attempt});
        EXPECT_THAT(journalFiles(), SizeIs(1)) << call;
        linesOfRead(kNewContent);
    }
}

TEST_F(Journal, ASaveIsRefusedWithOneLineWhenItsEntryCannotBeWritten) {
    putFile(kPath, kOldContent);
    putFile(kJournal, "no directory");
    EXPECT_THAT(linesOfSave(VOS_ERROR), ElementsAre(kRefused + errnoText(ENOTDIR) + ", the file is not saved."));
    EXPECT_THAT(linesOfRead(kOldContent), IsEmpty());
    const std::string longest = "/flash/" + std::string(200, 'd') + "/" + std::string(200, 'd');
    run([&] {
        szVosJournalDir = longest.c_str();
        EXPECT_EQ(saveFile(kPath), VOS_ERROR);
        EXPECT_EQ(readFile(kPath), kOldContent);
    });
    EXPECT_EQ(fileContent(kPath), kOldContent);
}

TEST_F(Journal, WithFewPagesFreeTheOldContentStaysUntilTheSaveIsWhole) {
    run([] {
        ASSERT_EQ(mount("none", "/flash", "tmpfs", 0, "size=64k"), 0) << strerror(errno);
        szVosJournalDir = kJournal;
        int refused = 0, saved = 0;
        for (std::size_t pages = 0; pages < 10; ++pages) {
            putState({});
            putFile("/flash/zebcfg", kOldContent);
            putFile("/flash/filler", std::string((16 - 2 - pages) * 4096, 'f'));
            ASSERT_EQ(fileContent("/flash/filler").size(), (16 - 2 - pages) * 4096);
            const std::string content(10000, 'n');
            const long result = saveConfiguration(content);
            EXPECT_EQ(fileContent("/flash/zebcfg").size(), result == VOS_OK ? 10000u : 6000u) << pages;
            EXPECT_EQ(readConfiguration(), result == VOS_OK ? content : kOldContent) << pages;
            EXPECT_THAT(journalFiles(), IsEmpty()) << pages;
            (result == VOS_OK ? saved : refused) += 1;
        }
        EXPECT_GT(refused, 1);
        EXPECT_GT(saved, 1);
        EXPECT_EQ(umount2("/flash", MNT_DETACH), 0);
    }).excuse();
}

TEST_F(Journal, ADeletedFileIsNotCompleted) {
    for (const auto &remove :
         {std::function<void()>([] { vosFileDelete(kPath); }), std::function<void()>([] { vosDirDelete(kPath); })}) {
        tearFile();
        run([&] {
            szVosJournalDir = kJournal;
            remove();
        });
        EXPECT_THAT(journalFiles(), IsEmpty());
        EXPECT_THAT(linesOfRead(kMissing), IsEmpty());
    }
}

TEST_F(Journal, TheEntryOfAFileThatDoesNotExistIsRemovedByItsReader) {
    putEntry(entryName(kPath), entryBytes({kPath, kNewContent}));
    EXPECT_THAT(linesOfRead(kMissing), IsEmpty());
    EXPECT_THAT(journalFiles(), IsEmpty());
}

TEST_F(Journal, ARelativePathIsThatOfItsWorkingDirectory) {
    run([] {
        szVosJournalDir = kJournal;
        ASSERT_EQ(chdir("/flash"), 0);
        Faults::arm({.call = "ftruncate", .error = EIO});
        EXPECT_EQ(saveFile("data"), VOS_ERROR);
    });
    EXPECT_EQ(fileContent(entryName(kPath)), entryBytes({kPath, kNewContent}));
    EXPECT_THAT(linesOfRead(kNewContent), ElementsAre(kRestored));
}

TEST_F(Journal, DevicesAndFilesOfTheKernelAreWrittenWithoutIt) {
    run([] {
        szVosJournalDir = kJournal;
        szVosCfgFileName = "/dev/null";
        EXPECT_EQ(saveConfiguration(), VOS_OK);
        EXPECT_EQ(vosFileWrite("/proc/sys/vm/overcommit_memory", "0", 1), VOS_OK);
    });
    EXPECT_THAT(journalFiles(), IsEmpty());
}

TEST_F(HostileEntry, AnyChangedByteMakesItInvalid) {
    const std::string sound = entryBytes({kPath, "content"});
    for (std::size_t at = 0; at < sound.size(); ++at) {
        std::string bytes = sound;
        bytes[at] ^= 0x20;
        putFile(kPath, "");
        putEntry(entryName(kPath), bytes);
        EXPECT_THAT(linesOfRead(""), ElementsAre(kNotValid)) << at;
        EXPECT_THAT(journalFiles(), IsEmpty());
    }
}

TEST_F(HostileEntry, LengthsThatLieForeignTargetsAndOtherKindsAreInvalid) {
    const std::string sound = entryBytes({kPath, "content"});
    std::vector<std::string> entries{"",
                                     "x",
                                     sound.substr(0, 31),
                                     sound.substr(0, 40),
                                     sound + "more",
                                     std::string(100000, '\xFF'),
                                     entryBytes({"/etc/passwd", "root::0:0"}),
                                     entryBytes({"../../etc/passwd", "root::0:0"}),
                                     entryBytes({kPath, std::string(984, 'x'), 1})};
    for (const uint32_t length : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu})
        for (const std::size_t offset : {12u, 16u})
            entries.push_back(std::string(sound).replace(offset, 4, networkWord(length)));
    const std::string passwords = fileContent("/etc/passwd");
    for (const std::string &bytes : entries) {
        putFile(kPath, "");
        putEntry(entryName(kPath), bytes);
        EXPECT_THAT(linesOfRead(""), ElementsAre(kNotValid)) << bytes.size();
        EXPECT_THAT(journalFiles(), IsEmpty());
    }
    EXPECT_EQ(fileContent("/etc/passwd"), passwords);
}

TEST_F(HostileEntry, LinksAndFifosAreRemovedAndNotFollowed) {
    putFile("/tmp/victim", entryBytes({kPath, "content"}));
    const auto expectRemoved = [] {
        EXPECT_THAT(linesOfRead(""), ElementsAre(kNotValid));
        EXPECT_THAT(journalFiles(), IsEmpty());
    };
    putFile(kPath, "");
    std::filesystem::create_directory(kJournal);
    for (const char *const target : {"/tmp/victim", "/tmp/missing", kPath}) {
        std::filesystem::create_symlink(target, entryName(kPath));
        expectRemoved();
    }
    ASSERT_EQ(mkfifo(entryName(kPath).c_str(), 0600), 0);
    expectRemoved();
    EXPECT_EQ(fileContent("/tmp/victim"), entryBytes({kPath, "content"}));
}

TEST_F(HostileEntry, ADirectoryInItsPlaceStopsNoReaderAndRefusesSaves) {
    putFile(kPath, kOldContent);
    std::filesystem::create_directories(entryName(kPath) + "/child");
    EXPECT_THAT(linesOfRead(kOldContent), ElementsAre(kNotValid));
    EXPECT_THAT(linesOfSave(VOS_ERROR), SizeIs(2));
    EXPECT_EQ(fileContent(kPath), kOldContent);
    run([] {
        szVosJournalDir = kJournal;
        szVosCfgFileName = kPath;
        EXPECT_EQ(readConfiguration(), kOldContent) << "and does not wait for ever";
    });
}

TEST_F(HostileEntry, SomethingUnderTheTemporaryNameIsReplaced) {
    putFile("/tmp/victim", "victim");
    std::filesystem::create_directory(kJournal);
    std::string temporary = entryName(kPath);
    temporary.replace(temporary.size() - 5, 5, ".new");
    for (int round = 0; round < 3; ++round) {
        if (round == 0) putFile(temporary, "left by a kill");
        if (round == 1) std::filesystem::create_symlink("/tmp/victim", temporary);
        if (round == 2) {
            ASSERT_EQ(mkfifo(temporary.c_str(), 0600), 0);
        }
        EXPECT_THAT(linesOfSave(VOS_OK), IsEmpty());
        EXPECT_THAT(journalFiles(), IsEmpty());
    }
    EXPECT_EQ(fileContent("/tmp/victim"), "victim");
}

TEST_F(HostileEntry, OtherNamesInTheDirectoryAreIgnored) {
    tearFile();
    const State foreign{{std::string(kJournal) + "/x", "any"},
                        {std::string(kJournal) + "/" + std::string(255, 'n'), "any"},
                        {std::string(kJournal) + "/0123456789abcdef.save", entryBytes({"/etc/passwd", "x"})}};
    for (const auto &[path, content] : foreign) putFile(path, content);
    EXPECT_THAT(linesOfRead(kNewContent), ElementsAre(kRestored));
    for (const auto &[path, content] : foreign) EXPECT_EQ(fileContent(path), content);
}
