/* SPDX-License-Identifier: MIT */
/* Existence, removal, size, trees and the null device. */
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "vos.h"
#include "vosFile/flash.h"

using namespace vostest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace fs = std::filesystem;

namespace {

const char *const kPath = "/flash/data";
constexpr uint32_t kTrace = VOS_DEBUG_ERROR | VOS_DEBUG_TRACE;

void putTree() {
    fs::create_directories("/flash/tree/sub");
    putFile("/flash/tree/sub/file", "x");
}

int devNull() { return open("/dev/null", O_RDWR); }

}  // namespace

TEST(FileExist, OneForAPathThatIsThereAndZeroOtherwise) {
    putFile(kPath, "");
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        EXPECT_EQ(vosFileExist(kPath), 1);
        EXPECT_EQ(vosFileExist("/flash"), 1);
        EXPECT_EQ(vosFileExist("/flash/missing"), 0);
        EXPECT_EQ(vosFileExist(nullptr), 0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileExist:end return 1.", "vosFileExist:end return 1.",
                                                "vosFileExist:end return 0.", "vosFileExist:end return 0."));
    expectLines(failEachCall([] {}, [] { return vosFileExist(kPath); }), "access#1", 0, {});
}

TEST(FileDelete, RemovesAFileAndAnEmptyDirectory) {
    putFile(kPath, "x");
    fs::create_directory("/flash/empty");
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        EXPECT_EQ(vosFileDelete(kPath), VOS_OK);
        EXPECT_EQ(vosFileDelete("/flash/empty"), VOS_OK);
    });
    EXPECT_FALSE(present(kPath));
    EXPECT_FALSE(present("/flash/empty"));
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileDelete:end return 0.", "vosFileDelete:end return 0."));
}

