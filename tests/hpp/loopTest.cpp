/* SPDX-License-Identifier: MIT */
/* vos.hpp: timers, descriptors and handlers of the receive loops, and their owners. */
#include <csignal>
#include <memory>
#include <thread>

#include "../vosMsg/peer.h"
#include "vos.hpp"

using namespace std::chrono_literals;
using namespace vostest;

namespace {

std::size_t timers() {
    std::size_t count = 0;
    for (const VOS_MSG_TIMER *timer = g_pVosMsgTimerFirst; timer != nullptr; timer = timer->pNext) ++count;
    for (const VOS_MSG_TIMER *timer = g_pVosMsgTimerFirst2; timer != nullptr; timer = timer->pNext) ++count;
    return count;
}

/* State of a callable that must be alive while it runs, and gone afterwards. */
struct Token {
    std::shared_ptr<int> state = std::make_shared<int>(42);
};

template <class Channel>
void scenario(const std::function<void(Channel &)> &body) {
    EXPECT_TRUE(run([&] {
                    freshWorld();
                    vosDebugConfig(0);
                    vos::channel main;
                    EXPECT_TRUE(main.open("main"));
                    if constexpr (std::is_same_v<Channel, vos::channel>) {
                        body(main);
                    } else {
                        Channel channel;
                        EXPECT_TRUE(channel.open("other"));
                        body(channel);
                    }
                }).exited(0));
}

template <class Channel>
class CppLoop : public testing::Test {};
using Channels = testing::Types<vos::channel, vos::second_channel>;
TYPED_TEST_SUITE(CppLoop, Channels);

TYPED_TEST(CppLoop, ATimerFiresAgainAndAgainUntilItsOwnerIsGone) {
    scenario<TypeParam>([](TypeParam &channel) {
        int fired = 0;
        {
            const auto timer = channel.every(1ms, [&] {
                if (++fired == 3) channel.stop();
            });
            EXPECT_TRUE(timer->active());
            EXPECT_TRUE(channel.run());
        }
        EXPECT_EQ(fired, 3);
        EXPECT_TRUE(channel.receive(20ms).timed_out());
        EXPECT_EQ(fired, 3);
        EXPECT_EQ(timers(), 0u);
    });
}

TYPED_TEST(CppLoop, ATimerThatFiresOnceIsInactiveInItsCallAndNotTouchedAfterwards) {
    scenario<TypeParam>([](TypeParam &channel) {
        vos::timer timer;
        bool activeInside = true;
        timer = channel
                    .after(1ms,
                           [&](std::chrono::milliseconds late) {
                               EXPECT_GE(late.count(), 0);
                               activeInside = timer.active();
                               channel.stop();
                           })
                    .value();
        EXPECT_TRUE(timer.active());
        EXPECT_TRUE(channel.run());
        EXPECT_FALSE(activeInside);
        EXPECT_FALSE(timer.active());
        /* The library may give the record's address to another timer, which the old owner must not touch. */
        const auto other = channel.every(1h, [] {});
        timer.cancel();
        EXPECT_TRUE(other->active());
        EXPECT_EQ(timers(), 1u);
    });
}

TYPED_TEST(CppLoop, ATimerMayDestroyItselfInItsOwnCall) {
    scenario<TypeParam>([](TypeParam &channel) {
        const Token token;
        std::weak_ptr<int> watched = token.state;
        auto timer = std::make_unique<vos::timer>();
        *timer = channel
                     .every(1ms,
                            [&, token] {
                                timer.reset();
                                EXPECT_EQ(*token.state, 42) << "the callable is used after its owner";
                                channel.stop();
                            })
                     .value();
        EXPECT_EQ(watched.use_count(), 2);
        EXPECT_TRUE(channel.run());
        EXPECT_TRUE(channel.receive(5ms).timed_out());
        EXPECT_EQ(watched.use_count(), 1) << "the callable was not destroyed";
        EXPECT_EQ(timers(), 0u);
    });
}

TYPED_TEST(CppLoop, ATimerMayBeReplacedInItsOwnCall) {
    scenario<TypeParam>([](TypeParam &channel) {
        vos::timer timer;
        int second = 0;
        timer = channel
                    .every(1ms,
                           [&] {
                               timer = channel
                                           .every(1ms,
                                                  [&] {
                                                      if (++second == 2) channel.stop();
                                                  })
                                           .value();
                           })
                    .value();
        EXPECT_TRUE(channel.run());
        EXPECT_EQ(second, 2);
        timer.cancel();
        EXPECT_TRUE(channel.receive(5ms).timed_out());
        EXPECT_EQ(timers(), 0u);
    });
}

TYPED_TEST(CppLoop, ADescriptorIsWatchedUntilItsOwnerIsGoneAlsoInItsOwnCall) {
    scenario<TypeParam>([](TypeParam &channel) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_EQ(write(ends[1], "xy", 2), 2);
        int calls = 0;
        const Token token;
        auto watch = std::make_unique<vos::descriptor>();
        *watch = channel
                     .watch(vos::unique_fd{ends[0]},
                            [&, token](int fd) {
                                char byte = 0;
                                EXPECT_EQ(read(fd, &byte, 1), 1);
                                if (++calls < 2) return;
                                watch.reset();
                                EXPECT_EQ(*token.state, 42);
                                EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "the owner closes it";
                                channel.stop();
                            })
                     .value();
        EXPECT_EQ(channel.watch(ends[0], [] {}).code(), VOS_ERR_EXIST);
        EXPECT_EQ(channel.watch(-1, [] {}).code(), VOS_ERR_PARAM);
        EXPECT_EQ(channel.watch(1024, [] {}).code(), VOS_ERR_PARAM);
        EXPECT_TRUE(channel.run());
        EXPECT_EQ(calls, 2);
        EXPECT_EQ(g_pUserSocketList, nullptr);
        EXPECT_EQ(token.state.use_count(), 1);
        close(ends[1]);
    });
}

