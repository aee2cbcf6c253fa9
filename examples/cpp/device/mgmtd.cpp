/* SPDX-License-Identifier: MIT */
/* The management process: administrators' sessions on thread channels, so that one session does not delay another while
 * it waits for the OLT; alarms of the OLT on the second channel; the last alarm on the main channel. */
#include <mutex>
#include <thread>

#include "olt.hpp"

namespace {

/* What the alarms' thread writes and the main loop reads. */
class LastAlarm {
  public:
    void set(std::string_view text) {
        const std::lock_guard<vos::mutex> guard{mutex_};
        text_ = text;
    }
    olt::Text get() {
        const std::lock_guard<vos::mutex> guard{mutex_};
        return text_;
    }

  private:
    vos::mutex mutex_;
    olt::Text text_ = "none";
};

using Session = vos::thread_channel<sizeof(olt::Text)>;

/* Sends a request on to the OLT, and the OLT's answer back to its administrator. */
void forward(vos::request &request) {
    olt::Text text{request.text()};
    const auto code = vos::exchange(olt::oltd, text, olt::patience);
    if (!code) text = "the OLT does not answer";
    static_cast<void>(request.answer(code ? *code : code.code(), text));
}

void show(LastAlarm &last, vos::request &alarm) {
    last.set(alarm.text());
    vosPrintf("\r\nmgmtd: alarm of the OLT: %.*s", static_cast<int>(alarm.text().size()), alarm.text().data());
    alarm.ignore();
}

}  // namespace

/* The threads run until the process ends, and use these until then. */
static LastAlarm g_last;
static vos::channel g_channel;
static vos::second_channel g_alarms;
static Session g_sessions[olt::sessions];

int main() {
    szVosJournalDir = olt::journal;
    vos::process::prepare_device(olt::mgmtd);
    /* The main channel first: it makes the directory of the sockets. */
    if (!vos::process::init(olt::mgmtd) || !g_channel.open(olt::mgmtd) || !g_alarms.open(olt::mgmtd_alarms)) return 1;
    for (int32_t i = 0; i < olt::sessions; ++i) {
        if (!g_sessions[i].open(olt::mgmtd, i + 1)) return 1;
        std::thread{[i] { static_cast<void>(g_sessions[i].run(forward)); }}.detach();
    }
    std::thread{[] { static_cast<void>(g_alarms.run([](vos::request &alarm) { show(g_last, alarm); })); }}.detach();
    vos::print("\r\nmgmtd: start complete\r\n");
    const auto served =
        g_channel.run([](vos::request &request) { static_cast<void>(request.answer(VOS_OK, g_last.get())); });
    return served ? 0 : 1;
}
