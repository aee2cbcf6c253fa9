/* SPDX-License-Identifier: MIT */
#include "watching.h"

#include <poll.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fstream>

#include "../base/interrupts.h"
#include "../processes/copyReader.h"
#include "../processes/names.h"
#include "../processes/tap.h"

namespace vosctl {

namespace {

void explainRefusal(const Copy &copy) {
    const std::string who = "process " + std::to_string(copy.head.ulProcessId);
    const bool tooMany = copy.head.iErrno == EBUSY;
    const bool foreign = copy.head.iErrno == EPERM;
    const std::string why = tooMany   ? "four taps are on in it already"
                            : foreign ? "it belongs to another user"
                                      : strerror(copy.head.iErrno);
    failedAfterResults(who + " cannot be watched: " + why,
                       tooMany   ? "end another \"vosctl monitor\", \"top\" or \"capture\""
                       : foreign ? "run vosctl as the user of that process"
                                 : "look for the cause with \"vosctl doctor\"");
}

class Watch {
  public:
    Watch(Output &out, const Watched &watched, const std::function<bool(const std::vector<Taken> &)> &take)
        : out_(out), take_(take), tap_(watched.names, watched.noPayload ? 0 : watched.payloadBytes) {}

    void run() {
        sayThatItWatches();
        for (bool wanted = true; wanted && !interrupted_;) {
            lookNow();
            wait();
            wanted = handOver();
        }
        tap_.switchOff();
        reader_.stop();
        if (interrupted_) handOver(); /* what came until then */
    }

  private:
    void sayThatItWatches() const {
        if (isatty(STDERR_FILENO) == 1) fputs("Watching messages from now on; Ctrl-C ends it.\n", stderr);
    }

    void lookNow() {
        const uint64_t now = monotonicNow();
        if (looked_ != 0 && now - looked_ < uint64_t{Tap::kLookMs} * 1'000'000) return;
        looked_ = now;
        tap_.look();
    }

    void wait() {
        pollfd watched[] = {{reader_.fd(), POLLIN, 0}, {interrupts_.fd(), POLLIN, 0}, {out_.fd(), 0, 0}};
        if (poll(watched, std::size(watched), kWatchTickMs) <= 0) return;
        if (watched[1].revents != 0) interrupted_ = true;
        if (watched[2].revents != 0)
            throw ClosedPipe("nobody reads standard output any more", "keep its reader running");
    }

    bool handOver() {
        std::vector<Taken> taken;
        for (std::string &datagram : reader_.take()) {
            auto copy = copyOf(datagram);
            if (!copy) continue;
            if (copy->head.ucWhat == VOS_MSG_TAP_REFUSED) explainRefusal(*copy);
            taken.push_back({std::move(datagram), std::move(*copy)});
        }
        return take_(taken);
    }

    Output &out_;
    const std::function<bool(const std::vector<Taken> &)> &take_;
    Interrupts interrupts_; /* before the tap: nothing may end the tool while that is on */
    Tap tap_;
    CopyReader reader_{tap_};
    uint64_t looked_ = 0;
    bool interrupted_ = false;
};

}  // namespace

void watch(Output &out, const Watched &watched, const std::function<bool(const std::vector<Taken> &)> &take) {
    for (const std::string &name : watched.names) requireReachable(name);
    Watch{out, watched, take}.run();
}

void learnPrograms(Messages &messages, const Copy &copy) {
    for (const std::string &path : {copy.own(), copy.peer()}) {
        const uint32_t pid = requesterPid(path);
        if (pid == 0 || messages.knows(pid)) continue;
        std::ifstream file{"/proc/" + std::to_string(pid) + "/comm"};
        std::string program;
        if (std::getline(file, program) && !program.empty()) messages.learn(pid, program);
    }
}

uint64_t monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

std::optional<uint64_t> nanosecondsOf(const std::string &text) {
    double number = 0;
    const char *const end = text.data() + text.size();
    const auto [behind, error] = std::from_chars(text.data(), end, number);
    const std::string unit{behind, end};
    const double factor = unit.empty() || unit == "ms" ? 1e6 : unit == "s" ? 1e9 : unit == "us" ? 1e3 : 0;
    constexpr double kMost = 1e18; /* about 30 years */
    if (error != std::errc{} || factor == 0 || !std::isfinite(number) || number < 0 || number * factor > kMost)
        return {};
    return static_cast<uint64_t>(number * factor);
}

void addWatched(Command command, const std::shared_ptr<Watched> &watched) {
    command.argument("NAME", watched->names, "Only these processes; without one all, also those that start later")
        .notEmpty("the name");
    Argument bytes =
        command.number("--bytes", watched->payloadBytes, "Copy at most so many bytes of each message's payload");
    command.flag("--no-payload", watched->noPayload, "Copy no payload: passwords pass in messages too").excludes(bytes);
}

}  // namespace vosctl
