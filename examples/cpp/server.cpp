/* SPDX-License-Identifier: MIT */
/* A server: it greets, works, counts its work, and builds its running configuration. */
#include <thread>
#include <vos.hpp>

using namespace std::chrono_literals;

int main() {
    int32_t worked = 0;
    vos::channel channel;
    if (!vos::process::init("server") || !channel.open("server")) return 1;

    const auto config =
        vos::on_running_config([&](vos::config_writer &out) { out.print("name server\nworked %d\n", worked); });
    if (!config) return 1;

    const auto served = channel.run([&](vos::request &request) {
        if (request.text() == "stop") channel.stop();
        if (request.text() == "work") {
            std::this_thread::sleep_for(100ms);
            ++worked;
        }
        /* Nothing is sent to a requester that wants no answer. One that has ended is no concern of ours. */
        static_cast<void>(request.answer(worked, vos::text<6>{"hello"}));
    });
    return served ? 0 : 1;
}
