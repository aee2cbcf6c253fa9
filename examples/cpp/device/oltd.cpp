/* SPDX-License-Identifier: MIT */
/* The OLT's main process: the start-up of every application process, then the receive loop. */
#include "olt.hpp"

int main() {
    olt::State state;
    vos::channel channel;
    szVosJournalDir = olt::journal;
    vos::process::prepare_device(olt::oltd);
    if (!vos::process::init(olt::oltd) || !channel.open(olt::oltd)) return 1;
    /* SIGTERM ends the loop between two requests. */
    const auto end = vos::on_termination(channel, [&] { channel.stop(); });
    const auto events = olt::Events::start(channel, state);
    if (!end || !events) return 1;
    if (!channel.open_netlink(olt::oltd)) vos::print("\r\noltd: no packets and links: no kernel module");
    vos::print(state.load() ? "\r\noltd: configured from flash" : "\r\noltd: no configuration on flash");
    uint32_t warm = 0;
    vosStartTypeGet(&warm);
    vosPrintf("\r\noltd: %s start complete\r\n", warm != 0 ? "warm" : "cold");

    const auto served = channel.run([&](vos::request &request) {
        const auto answer = olt::carryOut(state, request.text());
        static_cast<void>(request.answer(answer.code, olt::Text{answer.value}));
    });
    vos::print("\r\noltd: ends\r\n");
    return served ? 0 : 1;
}
