/* SPDX-License-Identifier: MIT */
/* Many processes use one partition and one configuration file, and writers are killed. */
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <random>

#include "vosSysConfig/partitions.h"

using namespace vostest;

namespace {

constexpr uint32_t kProcesses = 32;
constexpr uint32_t kOperations = 20000;
constexpr std::size_t kConfigurationSize = 4096;
const char *const kConfiguration = "/flash/zebcfg";

/* Words and configurations whose form shows that they were written whole: one half of a word is the complement of the
 * other, and a configuration repeats one letter. */
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
        usleep(moment); /* makes the random moment; waits for no event */
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

namespace {

/* What the processes of the kill test report to the test. Times are ticks of one counter. The content of a save is the
 * tick at which it started. */
struct Ledger {
    static constexpr uint32_t kSaves = 1 << 24;
    std::atomic<uint32_t> clock = 0;
    std::atomic<uint32_t> lastStart[2] = {}; /* for each store: when the save started that was reported last */
    std::atomic<uint32_t> end[kSaves] = {};  /* the tick at which the save was reported */
    std::atomic<uint32_t> owner[kSaves] = {};
};

std::string contentOf(uint32_t save) {
    std::array<char, 17> text;
    snprintf(text.data(), text.size(), "%015u ", save);
    std::string content;
    while (content.size() < kConfigurationSize) content += text.data();
    return content;
}

uint32_t numberOf(const std::string &content) {
    const auto save = static_cast<uint32_t>(std::stoul("0" + content.substr(0, 15)));
    EXPECT_EQ(content, contentOf(save)) << "torn";
    return save;
}

uint32_t savedConfiguration() {
    char *buffer = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(vosFileCfgRead(&buffer, &length), VOS_OK);
    const std::string content(buffer, length);
    vosFileCfgFree(buffer);
    return numberOf(content);
}

uint32_t savedItem() {
    uint32_t save = 0;
    EXPECT_EQ(getWord(BSP_BANDRATE, save), VOS_OK);
    return save;
}

void saveAndRead(Ledger &ledger, uint32_t number, const std::string &journal) {
    szVosJournalDir = journal.c_str();
    vosDebugConfig(0);
    std::mt19937 random(number);
    while (!testing::Test::HasFailure()) {
        const unsigned store = random() % 2;
        if (random() % 2 == 0) {
            EXPECT_LE(store == 0 ? savedConfiguration() : savedItem(), ledger.clock);
            continue;
        }
        const uint32_t save = ++ledger.clock;
        if (save >= Ledger::kSaves) return;
        ledger.owner[save] = number;
        const std::string content = contentOf(save);
        EXPECT_EQ(store == 0 ? vosFileCfgWrite(content.data(), size32(content)) : setWord(BSP_BANDRATE, save), VOS_OK);
        ledger.end[save] = ++ledger.clock;
        for (uint32_t last = ledger.lastStart[store]; last < save;)
            if (ledger.lastStart[store].compare_exchange_weak(last, save)) break;
    }
}

}  // namespace

/* After each kill the stores hold a whole save. It is not older than the last reported save: no save that had ended
 * when that one started. */
TEST(FlashStress, KillsOfProcessesThatSaveWithTheJournalTearAndLoseNothing) {
    const char *const asked = getenv("VOS_TEST_KILLS"); /* for a long run */
    const uint32_t kills = asked != nullptr ? static_cast<uint32_t>(atoi(asked)) : 300;
    constexpr std::size_t kSavers = 32;
    const std::string journal = "/flash/journal";
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::string body = erasedBody(kSystem);
    putFile(kSystem.path, partitionOf(body.replace(16, 4, nativeWord(0))));
    putFile(kConfiguration, contentOf(0));
    void *const room = mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(room, MAP_FAILED);
    Ledger &ledger = *new (room) Ledger;

    uint32_t processes = 0;
    std::vector<uint32_t> ended(1, 0); /* the tick at which each process had ended */
    const auto startOne = [&] {
        ended.push_back(0);
        const uint32_t number = ++processes;
        return std::make_unique<Process>([&ledger, number, journal] { saveAndRead(ledger, number, journal); });
    };
    std::vector<std::pair<uint32_t, std::unique_ptr<Process>>> savers;
    for (std::size_t i = 0; i < kSavers; ++i) savers.emplace_back(processes + 1, startOne());
    for (uint32_t kill = 0; kill < kills; ++kill) {
        auto &[number, process] = savers[random() % kSavers];
        usleep(static_cast<useconds_t>(random() % 3000)); /* makes the random moment; waits for no event */
        process->send(SIGKILL);
        EXPECT_TRUE(process->finish().killedBy(SIGKILL)) << "process " << number << " ended by itself";
        ended[number] = ++ledger.clock;
        number = processes + 1;
        process = startOne();
    }
    for (auto &[number, process] : savers) {
        process->send(SIGKILL);
        EXPECT_TRUE(process->finish().killedBy(SIGKILL));
        ended[number] = ++ledger.clock;
    }
    run([&] {
        szVosJournalDir = journal.c_str();
        vosDebugConfig(0);
        for (const unsigned store : {0u, 1u}) {
            const uint32_t save = store == 0 ? savedConfiguration() : savedItem();
            const uint32_t over = ledger.end[save] != 0 ? ledger.end[save].load() : ended[ledger.owner[save]];
            EXPECT_GE(over, ledger.lastStart[store]) << "a later save was reported, and is lost";
            EXPECT_GT(ledger.lastStart[store], 100u) << "nearly nothing was saved";
        }
    });
    printf("%u kills, %u saves and reports\n", kills, ledger.clock.load());
    munmap(room, sizeof(Ledger));
}