TEST(FileDelete, AMissingPathIsFineAndWritesNoErrorLine) {
    const Outcome outcome = run([] { EXPECT_EQ(vosFileDelete(kPath), VOS_OK); });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(FileDelete, AFailureIsOnlyLogged) {
    putTree();
    const Outcome outcome = run([] {
        EXPECT_EQ(vosFileDelete("/flash/tree"), VOS_OK);
        EXPECT_EQ(vosFileDelete(nullptr), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(failedLine("vosFileDelete:remove file /flash/tree", ENOTEMPTY),
                                                "vosFileDelete:parameter error."));
    expectLines(failEachCall([] { putFile(kPath, "x"); }, [] { return vosFileDelete(kPath); }), "remove#1", VOS_OK,
                {failedLine("vosFileDelete:remove file /flash/data")});
}

TEST(FileSize, OfAFileOfALinkAndOfAMissingPath) {
    putFile(kPath, "0123456789");
    fs::create_symlink(kPath, "/flash/link");
    const Outcome outcome = run([] {
        uint32_t size = 1;
        EXPECT_EQ(vosFileSizeGet("/flash/link", &size), VOS_OK);
        EXPECT_EQ(size, 10u);
        EXPECT_EQ(vosFileSize("/flash/link"), 10);
        EXPECT_EQ(vosFileSizeGet("/flash/missing", &size), VOS_ERROR);
        EXPECT_EQ(size, 0u);
        EXPECT_EQ(vosFileSize("/flash/missing"), VOS_ERROR);
        EXPECT_EQ(vosFileSizeGet(nullptr, &size), VOS_ERROR);
        EXPECT_EQ(vosFileSize(nullptr), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(FileSize, IsCutTo32Bits) {
    putFile(kPath, "");
    fs::resize_file(kPath, 0x180000005);
    run([] {
        uint32_t size = 0;
        EXPECT_EQ(vosFileSizeGet(kPath, &size), VOS_OK);
        EXPECT_EQ(size, 0x80000005u);
        EXPECT_EQ(vosFileSize(kPath), static_cast<int32_t>(0x80000005u));
    });
}

TEST(FileSize, TheStartIsTracedAndANullResultIsRefused) {
    putFile(kPath, "");
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        EXPECT_EQ(vosFileSizeGet(kPath, nullptr), VOS_ERROR);
        EXPECT_EQ(vosFileSize(kPath), 0);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosFileSizeGet:start name /flash/data.", "vosFileSizeGet:parameter error."));
}

TEST(FileSize, EachFailingCall) {
    const auto get = failEachCall([] { putFile(kPath, "abc"); },
                                  [] {
                                      uint32_t size = 7;
                                      const int32_t result = vosFileSizeGet(kPath, &size);
                                      EXPECT_EQ(size, result == VOS_OK ? 3u : 0u);
                                      return result;
                                  });
    EXPECT_THAT(get, SizeIs(1));
    expectLines(get, "stat#1", VOS_ERROR, {});
    const auto attempts = failEachCall([] { putFile(kPath, "abc"); }, [] { return vosFileSize(kPath); });
    expectNothingKept(attempts);
    EXPECT_THAT(namesOf(attempts), ElementsAre("fopen#1", "fseek#1", "ftell#1", "fclose#1"));
    for (const char *const call : {"fopen#1", "fseek#1", "ftell#1"}) expectLines(attempts, call, VOS_ERROR, {});
    expectLines(attempts, "fclose#1", 3, {});
}

TEST(DirectoryDelete, AMissingPathFailsWithoutALine) {
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        EXPECT_EQ(vosDirDelete("/flash/missing"), VOS_ERROR);
        EXPECT_EQ(vosDirDelete(nullptr), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(DirectoryDelete, RemovesFilesLinksAndWholeTrees) {
    putTree();
    putFile("/flash/tree/.hidden", "x");
    putFile(kPath, "kept");
    fs::create_directory("/flash/kept");
    putFile("/flash/kept/file", "kept");
    fs::create_symlink("/flash/kept", "/flash/tree/sub/link");
    fs::create_symlink(kPath, "/flash/link");
    const Outcome outcome = run([] {
        EXPECT_EQ(vosDirDelete("/flash/link"), VOS_OK);
        EXPECT_EQ(vosDirDelete("/flash/tree"), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
    EXPECT_FALSE(present("/flash/tree"));
    EXPECT_FALSE(fs::is_symlink("/flash/link"));
    EXPECT_EQ(fileContent(kPath), "kept");
    EXPECT_EQ(fileContent("/flash/kept/file"), "kept");
}

TEST(DirectoryDelete, TheSystemIsSyncedAfterEverySingleRemoval) {
    putTree();
    run([] {
        EXPECT_THAT(Faults::record([] { vosDirDelete("/flash/tree/sub/file"); }),
                    ElementsAre("lstat", "unlink", "sync"));
        putFile("/flash/tree/sub/file", "x");
        EXPECT_EQ(std::ranges::count(Faults::record([] { vosDirDelete("/flash/tree"); }), "sync"), 3);
    });
}

TEST(DirectoryDelete, APathThatEndsInASlashGivesChildrenWithoutADoubledSlash) {
    putTree();
    const auto failUnlink = [](const char *path) {
        return failCall({.call = "unlink"}, putTree, [=] { return vosDirDelete(path); }).messages;
    };
    const std::vector<std::string> lines = failUnlink("/flash/tree/sub/");
    EXPECT_THAT(lines, ElementsAre(failedLine("vosDirDelete:unlink file /flash/tree/sub/file"),
                                   failedLine("vosDirDelete:vosDirDelete dir /flash/tree/sub/ and sub dir "
                                              "/flash/tree/sub/file")));
}

TEST(DirectoryDelete, EachFailingCall) {
    const auto attempts = failEachCall(putTree, [] { return vosDirDelete("/flash/tree"); });
    expectNothingKept(attempts);
    const std::string sub = failedLine("vosDirDelete:vosDirDelete dir /flash/tree and sub dir /flash/tree/sub");
    const std::string file =
        failedLine("vosDirDelete:vosDirDelete dir /flash/tree/sub and sub dir /flash/tree/sub/file");
    expectLines(attempts, "lstat#1", VOS_ERROR, {failedLine("vosDirDelete:lstat file /flash/tree")});
    expectLines(attempts, "opendir#1", VOS_ERROR, {failedLine("vosDirDelete:opendir dir /flash/tree")});
    const std::string noMemory = " failed errno:" + errnoText(ENOMEM) + ".";
    expectLines(attempts, "malloc#1", VOS_ERROR, {"vosDirDelete:asprintf dir /flash/tree and sub dir sub" + noMemory});
    expectLines(attempts, "lstat#2", VOS_ERROR, {failedLine("vosDirDelete:lstat file /flash/tree/sub"), sub});
    expectLines(attempts, "opendir#2", VOS_ERROR, {failedLine("vosDirDelete:opendir dir /flash/tree/sub"), sub});
    expectLines(attempts, "malloc#2", VOS_ERROR,
                {"vosDirDelete:asprintf dir /flash/tree/sub and sub dir file" + noMemory,
                 "vosDirDelete:vosDirDelete dir /flash/tree and sub dir /flash/tree/sub" + noMemory});
    expectLines(attempts, "lstat#3", VOS_ERROR,
                {failedLine("vosDirDelete:lstat file /flash/tree/sub/file"), file, sub});
    expectLines(attempts, "unlink#1", VOS_ERROR,
                {failedLine("vosDirDelete:unlink file /flash/tree/sub/file"), file, sub});
    expectLines(attempts, "rmdir#1", VOS_ERROR, {failedLine("vosDirDelete:rmdir dir /flash/tree/sub"), sub});
    expectLines(attempts, "rmdir#2", VOS_ERROR, {failedLine("vosDirDelete:rmdir dir /flash/tree")});
    for (const char *const call : {"sync#1", "sync#2", "sync#3", "closedir#1", "closedir#2"})
        expectLines(attempts, call, VOS_OK, {});
    /* A failed readdir() is taken for the end of the directory. The removal then fails, because entries remain. */
    expectLines(attempts, "readdir#1", VOS_ERROR, {failedLine("vosDirDelete:rmdir dir /flash/tree", ENOTEMPTY)});
}

TEST(DirectoryDelete, ALinkWithASlashBehindItNamesItsTarget) {
    putTree();
    fs::create_symlink("/flash/tree", "/flash/link");
    const Outcome outcome = run([] { EXPECT_EQ(vosDirDelete("/flash/link/"), VOS_ERROR); });
    EXPECT_THAT(outcome.messages(), ElementsAre(failedLine("vosDirDelete:rmdir dir /flash/link/", ENOTDIR)));
    EXPECT_TRUE(fs::is_empty("/flash/tree"));
    EXPECT_TRUE(fs::is_symlink("/flash/link"));
}

TEST(DirectoryDelete, ATreeDeeperThanTheLimitOfDescriptorsFailsCleanly) {
    std::string deep = "/flash/tree";
    for (int depth = 0; depth < 40; ++depth) deep += "/d";
    fs::create_directories(deep);
    const Outcome outcome = run([] {
        const rlimit few{20, 20};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        EXPECT_EQ(vosDirDelete("/flash/tree"), VOS_ERROR);
        EXPECT_EQ(errno, EMFILE);
    });
    EXPECT_THAT(outcome.messages().at(0), HasSubstr("vosDirDelete:opendir dir /flash/tree/d"));
    EXPECT_TRUE(present(deep));
    run([] { EXPECT_EQ(vosDirDelete("/flash/tree"), VOS_OK); });
}

TEST(DirectoryDelete, ATreeDeeperThanTheLongestPathFailsCleanly) {
    const Outcome outcome = run([] {
        ASSERT_EQ(chdir("/flash"), 0);
        const std::string name(200, 'd');
        for (int depth = 0; depth < 25; ++depth) {
            ASSERT_EQ(mkdir(name.c_str(), 0755), 0);
            ASSERT_EQ(chdir(name.c_str()), 0);
        }
        ASSERT_EQ(chdir("/"), 0);
        EXPECT_EQ(vosDirDelete(("/flash/" + name).c_str()), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages().at(0), HasSubstr("vosDirDelete:"));
}

TEST(HandleToNull, OutputGoesToTheNullDeviceInBetweenAndIsRestored) {
    const Outcome outcome = run([] {
        vosPrintf("before ");
        int32_t saved = -1;
        EXPECT_EQ(vosFileHandleToNull(STDOUT_FILENO, &saved), VOS_OK);
        vosPrintf("lost ");
        EXPECT_EQ(vosFileHandleRestore(STDOUT_FILENO, saved), VOS_OK);
        vosPrintf("after");
    });
    EXPECT_EQ(outcome.output, "before after");
}

TEST(HandleToNull, ANullResultIsRefusedAndABadDescriptorFails) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosFileHandleToNull(STDOUT_FILENO, nullptr), VOS_ERR_PARAM);
        int32_t saved = 77;
        EXPECT_EQ(vosFileHandleToNull(-1, &saved), VOS_ERROR);
        EXPECT_EQ(saved, 77);
        EXPECT_EQ(vosFileHandleRestore(STDOUT_FILENO, -1), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

/* A service often starts with standard output closed. The null device then gets descriptor 1, and so the descriptor
 * seems to be open. */
TEST(HandleToNull, AClosedDescriptorFailsAndStaysClosed) {
    const auto refuse = [](int closed) {
        int32_t saved = 77;
        EXPECT_EQ(vosFileHandleToNull(closed, &saved), VOS_ERROR);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(saved, 77);
        EXPECT_EQ(fcntl(closed, F_GETFD), -1);
    };
    run([&] {
        const int kept = dup(STDOUT_FILENO);
        close(STDOUT_FILENO);
        refuse(STDOUT_FILENO);
        EXPECT_EQ(devNull(), STDOUT_FILENO) << "the number is free for the next open";
        dup2(kept, STDOUT_FILENO);
        refuse(200);
    });
}

TEST(HandleToNull, CloseOnExecIsLostAndTheSavedDescriptorIsInherited) {
    run([] {
        const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
        int32_t saved = -1;
        ASSERT_EQ(vosFileHandleToNull(fd, &saved), VOS_OK);
        EXPECT_EQ(fcntl(saved, F_GETFD), 0);
        ASSERT_EQ(vosFileHandleRestore(fd, saved), VOS_OK);
        EXPECT_EQ(fcntl(fd, F_GETFD), 0);
    });
}

/* When dup() has failed, only the null device stays open, as the header says. */
TEST(HandleToNull, EachFailingCall) {
    static int fd = -1;
    const auto attempts = failEachCall([] { fd = devNull(); },
                                       [] {
                                           int32_t saved = -1;
                                           const int32_t result = vosFileHandleToNull(fd, &saved);
                                           if (result == VOS_OK) close(saved);
                                           return result;
                                       });
    EXPECT_THAT(namesOf(attempts), ElementsAre("open#1", "dup#1", "dup2#1", "close#1"));
    expectLines(attempts, "open#1", VOS_ERROR, {});
    expectLines(attempts, "dup#1", VOS_ERROR, {});
    expectLines(attempts, "dup2#1", VOS_ERROR, {});
    expectLines(attempts, "close#1", VOS_OK, {});
    EXPECT_EQ(at(attempts, "open#1").descriptorsKept, 0);
    EXPECT_EQ(at(attempts, "dup#1").descriptorsKept, 1);
    EXPECT_EQ(at(attempts, "dup2#1").descriptorsKept, 1);
    EXPECT_EQ(at(attempts, "close#1").descriptorsKept, 0);
}

TEST(HandleRestore, EachFailingCall) {
    static int fd = -1;
    static int32_t saved = -1;
    const auto attempts = failEachCall(
        [] {
            fd = devNull();
            ASSERT_EQ(vosFileHandleToNull(fd, &saved), VOS_OK);
        },
        [] { return vosFileHandleRestore(fd, saved); });
    expectLines(attempts, "dup2#1", VOS_ERROR, {});
    expectLines(attempts, "close#1", VOS_OK, {});
    EXPECT_EQ(at(attempts, "dup2#1").descriptorsKept, 0);
    EXPECT_EQ(at(attempts, "close#1").descriptorsKept, -1);
}
