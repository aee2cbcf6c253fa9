/* SPDX-License-Identifier: MIT */
/* One process with four loops: its main channel, a second channel, and two thread channels. One more thread sends a
 * request to each. */
#include <cstdio>
#include <thread>
#include <vos.hpp>

using namespace std::chrono_literals;

namespace {

/* Each loop answers one request with a number of its own. */
template <class Channel>
void answerOne(Channel &channel, int32_t code) {
    if (auto request = channel.receive()) static_cast<void>(request->answer(code));
}

/* Asks the four; the result is the sum of their answers. */
int32_t askAll() {
    const int32_t code[] = {
        vos::call("threads", "", 3s).value_or(0),
        vos::call("threads-second", "", 3s).value_or(0),
        vos::call(vos::thread_of("threads", 1), "", 3s).value_or(0),
        vos::call(vos::thread_of("threads", 2), "", 3s).value_or(0),
    };
    std::printf("\nthreads: main loop %d, second loop %d, thread channels %d and %d\n", code[0], code[1], code[2],
                code[3]);
    return code[0] + code[1] + code[2] + code[3];
}

}  // namespace

int main() {
    vos::channel channel;
    vos::second_channel second;
    vos::thread_channel<8> one, two;
    if (!vos::process::init("threads") || !channel.open("threads") || !second.open("threads-second") ||
        !one.open("threads", 1) || !two.open("threads", 2))
        return 1;
    int32_t sum = 0;
    std::thread loops[] = {
        std::thread{[&] { answerOne(second, 20); }},
        std::thread{[&] { answerOne(one, 30); }},
        std::thread{[&] { answerOne(two, 30); }},
        std::thread{[&] { sum = askAll(); }},
    };
    answerOne(channel, 10);
    for (auto &loop : loops) loop.join();
    return sum == 10 + 20 + 30 + 30 ? 0 : 1;
}
