/* SPDX-License-Identifier: MIT */
/* vosctl wait: waits until a name is reachable, or is not any more. */
#include <poll.h>

#include <chrono>

#include "../processes/names.h"
#include "commands.h"

namespace vosctl {

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kLookMs = 20; /* interval of the checks: when a process ends, the socket directory does not change */

struct Arguments {
    std::string name;
    bool gone = false;
    bool high = false;
    uint32_t timeoutMs = 30000;
};

bool isReachable(Reach reach) { return reach == Reach::reachable || reach == Reach::full; }
bool isGone(Reach reach) { return reach == Reach::stale || reach == Reach::missing; }

[[noreturn]] void explainEnd(const Arguments &arguments, Pair which) {
    const std::string time = std::to_string(arguments.timeoutMs) + " ms";
    if (arguments.gone)
        throw Failure(arguments.name + " has not gone within " + time, "end its process, or give it more --timeout");
    const std::string late = "start its process, or give it more --timeout";
    try {
        requireReachable(arguments.name, which);
    } catch (const Failure &failure) {
        throw Failure("after " + time + " " + failure.what(), late);
    }
    throw Failure(arguments.name + " became reachable only after " + time, late);
}

int wait(Output &out, const Arguments &arguments) {
    const Pair which = arguments.high ? Pair::high : Pair::normal;
    const std::string path = socketPath(arguments.name, which);
    const auto begin = Clock::now();
    const auto waited = [&] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
    };
    for (Reach reach = reachOf(path); arguments.gone ? !isGone(reach) : !isReachable(reach); reach = reachOf(path)) {
        if (reach == Reach::tooLong) requireReachable(arguments.name, which); /* throws the Failure */
        if (arguments.timeoutMs != 0 && waited() >= arguments.timeoutMs) explainEnd(arguments, which);
        poll(nullptr, 0, kLookMs);
    }
    out.document(Json{{"name", arguments.name}, {"reachable", !arguments.gone}, {"waitedMs", waited()}});
    return kDone;
}

}  // namespace

void addWaitCommand(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command command = app.command("wait", "Wait until a name is reachable, or gone");
    command.name(arguments->name);
    command.flag("--gone", arguments->gone, "Until nobody receives under the name any more");
    command.flag("--high", arguments->high, "Look at the high-priority socket");
    command.timeout(arguments->timeoutMs);
    command.example("vosctl wait oltd && vosctl config-of oltd");
    command.example("vosctl wait oltd --gone --timeout 5000");
    command.onRun(context, [arguments](Output &out) { return wait(out, *arguments); });
}

}  // namespace vosctl