TYPED_TEST(CppLoop, StopEndsARunThatHasNotBegunAndOneOfAnotherThread) {
    scenario<TypeParam>([](TypeParam &channel) {
        channel.stop();
        channel.stop();
        EXPECT_TRUE(channel.run());
        std::thread stopping{[&] { channel.stop(); }};
        EXPECT_TRUE(channel.run());
        stopping.join();
    });
}

TYPED_TEST(CppLoop, AStopWhileRequestsComeIsNeverTakenForARequest) {
    scenario<TypeParam>([](TypeParam &channel) {
        const char *const name = std::is_same_v<TypeParam, vos::channel> ? "main" : "other";
        int empty = 0;
        for (int round = 0; round < 300; ++round) {
            std::atomic<bool> ended{false};
            std::thread sending{[&] {
                while (!ended) static_cast<void>(vos::post(name, "x", 1s));
            }};
            std::thread stopping{[&] { channel.stop(); }};
            EXPECT_TRUE(channel.run([&](vos::request &request) { empty += request.payload().empty() ? 1 : 0; }));
            ended = true;
            while (channel.receive(vos::no_wait)) continue; /* what the sender waits for */
            sending.join();
            stopping.join();
        }
        EXPECT_EQ(empty, 0);
    });
}

TEST(CppChannel, ThatIsNotOpenSaysSo) {
    EXPECT_TRUE(run([] {
                    vosDebugConfig(0);
                    vos::channel channel;
                    EXPECT_EQ(channel.receive(1s).code(), VOS_ERR_NOT_INIT);
                    EXPECT_EQ(channel.run().code(), VOS_ERR_NOT_INIT);
                    freshWorld();
                    EXPECT_TRUE(channel.open("twice"));
                    EXPECT_EQ(channel.open("twice").code(), VOS_ERR_EXIST);
                }).exited(0));
}

TEST(CppTermination, IsHandledInTheLoopAndMayDoAnything) {
    Process daemon = start([] {
        freshWorld();
        vosDebugConfig(0);
        vos::channel channel;
        EXPECT_TRUE(vos::process::init("daemon"));
        EXPECT_TRUE(channel.open("daemon"));
        const auto end = vos::on_termination(channel, [&] {
            vos::print("\r\nended in good order\r\n");
            channel.stop();
        });
        EXPECT_TRUE(end);
        ready();
        EXPECT_TRUE(channel.run());
    });
    daemon.awaitReady();
    daemon.send(SIGTERM);
    const Outcome outcome = daemon.finish();
    EXPECT_TRUE(outcome.exited(0)) << outcome.output;
    EXPECT_NE(outcome.output.find("ended in good order"), std::string::npos) << outcome.output;
}

TEST(CppHandlers, TheRunningConfigurationAndObjectsReachAnotherProcess) {
    EXPECT_TRUE(run([] {
                    Process server = start([] {
                        freshWorld();
                        vosDebugConfig(0);
                        vos::channel channel;
                        EXPECT_TRUE(channel.open("owner"));
                        const auto config =
                            vos::on_running_config([&](vos::config_writer &out, uint32_t a, uint32_t b) {
                                out.print("values %u %u\n", a, b) << "end";
                                return a == 9 ? 77 : VOS_OK;
                            });
                        const auto described =
                            vos::on_object_description([](std::string_view name, uint32_t argument, auto &out) {
                                if (name != "object") return VOS_ERR_PARAM;
                                out.first = {argument, 2, 3, 4, 5, 6};
                                out.count = 32;
                                out.table.fill(7);
                                out.last = {8, 9, 10};
                                return VOS_OK;
                            });
                        EXPECT_TRUE(config && described);
                        ready();
                        EXPECT_TRUE(channel.run([&](vos::request &request) {
                            EXPECT_TRUE(request.answer(0));
                            channel.stop();
                        }));
                    });
                    server.awaitReady();
                    std::vector<char> room(100);
                    EXPECT_EQ(vos::running_config("owner", room, 1, 2).value(), "values 1 2\nend");
                    EXPECT_EQ(vos::running_config("owner", room, 9, 2).code(), 77);
                    std::vector<char> small(33);
                    EXPECT_TRUE(vos::running_config("owner", small));
                    std::vector<char> tiny(32);
                    EXPECT_FALSE(vos::running_config("owner", tiny));
                    const auto about = vos::describe("owner", "object", 5).value();
                    EXPECT_EQ(about.code, VOS_OK);
                    EXPECT_EQ(about.value.first, (std::array<uint32_t, 6>{5, 2, 3, 4, 5, 6}));
                    EXPECT_EQ(about.value.count, 32u);
                    EXPECT_EQ(about.value.last, (std::array<uint32_t, 3>{8, 9, 10}));
                    EXPECT_EQ(vos::describe("owner", "none", 5).value().code, VOS_ERR_PARAM);
                    EXPECT_EQ(vos::call("owner", "", 3s).value(), 0);
                    EXPECT_TRUE(server.finish().exited(0));
                }).exited(0));
}

