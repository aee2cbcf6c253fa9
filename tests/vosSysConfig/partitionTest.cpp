/* SPDX-License-Identifier: MIT */
/* The two partitions as files: initialised, validated, rewritten, and every failing call. */
#include <fcntl.h>
#include <sys/file.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>

#include "vosSysConfig/partitions.h"

using namespace vostest;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class EachPartition : public testing::TestWithParam<Partition> {
  protected:
    const Partition &partition = GetParam();
    static constexpr const char *kGet = "vosSysConfigDataGet";
    static constexpr const char *kSet = "vosSysConfigDataSet";

    [[nodiscard]] int32_t get() const {
        uint32_t value = 0;
        return getWord(partition.item, value);
    }
    [[nodiscard]] std::vector<std::string> getLines(const std::string &line) const {
        return withExit(kGet, line, partition.reader);
    }
    [[nodiscard]] std::vector<std::string> setLines(const std::string &line) const {
        return withExit(kSet, line, partition.writer);
    }
    void expectGetFails(const std::string &line) const {
        const Outcome outcome = run([&] { EXPECT_EQ(get(), VOS_ERROR); });
        EXPECT_THAT(outcome.messages(), ElementsAreArray(getLines(line)));
    }
};

std::string initLine(const Partition &partition) { return "Initialize " + partition.word + " data partition."; }

const Partition *vanishing = nullptr;

/* Reads standard output through a pipe: keeps the log, and removes the partition when the line comes that the rewriting
 * starts. */
ssize_t removeWhenTheWriterStarts(void *, const char *text, size_t length) {
    const std::string line(text, length);
    std::ofstream{"/tmp/log", std::ios::app} << line;
    if (line.find(vanishing->writer + ":start.") != std::string::npos) std::filesystem::remove(vanishing->path);
    return static_cast<ssize_t>(length);
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Both, EachPartition, testing::ValuesIn(kPartitions),
                         [](const auto &each) { return each.param.word; });

TEST_P(EachPartition, AFreshOneIsErasedAndValidAndHasTheDescribedHeader) {
    run([] { EXPECT_EQ(vosSysConfigDataInit(), VOS_OK); });
    const std::string file = fileContent(partition.path);
    ASSERT_EQ(file.size(), partition.size());
    EXPECT_EQ(file.substr(0, 4), nativeWord(partition.bodySize));
    EXPECT_EQ(file.substr(4, 4), nativeWord(0x26869816));
    EXPECT_EQ(file.substr(8, 4), nativeWord(bodyChecksum(erasedBody(partition))));
    EXPECT_EQ(file.substr(12, 8), std::string(8, '\0'));
    EXPECT_EQ(file.substr(20, 44), std::string(44, partition.word == "system" ? '\xFF' : '\0'));
    EXPECT_EQ(file.substr(64, 64), std::string(64, '\0'));
    EXPECT_EQ(file.substr(128), erasedBody(partition));
    run([&] {
        uint32_t value = 0;
        EXPECT_EQ(getWord(partition.item, value), VOS_OK);
        EXPECT_EQ(value, 0xFFFFFFFFu);
    });
}

TEST_P(EachPartition, ANewFileGetsMode0666) {
    run([] {
        umask(0);
        vosSysConfigDataInit();
    });
    EXPECT_EQ(modeOf(partition.path), 0666u);
}

TEST_P(EachPartition, AMissingOneCannotBeRead) {
    expectGetFails(failedLine(partition.data(partition.reader, "open"), ENOENT));
}

TEST_P(EachPartition, AnEmptyFileFailsWithoutALineOfItsOwn) {
    putFile(partition.path, "");
    expectGetFails("");
}

TEST_P(EachPartition, AShortFileIsNamedWithBothLengths) {
    putFile(partition.path, std::string(100, 'x'));
    expectGetFails(partition.data(partition.reader, "read") + "  need " + std::to_string(partition.size()) +
                   " but only read 100.");
}

