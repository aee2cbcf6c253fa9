/* SPDX-License-Identifier: MIT */
/* vos.hpp in a debug build: misuse that the types cannot refuse ends the process with a line. */
#undef NDEBUG
#include <csignal>
#include <memory>
#include <thread>

#include "../vosMsg/peer.h"
#include "vos.hpp"

using namespace std::chrono_literals;
using namespace vostest;

namespace {

/* The scenario dies with this line. */
void expectEnd(const Body &body, const std::string &line) {
    const Outcome outcome = run([&] {
        freshWorld();
        vosDebugConfig(0);
        body();
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT)) << outcome.output;
    EXPECT_NE(outcome.output.find("vos.hpp:" + line), std::string::npos) << outcome.output;
}

/* A request that wants an answer. */
vos::request received(vos::channel &channel) {
    static vostest::Peer *const requester = stay("/tmp/vos/requester");
    EXPECT_TRUE(channel.open("served"));
    EXPECT_TRUE(requester->send("/tmp/vos/served", application("question")));
    return channel.receive(3s).value();
}

TEST(CppMisuse, ASecondAnswer) {
    expectEnd(
        [] {
            vos::channel channel;
            vos::request request = received(channel);
            EXPECT_TRUE(request.answer(0));
            static_cast<void>(request.answer(0));
        },
        "a request is answered twice");
}

TEST(CppMisuse, AForgottenAnswer) {
    expectEnd(
        [] {
            vos::channel channel;
            static_cast<void>(received(channel));
        },
        "a request was not answered");
    EXPECT_TRUE(run([] {
                    freshWorld();
                    vosDebugConfig(0);
                    vos::channel channel;
                    vos::request request = received(channel);
                    vos::request moved = std::move(request);
                    moved.ignore();
                }).exited(0));
}

TEST(CppMisuse, APayloadAfterTheNextReceive) {
    expectEnd(
        [] {
            vos::channel channel;
            vos::request request = received(channel);
            static_cast<void>(channel.receive(1ms));
            static_cast<void>(request.payload());
        },
        "the payload of an earlier request is used");
}

TEST(CppMisuse, ATimerThatOutlivesItsChannel) {
    expectEnd(
        [] {
            vos::timer timer;
            vos::channel channel;
            EXPECT_TRUE(channel.open("served"));
            timer = channel.every(1s, [] {}).value();
        },
        "a timer or a descriptor outlives its channel");
}

TEST(CppMisuse, AnotherThreadThanTheReceiver) {
    expectEnd(
        [] {
            vos::channel channel;
            EXPECT_TRUE(channel.open("served"));
            EXPECT_TRUE(channel.receive(1ms).timed_out());
            std::thread{[&] { static_cast<void>(channel.every(1s, [] {})); }}.join();
        },
        "a channel is used by another thread");
}

TEST(CppMisuse, TheValueOfAFailedResult) {
    expectEnd(
        [] {
            const vos::result<int> failed = vos::error{VOS_ERROR};
            static_cast<void>(*failed);
        },
        "a failed result has no value");
}

TEST(CppMisuse, AMutexOfAnotherThreadOrDestroyedWhileLocked) {
    expectEnd([] { vos::mutex{}.unlock(); }, "a mutex is unlocked by a thread that does not have it");
    expectEnd(
        [] {
            vos::mutex mutex;
            mutex.lock();
        },
        "a mutex is destroyed while it is locked");
}

}  // namespace