TEST(CppHandlers, AConfigurationThatDoesNotFitIsAnError) {
    char room[8];
    vos::config_writer out{room, 8};
    out << "1234"
        << "12345";
    EXPECT_TRUE(out.full());
    EXPECT_EQ(out.left(), 4);
    vos::config_writer printed{room, 8};
    printed.print("%s", "12345678");
    EXPECT_TRUE(printed.full()) << "printf() needs space for its NUL";
    vos::config_writer none{room, 0};
    none << "";
    EXPECT_FALSE(none.full());
    none << "x";
    EXPECT_TRUE(none.full());
}

TEST(CppHandlers, ALaterOneReplacesAnEarlierOneWhoseOwnerThenHasNoEffect) {
    EXPECT_TRUE(run([] {
                    int first = 0, second = 0;
                    vos::handler handler = vos::on_port_link(1, [&] { ++first; }).value();
                    handler = vos::on_port_link(1, [&](uint32_t port, uint32_t up) {
                                  second += static_cast<int>(port + up);
                              }).value();
                    ASSERT_NE(g_vosAgLinktrapProc, nullptr);
                    g_vosAgLinktrapProc(2, 1);
                    EXPECT_EQ(first, 0);
                    EXPECT_EQ(second, 3);
                    handler.cancel();
                    EXPECT_EQ(g_vosAgLinktrapProc, nullptr);
                    EXPECT_EQ(vos::on_port_link(2, [] {}).code(), VOS_ERR_PARAM);
                }).exited(0));
}

TEST(CppHandlers, EveryEventCarriesItsWords) {
    EXPECT_TRUE(run([] {
                    uint32_t sum = 0;
                    const auto packets = vos::on_packet([&](const vos::packet &packet) {
                        sum +=
                            static_cast<uint32_t>(packet.data.size()) + packet.info.aucData[0] + packet.ext.aucData[0];
                    });
                    const auto vlans = vos::on_vlan_link([&](uint32_t a, uint32_t b, uint32_t c) { sum += a + b + c; });
                    const auto macs = vos::on_mac([&](uint32_t a, uint32_t b, uint32_t c, const void *at) {
                        sum += a + b + c + (at != nullptr);
                    });
                    uint8_t data[3] = {};
                    VOS_PKT_INFO info{{10}};
                    VOS_PKT_EXT ext{{20}};
                    g_vosPktProc(data, 3, info, ext);
                    EXPECT_EQ(sum, 33u);
                    g_vosPktProc(data, -1, info, ext);
                    EXPECT_EQ(sum, 63u);
                    g_vosVlanintfLinktrapProc(100, 200, 300);
                    g_vosMacTrapProc(1000, 2000, 3000, data);
                    EXPECT_EQ(sum, 6664u);
                }).exited(0));
}

TEST(CppHandlers, AnObjectsValueStaysInsideTheRequestersRoom) {
    uint32_t indexes[4] = {7};
    int32_t count = 1;
    uint64_t value = 5;
    uint32_t length = 4;
    uint16_t argument = 3;
    vos::object_access access{2, "name", indexes, &count, &value, &length, &argument};
    EXPECT_EQ(length, 0u) << "without an answer no value is sent";
    EXPECT_EQ(access.value().size(), 4u);
    EXPECT_EQ(access.index(0), 7u);
    EXPECT_EQ(access.index(1), 0u);
    EXPECT_EQ(access.index(-1), 0u);
    EXPECT_EQ(access.answer(uint64_t{1}), VOS_ERR_PARAM);
    EXPECT_EQ(access.answer(uint32_t{9}), VOS_OK);
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(value, 9u);
    const uint32_t words[2] = {1, 2};
    EXPECT_TRUE(access.set_indexes(words, 2));
    EXPECT_FALSE(access.set_indexes(words, 16143));
    EXPECT_FALSE(access.set_indexes(words, -1));
    EXPECT_EQ(count, 2);
}

}  // namespace