TEST_P(EachPartition, AWrongMagic) {
    std::string file = partitionOf(erasedBody(partition));
    file[4] ^= 1;
    putFile(partition.path, file);
    expectGetFails(partition.reader + ":invalid magic.");
}

TEST_P(EachPartition, AChecksumThatDiffersInItsUpperHalfOnly) {
    const std::string body = erasedBody(partition);
    putFile(partition.path, partitionOf(body, bodyChecksum(body) ^ 0x10000));
    expectGetFails(partition.reader + ":crc error.");
}

TEST_P(EachPartition, AStoredChecksumOfAllOnesIsErasedFlash) {
    putFile(partition.path, partitionOf(erasedBody(partition), 0xFFFFFFFF));
    expectGetFails(partition.reader + ":crc error.");
}

/* A body whose checksum is all ones: its last bytes are chosen so that the register becomes 0xFFFFFFFF. */
TEST_P(EachPartition, AllOnesAreRefusedEvenWhereTheChecksumReallyIsAllOnes) {
    std::string body(partition.bodySize, '\0');
    /* The upper half of the register consists of the high bytes of two earlier steps. So the last four bytes are
     * searched step by step. */
    const auto search = [&] {
        for (uint32_t a = 0; a < 0x10000; ++a) {
            body[partition.bodySize - 4] = static_cast<char>(a >> 8);
            body[partition.bodySize - 3] = static_cast<char>(a);
            const uint32_t head = bodyChecksum(body.substr(partition.bodySize - 4, 2));
            if ((head >> 8 & 0xFF) != 0xFF) continue;
            for (uint32_t b = 0; b < 0x10000; ++b) {
                body[partition.bodySize - 2] = static_cast<char>(b >> 8);
                body[partition.bodySize - 1] = static_cast<char>(b);
                if (bodyChecksum(body.substr(partition.bodySize - 4)) == 0xFFFFFFFF) return true;
            }
        }
        return false;
    };
    ASSERT_TRUE(search());
    ASSERT_EQ(bodyChecksum(body), 0xFFFFFFFFu);
    putFile(partition.path, partitionOf(body));
    expectGetFails(partition.reader + ":crc error.");
}

TEST_P(EachPartition, AFailedReadLeavesTheCopyInMemoryAsItWas) {
    putErased();
    run([&] {
        EXPECT_EQ(get(), VOS_OK);
        putFile(partition.path, "");
        EXPECT_EQ(get(), VOS_ERROR);
        const uint8_t *const copy = partition.word == "factory" ? flashConfig : flashData;
        EXPECT_EQ(std::string(copy, copy + partition.bodySize), erasedBody(partition));
    });
}

TEST_P(EachPartition, BytesBehindThePartitionAreIgnoredAndKept) {
    putFile(partition.path, partitionOf(erasedBody(partition)) + "more");
    run([&] { EXPECT_EQ(setWord(partition.item, 7), VOS_OK); });
    const std::string file = fileContent(partition.path);
    EXPECT_EQ(file.size(), partition.size() + 4);
    EXPECT_EQ(file.substr(partition.size()), "more");
    run([&] {
        uint32_t value = 0;
        EXPECT_EQ(getWord(partition.item, value), VOS_OK);
        EXPECT_EQ(value, 7u);
    });
}

TEST_P(EachPartition, AWriteKeepsTheReservedBytesAndRestoresTheLength) {
    std::string file = partitionOf(erasedBody(partition));
    for (std::size_t i = 12; i < 128; ++i) file[i] = static_cast<char>(i);
    file.replace(0, 4, nativeWord(1));
    putFile(partition.path, file);
    run([&] { EXPECT_EQ(setWord(partition.item, 7), VOS_OK); });
    const std::string written = fileContent(partition.path);
    EXPECT_EQ(written.substr(0, 4), nativeWord(partition.bodySize));
    EXPECT_EQ(written.substr(4, 4), file.substr(4, 4));
    EXPECT_EQ(written.substr(8, 4), nativeWord(bodyChecksum(written.substr(128))));
    EXPECT_EQ(written.substr(12, 116), file.substr(12, 116));
}

