/* SPDX-License-Identifier: MIT */
/* vos.hpp: locks, interval timers, stores, items, shared memory, namespaces, log lines. */
#include <atomic>
#include <csignal>
#include <fstream>
#include <mutex>
#include <thread>

#include "../vosMsg/peer.h"
#include "vos.hpp"

using namespace std::chrono_literals;
using namespace vostest;

namespace {

TEST(CppMutex, FitsTheLocksOfTheStandard) {
    vos::mutex mutex, other;
    {
        const std::lock_guard<vos::mutex> guard{mutex};
        const std::lock_guard<vos::mutex> again{mutex};
        bool taken = true;
        std::thread{[&] { taken = mutex.try_lock() || mutex.try_lock_for(1ms); }}.join();
        EXPECT_FALSE(taken);
    }
    const std::scoped_lock both{mutex, other};
    std::unique_lock<vos::mutex> third{mutex, std::try_to_lock};
    EXPECT_TRUE(third);
    EXPECT_TRUE(mutex.try_lock_for(vos::forever));
    mutex.unlock();
}

TEST(CppSemaphore, CountsAndWaits) {
    vos::semaphore semaphore{2};
    EXPECT_TRUE(semaphore.try_take());
    EXPECT_TRUE(semaphore.take(vos::no_wait));
    EXPECT_TRUE(semaphore.take(1ms).timed_out());
    std::thread giving{[&] { EXPECT_TRUE(semaphore.give()); }};
    EXPECT_TRUE(semaphore.take());
    giving.join();
}

TEST(CppWaitObject, RemembersEvents) {
    vos::wait_object wait;
    EXPECT_TRUE(wait.take(vos::no_wait).timed_out());
    EXPECT_TRUE(wait.give());
    EXPECT_TRUE(wait.take(20s));
    EXPECT_TRUE(wait.take(1ms).timed_out());
}

TEST(CppIntervalTimer, CallsUntilItIsGoneAndNeverAfterwards) {
    std::atomic<int> calls{0};
    {
        const auto timer = vos::interval_timer::every(1ms, [&] { ++calls; });
        ASSERT_TRUE(timer);
        EXPECT_TRUE(eventually([&] { return calls >= 3; }));
    }
    const int at_the_end = calls;
    vos::semaphore never{0};
    EXPECT_TRUE(never.take(30ms).timed_out());
    EXPECT_EQ(calls, at_the_end);
}

TEST(CppIntervalTimer, FiresOnceAndMayDestroyItselfInItsOwnCall) {
    std::atomic<int> calls{0};
    const auto once = vos::interval_timer::once(0ms, [&] { ++calls; });
    EXPECT_TRUE(eventually([&] { return calls == 1; }));

    vos::semaphore made{0}, gone{0};
    std::optional<vos::interval_timer> timer;
    const auto state = std::make_shared<int>(42);
    timer = vos::interval_timer::every(1ms, [&, state] {
                if (!made.take()) return;
                timer.reset();
                EXPECT_EQ(*state, 42);
                EXPECT_TRUE(gone.give());
            }).value();
    EXPECT_TRUE(made.give());
    EXPECT_TRUE(gone.take(20s));
    EXPECT_TRUE(eventually([&] { return state.use_count() == 1; })) << "the callable was not destroyed";
}

TEST(CppIntervalTimer, TheDestructorWaitsForACallThatRuns) {
    vos::semaphore inside{0};
    std::atomic<bool> ended{false};
    {
        const auto timer = vos::interval_timer::once(1ms, [&] {
            EXPECT_TRUE(inside.give());
            vos::semaphore never{0};
            EXPECT_TRUE(never.take(20ms).timed_out());
            ended = true;
        });
        EXPECT_TRUE(inside.take(20s));
    }
    EXPECT_TRUE(ended);
}

TEST(CppConfig, IsSavedLoadedAndRemoved) {
    EXPECT_TRUE(run([] {
                    szVosCfgFileName = "/tmp/cpp-config";
                    vos::config::remove();
                    EXPECT_FALSE(vos::config::exists());
                    EXPECT_EQ(vos::config::load().code(), VOS_ERR_NO_FILE);
                    EXPECT_TRUE(vos::config::save("name x\n"));
                    EXPECT_EQ(vos::config::load().value().text(), "name x\n");
                    EXPECT_TRUE(vos::config::save(std::string_view{}));
                    EXPECT_EQ(vos::config::load().value().text(), "");
                    szVosCfgFileName = "/no/such/directory/config";
                    vosDebugConfig(0);
                    const auto saved = vos::config::save("x");
                    EXPECT_EQ(saved.code(), VOS_ERROR);
                    EXPECT_EQ(saved.error_number(), ENOENT);
                }).exited(0));
}

TEST(CppSyslog, IsReadAsFarAsItFits) {
    EXPECT_TRUE(run([] {
                    szVosSyslogFileName = "/tmp/cpp-syslog";
                    EXPECT_EQ(vos::syslog::save("a line\n").value(), 7u);
                    char room[4];
                    EXPECT_EQ(vos::syslog::load(room).value().chars(), "a li");
                    std::vector<uint8_t> all(100);
                    EXPECT_EQ(vos::syslog::load(all).value().chars(), "a line\n");
                    unlink(szVosSyslogFileName);
                    EXPECT_EQ(vos::syslog::load(room).code(), VOS_ERR_NO_FILE);
                }).exited(0));
}

TEST(CppItems, AreTypedByTheirNumber) {
    EXPECT_TRUE(run([] {
                    szFactoryData = "/tmp/cpp-factory";
                    szSysData = "/tmp/cpp-sysdata";
                    vosSysConfigDataInit();
                    const vos::mac_address mac{2, 0, 0, 0, 0, 7};
                    EXPECT_TRUE(vos::items::set(vos::items::systemMac, mac));
                    EXPECT_EQ(vos::items::get(vos::items::systemMac).value(), mac);
                    EXPECT_TRUE(vos::items::set(vos::items::ipAddress, 0xC0000201));
                    EXPECT_EQ(vos::items::get(vos::items::ipAddress).value(), 0xC0000201);
                    EXPECT_TRUE(vos::items::set(vos::items::serialNumber, std::string(40, 'S')));
                    EXPECT_EQ(vos::items::get(vos::items::serialNumber)->view(), std::string(32, 'S'));
                    EXPECT_TRUE(vos::items::set(vos::items::serialNumber, "SN-1"));
                    EXPECT_EQ(vos::serial_number(), "SN-1");
                    EXPECT_TRUE(vos::items::set(vos::items::privilegedPasswordFlag, 1));
                    vos::stack_settings stack;
                    stack.settings[0] = 5;
                    EXPECT_TRUE(vos::items::set(vos::items::stack, stack));
                    EXPECT_EQ(vos::items::get(vos::items::stack)->settings[0], 5);
                    EXPECT_TRUE(vos::items::clear_users());
                    EXPECT_EQ(vos::items::get(vos::items::users)->back(), 0xFF);
                    szSysData = "/no/such/file";
                    vosDebugConfig(0);
                    EXPECT_EQ(vos::items::get(vos::items::ipAddress).code(), VOS_ERROR);
                }).exited(0));
}

/* The sizes are the library's: it refuses a room of one byte less. */
template <class Item>
void fits(Item /*which*/) {
    using Value = typename Item::value_type;
    std::array<uint8_t, sizeof(Value)> room{};
    if (Item::readable) {
        EXPECT_EQ(vosSysConfigDataGet(Item::number, room.data(), sizeof(Value)), VOS_OK) << Item::number;
        EXPECT_EQ(vosSysConfigDataGet(Item::number, room.data(), sizeof(Value) - 1), VOS_ERROR) << Item::number;
    }
}

TEST(CppItems, HaveTheSizesOfTheLibrary) {
    EXPECT_TRUE(run([] {
                    szFactoryData = "/tmp/cpp-factory-sizes";
                    szSysData = "/tmp/cpp-sysdata-sizes";
                    vosSysConfigDataInit();
                    vosDebugConfig(0);
                    namespace items = vos::items;
                    const auto all = [](auto... item) { (fits(item), ...); };
                    all(items::systemMac, items::defaultMac, items::oemNumber, items::serialNumber,
                        items::flashDataVersion, items::ipAddress, items::ipMask, items::ipGateway, items::baudRate,
                        items::adminPassword, items::privilegedPassword, items::privilegedPasswordFlag, items::bootTime,
                        items::users, items::softFlags, items::oemInfo, items::macLearningMode, items::macHashMode,
                        items::stack, items::zeroTouch);
                }).exited(0));
}

TEST(CppFile, IsReadAndWrittenWhole) {
    vosDebugConfig(0);
    const uint8_t data[3] = {1, 2, 3};
    EXPECT_TRUE(vos::file::write("/tmp/cpp-file", data));
    std::vector<uint8_t> room(10);
    EXPECT_EQ(vos::file::read("/tmp/cpp-file", room).value().size(), 3u);
    EXPECT_EQ(vos::file::size("/tmp/cpp-file").value(), 3u);
    EXPECT_TRUE(vos::file::copy("/tmp/cpp-file", "/tmp/cpp-copy"));
    EXPECT_TRUE(vos::file::exists("/tmp/cpp-copy"));
    vos::file::remove("/tmp/cpp-copy");
    EXPECT_EQ(vos::file::read("/tmp/cpp-copy", room).code(), VOS_ERR_NO_FILE);
    EXPECT_EQ(vos::file::size("/tmp/cpp-copy").error_number(), ENOENT);
    EXPECT_EQ(vos::crc32(vos::bytes{"123456789", 9}), 0xCBF43926u);
}

TEST(CppImage, IsCheckedAndRefused) {
    EXPECT_TRUE(run([] {
                    vosDebugConfig(0);
                    szAppFileName = "/tmp/cpp-app";
                    std::vector<uint8_t> image(100);
                    image[3] = 2; /* the type; network byte order */
                    ASSERT_TRUE(vos::file::write("/tmp/cpp-app", image));
                    using vos::image::type;
                    EXPECT_EQ(vos::image::check(type::boot_loader, image).code(), VOS_ERR_IMAGE_TYPE);
                    EXPECT_EQ(vos::image::check(type::application, image).code(), VOS_ERR_IMAGE_CRC);
                    EXPECT_EQ(vos::image::check_file(type::application, "/tmp/cpp-app").code(), VOS_ERR_IMAGE_CRC);
                    EXPECT_EQ(vos::image::install(image).code(), VOS_ERR_IMAGE_CRC);
                    EXPECT_EQ(vos::image::install({}).code(), VOS_ERR_PARAM);
                    EXPECT_TRUE(vos::image::set_version("1.0"));
                    EXPECT_FALSE(vos::image::backup()->exists);
                }).exited(0));
}

struct Shared {
    int32_t number;
};

TEST(CppSharedMemory, IsSharedAndDetached) {
    vosDebugConfig(0);
    ASSERT_TRUE(vos::file::write("/tmp/cpp-shared", "x"));
    EXPECT_EQ(vos::shared_memory<Shared>::attach("/tmp/cpp-shared", 7).error_number(), ENOENT);
    EXPECT_EQ(vos::shared_memory<Shared>::create("/tmp/cpp-shared", 0).code(), VOS_ERR_PARAM);
    auto created = vos::shared_memory<Shared>::create("/tmp/cpp-shared", 7);
    if (!created && created.error_number() == EACCES) GTEST_SKIP() << "mode 0420: only a privileged owner may write";
    ASSERT_TRUE(created) << created.error_number();
    (*created)->number = 5;
    const auto other = vos::shared_memory<const Shared>::attach("/tmp/cpp-shared", 7);
    ASSERT_TRUE(other);
    EXPECT_EQ((*other)->number, 5);
}

TEST(CppVrf, AWrongNumberIsRefused) {
    vosDebugConfig(0);
    EXPECT_EQ(vos::vrf_scope::enter(0).code(), VOS_ERR_PARAM);
    EXPECT_EQ(vos::vrf_scope::enter(4321).code(), VOS_ERROR);
    EXPECT_GT(vos::interface_index("lo").value(), 0u);
    EXPECT_EQ(vos::interface_name(vos::interface_index("lo").value()).value(), "lo");
    EXPECT_EQ(vos::interface_index("none").error_number(), ENODEV);
}

TEST(CppProcess, TellsOfItselfAndOthers) {
    EXPECT_TRUE(run([] {
                    EXPECT_TRUE(vos::process::init("cpp"));
                    EXPECT_EQ(vos::process::name(), "cpp");
                    EXPECT_EQ(vos::process::init(std::string(33, 'x')).code(), VOS_ERR_PARAM);
                    EXPECT_TRUE(vos::process::exists(vos::process::id()));
                    EXPECT_FALSE(vos::process::name_of(vos::process::id())->empty());
                    EXPECT_FALSE(vos::process::scheduling_of(0)->policy.empty());
                    EXPECT_EQ(vos::process::destroy(0).code(), VOS_ERR_PARAM) << "that would be the process group";
                    EXPECT_EQ(vos::process::destroy(-1).code(), VOS_ERR_PARAM) << "that would be everybody";
                    const auto created = vos::process::create("/no/such/program", 10);
                    EXPECT_EQ(created.code(), VOS_ERR_NO_FILE);
                    EXPECT_EQ(created.error_number(), ENOENT);
                }).exited(0));
}

std::vector<std::string> logged(const std::function<void()> &body) {
    return run([&] {
               freshWorld();
               vosDebugConfig(VOS_DEBUG_ERROR);
               body();
           })
        .messages();
}

TEST(CppLog, PercentSignsOfArgumentsAreShownAndTheFunctionIsNamed) {
    using testing::ElementsAre;
    EXPECT_THAT(logged([] { vos::log(vos::level::error)("%s %d%%", "100%n", 5); }), ElementsAre("operator():100%n 5%"));
    EXPECT_THAT(logged([] { vos::log(vos::level::trace)("off at the start"); }), testing::IsEmpty());
    EXPECT_THAT(logged([] { vos::log(vos::level::error, "f")("%s", std::string(300, 'x').c_str()); }),
                ElementsAre("f:" + std::string(253, 'x')));
    EXPECT_THAT(logged([] { vos::log(vos::level::error, "f")("%s", std::string(300, '%').c_str()); }),
                ElementsAre("f:" + std::string(126, '%')));
    EXPECT_THAT(logged([] {
                    errno = ENOENT;
                    vos::log(vos::level::error, "f")("kept");
                    EXPECT_EQ(errno, ENOENT);
                }),
                ElementsAre("f:kept"));
}

}  // namespace
