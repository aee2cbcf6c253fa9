/* SPDX-License-Identifier: MIT */
/* Many processes at one partition and one configuration file, and writers that die. */
#include <unistd.h>

#include <random>

#include "vosSysConfig/partitions.h"

using namespace vostest;

namespace {

constexpr uint32_t kProcesses = 32;
constexpr uint32_t kOperations = 20000;
constexpr std::size_t kConfigurationSize = 4096;
const char *const kConfiguration = "/flash/zebcfg";

/* Words and configurations that can be recognised as written ones: the halves of a word are each other's complement,
 * the configuration is one letter throughout. */
uint32_t wordOf(uint32_t number) { return (number << 16) | (~number & 0xFFFF); }
bool written(uint32_t word) { return (word >> 16) == (~word & 0xFFFF); }
std::string configurationOf(uint32_t number) {
    return std::string(kConfigurationSize, static_cast<char>('a' + number % 26));
}
bool written(const std::string &configuration) {
    return configuration.size() == kConfigurationSize &&
           configuration.find_first_not_of(configuration.front()) == std::string::npos;
}

void putFirst() {
    std::string body = erasedBody(kSystem);
    body.replace(16, 4, nativeWord(wordOf(0)));
    putFile(kSystem.path, partitionOf(body));
    putFile(kFactory.path, partitionOf(erasedBody(kFactory)));
    putFile(kConfiguration, configurationOf(0));
}

void readConfiguration() {
    std::string whole(kConfigurationSize + 1, '.');
    const int32_t count = vosFileRead(kConfiguration, whole.data(), size32(whole));
    whole.resize(static_cast<std::size_t>(std::max(count, 0)));
    EXPECT_TRUE(written(whole)) << "under the lock there is always a whole configuration, not " << count << " bytes";

    char *buffer = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(vosFileCfgRead(&buffer, &length), VOS_OK);
    /* The size is asked before the lock is taken, so it can be that of a file that a writer has just truncated. */
    EXPECT_TRUE(length == 0 || written(std::string(buffer, length)));
    vosFileCfgFree(buffer);
}

void readWord() {
    uint32_t word = 0;
    EXPECT_EQ(getWord(BSP_BANDRATE, word), VOS_OK);
    EXPECT_TRUE(written(word)) << word;
}

void hammer(uint32_t process) {
    std::mt19937 random(process);
    for (uint32_t i = 0; i < kOperations / kProcesses; ++i) {
        const auto number = static_cast<uint32_t>(random());
        switch (random() % 4) {
            case 0:
                EXPECT_EQ(setWord(BSP_BANDRATE, wordOf(number)), VOS_OK);
                break;
            case 1: {
                const std::string configuration = configurationOf(number);
                EXPECT_EQ(vosFileCfgWrite(configuration.data(), size32(configuration)), VOS_OK);
                break;
            }
            case 2:
                readWord();
                break;
            default:
                readConfiguration();
        }
    }
}

}  // namespace

TEST(FlashStress, ThirtyTwoProcessesAtOnePartitionAndOneConfiguration) {
    putFirst();
    std::vector<Process> processes;
    for (uint32_t i = 0; i < kProcesses; ++i) processes.push_back(start([=] { hammer(i + 1); }));
    for (Process &each : processes) {
        const Outcome outcome = each.finish();
        EXPECT_TRUE(outcome.exited(0));
        EXPECT_THAT(outcome.messages(), testing::IsEmpty());
    }
    run([] {
        readWord();
        readConfiguration();
    });
    EXPECT_EQ(fileContent(kSystem.path).size(), kSystem.size());
    EXPECT_TRUE(written(fileContent(kConfiguration)));
}

TEST(FlashStress, AWriterKilledAtARandomMoment) {
    constexpr int kRounds = 500;
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    printf("seed %u\n", seed);
    std::mt19937 random(seed);
    int empty = 0;
    putFirst();
    for (int round = 0; round < kRounds && !testing::Test::HasFailure(); ++round) {
        const bool fresh = random() % 4 == 0;
        if (fresh) std::filesystem::remove(kSystem.path);
        const auto moment = static_cast<useconds_t>(random() % 2000);
        Process writer = start([&] {
            vosDebugConfig(0);
            ready();
            if (fresh) vosSysConfigDataInit();
            for (uint32_t i = 0;; ++i) {
                setWord(BSP_BANDRATE, wordOf(i));
                const std::string configuration = configurationOf(i);
                vosFileCfgWrite(configuration.data(), size32(configuration));
            }
        });
        writer.awaitReady();
        usleep(moment); /* the random moment itself; nothing is waited for */
        writer.send(SIGKILL);
        EXPECT_TRUE(writer.finish().killedBy(SIGKILL));

        /* A configuration is truncated and then written: a kill between the two leaves it empty. */
        const std::string configuration = fileContent(kConfiguration);
        EXPECT_TRUE(configuration.empty() || written(configuration)) << configuration.size();
        empty += configuration.empty() ? 1 : 0;
        run([&] {
            vosDebugConfig(0);
            uint32_t word = 0;
            const bool valid = getWord(BSP_BANDRATE, word) == VOS_OK;
            EXPECT_TRUE(valid || fresh) << "a partition in use is rewritten in place and never left invalid";
            EXPECT_TRUE(!valid || written(word) || (fresh && word == 0xFFFFFFFF)) << word;
            EXPECT_EQ(vosSysConfigDataInit(), VOS_OK);
            EXPECT_EQ(getWord(BSP_BANDRATE, word), VOS_OK) << "start-up has not repaired the partition";
            if (!written(word)) setWord(BSP_BANDRATE, wordOf(0));
            uint32_t number = 0;
            EXPECT_EQ(getWord(BSP_OEM_NUMBER, number), VOS_OK);
        });
    }
    printf("%d of %d kills left an empty configuration\n", empty, kRounds);
}