TEST_P(EachPartition, ItIsRewrittenUnderOneLockAndFlushedAfterIt) {
    putErased();
    run([&] {
        EXPECT_THAT(
            Faults::record([&] { setWord(partition.item, 7); }),
            ElementsAre("malloc", "open", "flock", "read", "flock", "close",  // reading
                        "malloc", "open", "flock", "read", "lseek", "write", "flock", "fsync", "syncfs", "close"));
    });
}

TEST_P(EachPartition, AReaderWaitsForAWriterOfAnotherProcess) {
    putErased();
    Process writer = start([&] {
        const int fd = open(partition.path, O_RDWR);
        ASSERT_EQ(flock(fd, LOCK_EX), 0);
        ready();
        pause();
    });
    writer.awaitReady();
    Process reader = start([&] { EXPECT_EQ(get(), VOS_OK); });
    EXPECT_TRUE(eventually([] { return fileContent("/proc/locks").find("->") != std::string::npos; }));
    writer.send(SIGKILL);
    writer.finish();
    EXPECT_TRUE(reader.finish().exited(0));
}

TEST_P(EachPartition, EachFailingCallOfARead) {
    const auto attempts = failEachCall(putErased, [&] { return get(); });
    expectNothingKept(attempts);
    EXPECT_THAT(namesOf(attempts), ElementsAre("malloc#1", "open#1", "flock#1", "read#1", "flock#2", "close#1"));
    const std::string &reader = partition.reader;
    expectLines(attempts, "malloc#1", VOS_ERROR, getLines(reader + ":malloc failed."));
    expectLines(attempts, "open#1", VOS_ERROR, getLines(failedLine(partition.data(reader, "open"))));
    expectLines(attempts, "flock#1", VOS_OK, {failedLine(partition.data(reader, "lock"))});
    expectLines(attempts, "read#1", VOS_ERROR, getLines(failedLine(partition.data(reader, "read"))));
    expectLines(attempts, "flock#2", VOS_OK, {failedLine(partition.data(reader, "unlock") + " ")});
    expectLines(attempts, "close#1", VOS_OK, {});
}

TEST_P(EachPartition, EachFailingCallOfAWrite) {
    const auto attempts = failEachCall(putErased, [&] { return setWord(partition.item, 7); });
    expectNothingKept(attempts);
    EXPECT_THAT(attempts, SizeIs(16));
    const std::string &writer = partition.writer;
    const std::string blank = partition.blanks.substr(1);
    expectLines(attempts, "malloc#2", VOS_ERROR, setLines(writer + ":malloc failed."));
    expectLines(attempts, "open#2", VOS_ERROR, setLines(failedLine(partition.data(writer, "open"))));
    expectLines(attempts, "flock#3", VOS_OK, {failedLine(partition.data(writer, "lock"))});
    expectLines(attempts, "read#2", VOS_ERROR, setLines(failedLine(partition.data(writer, "read"))));
    /* Without the seek the write goes past the partition, which is not changed. */
    expectLines(attempts, "lseek#1", VOS_OK, {failedLine(partition.data(writer, "lseek"))});
    expectLines(attempts, "write#1", VOS_OK, {failedLine(partition.data(writer, "write") + blank)});
    expectLines(attempts, "flock#4", VOS_OK, {failedLine(partition.data(writer, "unlock") + blank)});
    for (const char *const call : {"fsync#1", "syncfs#1", "close#1", "close#2"})
        expectLines(attempts, call, VOS_OK, {});
}

