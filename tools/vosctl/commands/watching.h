/* SPDX-License-Identifier: MIT */
/* What the commands that watch messages have in common. */
#ifndef VOSCTL_WATCHING_H
#define VOSCTL_WATCHING_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../processes/copies.h"
#include "../processes/messages.h"
#include "commands.h"

namespace vosctl {

struct Watched {
    std::vector<std::string> names; /* none: all */
    uint32_t payloadBytes = 0;      /* of each message */
    bool noPayload = false;
};

/* The arguments NAME... and the options --bytes and --no-payload. */
void addWatched(Command command, const std::shared_ptr<Watched> &watched);

/* A datagram of a tap and what it says. */
struct Taken {
    std::string datagram;
    Copy copy;
};

/* Switches a tap on in the processes, hands over what comes, and switches it off again, however this ends. The call is
 * made with what came, also with nothing after a moment; it returns false to end. Ctrl-C ends it too, and what came
 * until then is handed over. Throws a Failure when a process that was named cannot be watched. */
void watch(Output &out, const Watched &watched, const std::function<bool(const std::vector<Taken> &)> &take);

/* A number of milliseconds between two calls without copies, at most. */
inline constexpr int kWatchTickMs = 10;

/* A process that has no name of its own is known by its program, while it runs. */
void learnPrograms(Messages &messages, const Copy &copy);

/* Nanoseconds on CLOCK_MONOTONIC. */
uint64_t monotonicNow();

/* A time as "10ms", "1.5s" or "200us" in nanoseconds; nothing for another text. A bare number is milliseconds. */
std::optional<uint64_t> nanosecondsOf(const std::string &text);

void addMonitorCommand(Command app, Context &context);
void addTopCommand(Command app, Context &context);
void addCaptureCommand(Command app, Context &context);

}  // namespace vosctl

#endif
