/* SPDX-License-Identifier: MIT */
/* vos.hpp: requests and answers between processes, and their lengths on every kind of socket. */
#include <csignal>
#include <thread>

#include "../vosMsg/peer.h"
#include "support/child.h"
#include "support/faults.h"
#include "vos.hpp"

using namespace std::chrono_literals;
using namespace vostest;

namespace {

/* A server that answers each request with its own payload, and its lane and length as the code. */
Process echo() {
    Process server = start([] {
        freshWorld();
        vos::channel channel;
        vosDebugConfig(0);
        EXPECT_TRUE(channel.open("echo"));
        ready();
        EXPECT_TRUE(channel.run([&](vos::request &request) {
            if (request.text() == "stop") channel.stop();
            const auto size = static_cast<int32_t>(request.payload().size());
            /* The requester looks at the answer; one whose call has failed is gone. */
            static_cast<void>(request.answer(request.high() ? -size : size, request.payload()));
        }));
    });
    server.awaitReady();
    return server;
}

void stop(Process &server) {
    EXPECT_TRUE(vos::post("echo", "stop", 3s));
    EXPECT_TRUE(server.finish().exited(0));
}

TEST(CppRequest, LengthsAreRightOnBothLanes) {
    EXPECT_TRUE(run([] {
                    Process server = echo();
                    std::vector<char> room(70000);
                    for (const std::size_t size : {0u, 1u, 31u, 32u, 33u, 64535u, 64536u, 64537u, 64567u, 64568u}) {
                        const std::string sent(size, 'x');
                        const auto normal = vos::call("echo", sent, room, 3s);
                        ASSERT_TRUE(normal) << size << ": " << normal.words();
                        EXPECT_EQ(normal->code, static_cast<int32_t>(size));
                        EXPECT_EQ(normal->value.chars(), sent);
                        const auto high = vos::call(vos::high("echo"), sent, room, 3s);
                        ASSERT_TRUE(high) << size << ": " << high.words();
                        EXPECT_EQ(high->code, -static_cast<int32_t>(size));
                        EXPECT_EQ(high->value.chars(), sent);
                    }
                    EXPECT_EQ(vos::call("echo", std::string(64569, 'x'), 3s).code(), VOS_ERR_TOO_LONG);
                    EXPECT_EQ(vos::post("echo", std::string(64569, 'x'), 3s).code(), VOS_ERR_TOO_LONG);
                    stop(server);
                }).exited(0));
}

struct Question {
    int32_t number;
};
struct Reply {
    int32_t twice;
    int32_t half;
};

TEST(CppRequest, AnswersMayBeOfAnotherTypeAndAreCheckedAgainstIt) {
    EXPECT_TRUE(run([] {
                    Process server = start([] {
                        freshWorld();
                        vos::channel channel;
                        vosDebugConfig(0);
                        EXPECT_TRUE(channel.open("typed"));
                        ready();
                        EXPECT_TRUE(channel.run([&](vos::request &request) {
                            const auto question = request.as<Question>();
                            if (!question) {
                                channel.stop();
                                EXPECT_TRUE(request.answer(question.code()));
                                return;
                            }
                            EXPECT_TRUE(request.answer(7, Reply{question->number * 2, question->number / 2}));
                        }));
                    });
                    server.awaitReady();
                    const auto reply = vos::call<Reply>("typed", Question{10}, 3s);
                    ASSERT_TRUE(reply) << reply.words();
                    EXPECT_EQ(reply->code, 7);
                    EXPECT_EQ(reply->value.twice, 20);
                    EXPECT_EQ(reply->value.half, 5);
                    EXPECT_EQ(vos::call<Question>("typed", Question{10}, 3s).code(), VOS_ERR_TOO_LONG);
                    EXPECT_EQ((vos::call<std::array<Reply, 2>>("typed", Question{10}, 3s).code()), VOS_ERR_PARAM);
                    EXPECT_EQ(vos::call("typed", Question{10}, 3s).value(), 7);
                    EXPECT_EQ(vos::call("typed", Reply{1, 2}, 3s).value(), VOS_ERR_PARAM) << "of another length";
                    EXPECT_TRUE(server.finish().exited(0));
                }).exited(0));
}

TEST(CppRequest, ARecordIsExchangedInPlace) {
    EXPECT_TRUE(run([] {
                    Process server = echo();
                    Reply record{3, 4};
                    EXPECT_EQ(vos::exchange("echo", record, 3s).value(), 8);
                    EXPECT_EQ(record.half, 4);
                    EXPECT_EQ(vos::exchange(vos::high("echo"), record, 3s).value(), -8);
                    stop(server);
                }).exited(0));
}

TEST(CppRequest, FailuresTellTheReason) {
    const Outcome outcome = run([] {
        freshWorld();
        const vostest::Peer somebody{"/tmp/vos/somebody"}; /* makes the directory */
        Reply record{};
        char room[8];
        EXPECT_EQ(vos::exchange("nobody", record, 1s).error_number(), ENOENT);
        EXPECT_EQ(vos::call("nobody", "", room, 1s).error_number(), ENOENT);
        EXPECT_EQ(vos::call("nobody", "", room, 1s).code(), VOS_ERROR);
        EXPECT_EQ(vos::post("nobody", "", 1s).error_number(), ENOENT);
        const std::string tooLong(200, 'n');
        EXPECT_EQ(vos::call(tooLong, "", 1s).error_number(), EINVAL);
        EXPECT_EQ(vos::call(vos::high(tooLong), "", 1s).code(), VOS_ERROR);
        EXPECT_EQ(requesterPathsLeft(), 0);
    });
    EXPECT_TRUE(outcome.exited(0)) << outcome.output;
    EXPECT_THAT(outcome.messages(), testing::Contains(errnoLine("vos::call:connect", ENOENT)));
}

TEST(CppRequest, TheEndOfATimeOutHasOneCodeForEveryCall) {
    EXPECT_TRUE(run([] {
                    freshWorld();
                    vosDebugConfig(0);
                    const vostest::Peer silent{"/tmp/vos/silent"};
                    Reply record{};
                    char room[8];
                    const auto exchanged = vos::exchange("silent", record, 10ms);
                    EXPECT_TRUE(exchanged.timed_out());
                    EXPECT_EQ(exchanged.error_number(), EAGAIN);
                    EXPECT_TRUE(vos::call("silent", "", room, vos::no_wait).timed_out());
                    EXPECT_TRUE(vos::call("silent", "", 1us).timed_out());
                    vos::channel channel;
                    EXPECT_TRUE(channel.open("waiting"));
                    EXPECT_TRUE(channel.receive(vos::no_wait).timed_out());
                    EXPECT_TRUE(channel.receive(1ms).timed_out());
                    vos::semaphore semaphore{0};
                    EXPECT_TRUE(semaphore.take(vos::no_wait).timed_out());
                    EXPECT_TRUE(semaphore.take(1us).timed_out());
                    EXPECT_EQ(requesterPathsLeft(), 0);
                }).exited(0));
}

TEST(CppRequest, ACallMakesTheTwelveSystemCallsOfTheCInterface) {
    EXPECT_TRUE(run([] {
                    Process server = echo();
                    knowProcessId();
                    Reply record{};
                    char room[8];
                    const auto inC = Faults::record([&] {
                        uint32_t code = 0;
                        vosMsgSend("echo", &record, sizeof record, VOS_MSG_WAIT_ANSWER, &code, 3000, 0);
                    });
                    const auto inPlace = Faults::record([&] { EXPECT_TRUE(vos::exchange("echo", record, 3s)); });
                    EXPECT_EQ(inC.size(), 12u);
                    EXPECT_EQ(inPlace, inC);
                    /* The first unlink() and the last unlink() and close() are made by the header itself, so they are
                     * no calls of the library. */
                    const auto exact = Faults::record([&] { EXPECT_TRUE(vos::call("echo", record, room, 3s)); });
                    std::vector<std::string> ofTheLibrary = inC;
                    std::erase(ofTheLibrary, "unlink");
                    std::erase(ofTheLibrary, "close");
                    EXPECT_EQ(exact, ofTheLibrary);
                    stop(server);
                }).exited(0));
}

TEST(CppRequest, EveryFailingCallOfTheLibraryIsReportedAndNothingIsKept) {
    const auto attempts = failEachCall(
        [] {
            freshWorld();
            [[maybe_unused]] static Process *server; /* reachable, so that no sanitizer takes it for lost */
            server = new Process{echo()};
            knowProcessId();
        },
        [] {
            char room[16];
            return static_cast<long>(vos::call("echo", "x", room, 3s).code());
        });
    expectNothingKept(attempts);
    for (const std::string call : {"socket#1", "bind#1", "connect#1", "sendmsg#1", "recvmsg#1"}) {
        EXPECT_NE(at(attempts, call).result, VOS_OK) << call;
    }
}

TEST(CppRequest, AnEmptyDatagramIsNoRequest) {
    EXPECT_TRUE(run([] {
                    freshWorld();
                    vosDebugConfig(0);
                    vos::channel channel;
                    EXPECT_TRUE(channel.open("served"));
                    const vostest::Peer peer;
                    Head head; /* no answer, because a request without one ends a debug build */
                    head.noReturn = VOS_MSG_NO_ANSWER;
                    EXPECT_TRUE(peer.send("/tmp/vos/servedHigh", message(head, "secret")));
                    EXPECT_EQ(channel.receive(3s).value().text(), "secret");
                    EXPECT_TRUE(peer.send("/tmp/vos/servedHigh", Bytes{}));
                    EXPECT_EQ(channel.receive(3s).code(), VOS_ERROR) << "the last message comes once more";
                    EXPECT_TRUE(peer.send("/tmp/vos/served", Bytes{}));
                    EXPECT_EQ(channel.receive(3s).code(), VOS_ERROR);
                }).exited(0));
}

TEST(CppRequest, AnnouncedLengthsThatLieReadNothingOutside) {
    EXPECT_TRUE(run([] {
                    freshWorld();
                    vosDebugConfig(0);
                    vos::channel channel;
                    EXPECT_TRUE(channel.open("served"));
                    const vostest::Peer peer;
                    for (const uint32_t announced : {0u, 5u, 64536u, 64568u, 64569u, 0xFFFFFFFFu}) {
                        Head head;
                        head.noReturn = VOS_MSG_NO_ANSWER;
                        head.length = announced;
                        EXPECT_TRUE(peer.send("/tmp/vos/served", message(head, "abc")));
                        EXPECT_EQ(channel.receive(3s).value().payload().size(), 3u) << announced;
                        EXPECT_TRUE(peer.send("/tmp/vos/served", message(head, std::string(64540, 'x'))));
                        const auto large = channel.receive(3s).value().payload().size();
                        EXPECT_GE(large, 64536u);
                        EXPECT_LE(large, 64568u);
                    }
                }).exited(0));
}

TEST(CppRequest, MayBeAnsweredLaterAndByAnotherThread) {
    EXPECT_TRUE(run([] {
                    Process server = start([] {
                        freshWorld();
                        vos::channel channel;
                        vosDebugConfig(0);
                        EXPECT_TRUE(channel.open("later"));
                        ready();
                        auto first = channel.receive();
                        auto second = channel.receive();
                        vos::request kept = std::move(*first);
                        EXPECT_TRUE(second->answer(2));
                        std::thread{[&] { EXPECT_TRUE(kept.answer(1)); }}.join();
                    });
                    server.awaitReady();
                    int32_t early = 0;
                    std::thread waiting{[&] { early = vos::call("later", "", 20s).value(); }};
                    EXPECT_TRUE(eventually([] { return requesterPathsLeft() == 1; }));
                    const int32_t late = vos::call("later", "", 20s).value();
                    waiting.join();
                    EXPECT_EQ(early + late, 3);
                    EXPECT_TRUE(server.finish().exited(0));
                }).exited(0));
}

TEST(CppThreadChannel, LengthsAreRightAndACutMessageSaysSo) {
    EXPECT_TRUE(run([] {
                    freshWorld();
                    vosDebugConfig(0);
                    vos::channel channel;
                    vos::thread_channel<16> thread;
                    EXPECT_EQ(thread.receive().code(), VOS_ERR_NOT_INIT);
                    EXPECT_TRUE(channel.open("main"));
                    EXPECT_TRUE(thread.open("main", 3));
                    EXPECT_EQ(thread.open("main", 3).code(), VOS_ERR_EXIST);
                    for (const std::size_t size : {0u, 1u, 15u, 16u, 17u, 100u}) {
                        EXPECT_TRUE(vos::post(vos::thread_of("main", 3), std::string(size, 'x'), 3s));
                        const auto got = thread.receive();
                        ASSERT_TRUE(got);
                        EXPECT_EQ(got->payload().size(), std::min<std::size_t>(size, 16));
                        EXPECT_EQ(got->cut(), size > 16);
                        using Sixteen = std::array<char, 16>;
                        EXPECT_EQ(got->as<Sixteen>().has_value(), size == 16) << size;
                    }
                    std::thread asking{[] { EXPECT_EQ(vos::call(vos::thread_of("main", 3), "q", 20s).value(), 9); }};
                    EXPECT_TRUE(thread.receive()->answer(9, "answer"));
                    asking.join();
                }).exited(0));
}

}  // namespace