TEST_P(EachPartition, ShortReadsAndWrites) {
    const std::string need = "need " + std::to_string(partition.size()) + " but only ";
    const auto set = [&] { return setWord(partition.item, 7); };
    const Attempt read = failCall({.call = "read", .occurrence = 2, .shortTo = 100}, putErased, set);
    EXPECT_EQ(read.result, VOS_ERROR);
    EXPECT_THAT(read.messages,
                ElementsAreArray(setLines(partition.data(partition.writer, "read") + "  " + need + "read 100.")));
    const Attempt none = failCall({.call = "read", .occurrence = 2, .shortTo = 0}, putErased, set);
    EXPECT_THAT(none.messages,
                ElementsAreArray(setLines(partition.data(partition.writer, "read") + "  " + need + "read 0.")));
    const Attempt write = failCall({.call = "write", .shortTo = 100}, putErased, set);
    EXPECT_EQ(write.result, VOS_OK);
    EXPECT_THAT(write.messages,
                ElementsAre(partition.data(partition.writer, "write") + partition.blanks + need + "write 100."));
}

TEST_P(EachPartition, EachFailingCallOfAnInitialisation) {
    const Partition &other = partition.word == "factory" ? kSystem : kFactory;
    const auto attempts = failEachCall(
        [&] {
            vosProcessGetName(); /* reads the name from a file, only once */
            std::filesystem::remove(partition.path);
            putFile(other.path, partitionOf(erasedBody(other)));
        },
        [] { return vosSysConfigDataInit(); });
    expectNothingKept(attempts);
    /* The factory partition is read first, so the numbers of the calls depend on which partition is missing. */
    const bool first = partition.word == "factory";
    const std::string open = first ? "open#2" : "open#3";
    const std::string malloc = first ? "malloc#2" : "malloc#3";
    const std::string lock = first ? "flock#1" : "flock#3";
    const std::string unlock = first ? "flock#2" : "flock#4";
    const std::string missing = failedLine(partition.data(partition.reader, "open"), ENOENT);
    const std::string &init = partition.init;
    const std::string blank = partition.blanks.substr(1);
    expectLines(attempts, malloc, VOS_OK, {missing, init + ":paramters error.", initLine(partition)});
    expectLines(attempts, open, VOS_OK, {missing, failedLine(partition.data(init, "open")), initLine(partition)});
    expectLines(attempts, lock, VOS_OK, {missing, failedLine(partition.data(init, "lock")), initLine(partition)});
    expectLines(attempts, "write#1", VOS_OK,
                {missing, failedLine(partition.data(init, "write") + blank), initLine(partition)});
    expectLines(attempts, unlock, VOS_OK,
                {missing, failedLine(partition.data(init, "unlock") + blank), initLine(partition)});
    const std::string writes = first ? "close#1" : "close#2";
    for (const std::string &call : {std::string("fsync#1"), std::string("syncfs#1"), writes})
        expectLines(attempts, call, VOS_OK, {missing, initLine(partition)});
    const Attempt shortened = failCall(
        {.call = "write", .shortTo = 100}, [&] { std::filesystem::remove(partition.path); },
        [] { return vosSysConfigDataInit(); });
    ASSERT_THAT(shortened.messages, SizeIs(3));
    EXPECT_EQ(shortened.messages.at(1), partition.data(init, "write") + partition.blanks + "need " +
                                            std::to_string(partition.size()) + " but only write 100.");
}

TEST_P(EachPartition, AFailedSetLeavesTheNewItemInTheCopyInMemory) {
    run([&] {
        putErased();
        Faults::arm({.call = "open", .occurrence = 2, .error = EROFS});
        EXPECT_EQ(setWord(partition.item, 77), VOS_ERROR);
        const bool factory = partition.word == "factory";
        EXPECT_EQ((factory ? flashConfig + 12 : flashData + 16)[0], 77);
        uint32_t value = 0;
        EXPECT_EQ(get(), VOS_OK);
        EXPECT_EQ(getWord(partition.item, value), VOS_OK);
        EXPECT_EQ(value, 0xFFFFFFFFu);
    });
}

/* The lock of another process is ignored once a signal without SA_RESTART has interrupted the wait. */
TEST_P(EachPartition, ASignalWithoutRestartEndsTheWaitForTheLock) {
    putErased();
    Process holder = start([&] {
        const int fd = open(partition.path, O_RDWR);
        ASSERT_EQ(flock(fd, LOCK_EX), 0);
        ready();
        pause();
    });
    holder.awaitReady();
    const Outcome outcome = run([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
        const itimerval often{{0, 5000}, {0, 5000}};
        ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
        EXPECT_EQ(setWord(partition.item, 7), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(failedLine(partition.data(partition.reader, "lock"), EINTR),
                                                failedLine(partition.data(partition.writer, "lock"), EINTR)));
    EXPECT_NE(bodyOf(partition), erasedBody(partition));
}

TEST_P(EachPartition, StartUpRepairsWhateverCannotBeRead) {
    putErased();
    std::string damaged = partitionOf(erasedBody(partition));
    damaged[200] = 'x';
    std::string noMagic = damaged;
    noMagic[4] ^= 1;
    for (const std::string &content : {std::string(), std::string(100, 'x'), damaged, noMagic}) {
        putFile(partition.path, content);
        const Outcome outcome = run([] { EXPECT_EQ(vosSysConfigDataInit(), VOS_OK); });
        EXPECT_EQ(outcome.messages().back(), initLine(partition));
        EXPECT_EQ(bodyOf(partition), erasedBody(partition));
        const Outcome again = run([] { EXPECT_EQ(vosSysConfigDataInit(), VOS_OK); });
        EXPECT_THAT(again.messages(), IsEmpty());
    }
}

TEST_P(EachPartition, StartUpDoesNotReloadTheCopyInMemory) {
    run([&] {
        vosSysConfigDataInit();
        const uint8_t *const copy = partition.word == "factory" ? flashConfig : flashData;
        EXPECT_EQ(std::string(copy, copy + partition.bodySize), std::string(partition.bodySize, '\0'));
    });
}

TEST_P(EachPartition, AnotherPathAndANullPath) {
    run([&] {
        const char **const path = partition.word == "factory" ? &szFactoryData : &szSysData;
        *path = "/tmp/partition";
        vosSysConfigDataInit();
        EXPECT_EQ(get(), VOS_OK);
        *path = nullptr;
        EXPECT_EQ(get(), VOS_ERROR);
        EXPECT_EQ(vosSysConfigDataInit(), VOS_OK);
    });
    EXPECT_FALSE(present(partition.path));
    EXPECT_TRUE(present("/tmp/partition"));
}

TEST_P(EachPartition, OneThatVanishesBeforeItIsRewrittenCannotBeWritten) {
    putErased();
    vanishing = &partition;
    run([&] {
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        cookie_io_functions_t calls{};
        calls.write = removeWhenTheWriterStarts;
        stdout = fopencookie(nullptr, "w", calls);
        EXPECT_EQ(setWord(partition.item, 7), VOS_ERROR);
    });
    std::vector<std::string> expected{partition.data(partition.writer, "read") + "  need 1400 but only read 0."};
    if (partition.word == "system") expected = {failedLine(partition.data(partition.writer, "open"), ENOENT)};
    /* A factory partition that was missing is an empty file now, a system partition is still missing. */
    EXPECT_EQ(present(partition.path), partition.word == "factory");
    if (partition.word == "factory") {
        EXPECT_EQ(fileContent(partition.path), "");
    }
    const std::string log = fileContent("/tmp/log");
    for (const std::string &line : setLines(expected.front())) EXPECT_NE(log.find(line), std::string::npos) << log;
}

TEST(Partition, ASystemPartitionThatIsMissingIsNotCreatedByASet) {
    run([] { EXPECT_EQ(setWord(BSP_BANDRATE, 7), VOS_ERROR); });
    EXPECT_FALSE(present(kSystem.path));
    run([] { EXPECT_EQ(vosSysConfigDataInit(), VOS_OK); });
    EXPECT_TRUE(present(kSystem.path));
}

TEST(Partition, TheCachesAreAligned) {
    run([] {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(flashConfig) % 64, 0u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(flashData) % 8, 0u);
    });
}

TEST(Partition, StartUpTracesItsWay) {
    const Outcome outcome = run([] {
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        putErased();
        vosSysConfigDataInit();
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosSysConfigDataInit:start.", "readBootConfigData:start.", "readFlashAppData:start."));
}
