/* SPDX-License-Identifier: MIT */
/* vosctl send, vosctl ping: application messages and their round-trip times. */
#include <algorithm>
#include <iomanip>
#include <numeric>
#include <sstream>

#include "../processes/exchange.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string name;
    bool high = false;
    uint32_t timeoutMs = 3000;
    /* send */
    bool noWait = false;
    bool hex = false;
    bool nul = false;
    bool status = false; /* the exit status depends on the answer's code */
    bool fromFile = false;
    std::string file;
    std::string text;
    /* ping */
    uint32_t count = 10;
    uint32_t size = 0;

    [[nodiscard]] Pair which() const { return high ? Pair::high : Pair::normal; }
};

double milliseconds(std::chrono::nanoseconds time) {
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(time); /* smaller units vary too much */
    return static_cast<double>(us.count()) / 1000;
}

Cell timeCell(double ms) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(3) << ms << " ms";
    return {ms, text.str(), Style::plain};
}

std::string payloadOf(const Arguments &arguments) {
    if (arguments.fromFile) return readWhole(arguments.file, kLargestPayload);
    const std::string end(arguments.nul ? 1 : 0, '\0');
    return (arguments.hex ? *bytesOfHex(arguments.text) : arguments.text) + end;
}

Record sentRecord(const Arguments &arguments, std::size_t bytes) {
    Record record;
    record.add("name", "name", arguments.name)
        .add("socket", "socket", arguments.high ? "high" : "normal")
        .add("sentBytes", "sent", Cell{bytes, std::to_string(bytes) + " bytes", Style::plain});
    return record;
}

/* The code is printed last: before a long answer it would scroll off the screen. */
void show(Output &out, Record record, const Answer &answer) {
    const Cell time = timeCell(milliseconds(answer.roundTrip));
    Json document = record.json();
    document["code"] = answer.code;
    document["roundTripMs"] = time.value;
    addPayload(document, answer.payload);
    out.document(document);
    record.add("roundTripMs", "round trip", time)
        .add("bytes", "answer", Cell{nullptr, std::to_string(answer.payload.size()) + " bytes", Style::plain});
    out.text(record);
    if (!out.json()) printPayload(out, answer.payload);
    out.text(Record{}.add("code", "answer's code", answer.code));
}

int send(Output &out, const Arguments &arguments) {
    const std::string payload = payloadOf(arguments);
    Requester requester{arguments.name, arguments.which(), arguments.timeoutMs};
    Record record = sentRecord(arguments, payload.size());
    if (arguments.noWait) {
        requester.send(payload, false);
        out.report(record);
        return kDone;
    }
    const auto answer = requester.ask(payload);
    if (!answer)
        throw Failure(noAnswerFrom(arguments.name, arguments.timeoutMs),
                      "see with \"vosctl ps\" whether the message waits in its queue, or wait longer with --timeout");
    show(out, record, *answer);
    if (!arguments.status || answer->code == 0) return kDone;
    return failedAfterResults(arguments.name + " answered with code " + std::to_string(answer->code),
                              "see in the application's description what the code means");
}

/* The percentile of sorted times: the smallest time that at least so many percent do not exceed. */
double percentile(const std::vector<double> &sorted, std::size_t percent) {
    const std::size_t rank = (sorted.size() * percent + 99) / 100;
    return sorted[std::max<std::size_t>(rank, 1) - 1];
}

Record timesRecord(const Arguments &arguments, uint32_t sent, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    Record record;
    record.add("name", "name", arguments.name)
        .add("sent", "sent", sent)
        .add("answered", "answered", times.size())
        .add("minMs", "min", timeCell(times.front()))
        .add("medianMs", "median", timeCell(percentile(times, 50)))
        .add("p99Ms", "p99", timeCell(percentile(times, 99)))
        .add("maxMs", "max", timeCell(times.back()));
    return record;
}

/* Stops at the first answer that does not come, because each further one would wait as long. The times that were
 * measured before are printed, also when the process has ended meanwhile. */
int ping(Output &out, const Arguments &arguments) {
    const std::string payload(arguments.size, '\0');
    std::vector<double> times;
    std::optional<Failure> failure;
    while (times.size() < arguments.count && !failure) {
        try {
            Requester requester{arguments.name, arguments.which(), arguments.timeoutMs};
            if (const auto answer = requester.ask(payload))
                times.push_back(milliseconds(answer->roundTrip));
            else {
                failure.emplace(
                    noAnswerFrom(arguments.name, arguments.timeoutMs),
                    "see with \"vosctl ps\" whether the message waits in its queue, or give it more --timeout");
            }
        } catch (const Failure &met) {
            failure.emplace(met);
        }
    }
    if (times.empty() && failure) throw *failure;
    out.report(timesRecord(arguments, static_cast<uint32_t>(times.size()) + (failure ? 1 : 0), times));
    return failure ? failedAfterResults(failure->what(), failure->nextStep()) : kDone;
}

void addShared(Command command, const std::shared_ptr<Arguments> &arguments) {
    command.name(arguments->name);
    command.flag("--high", arguments->high, "To the high-priority socket");
    command.timeout(arguments->timeoutMs);
}

void addSend(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command one = app.command("send", "Send an application message and show the answer");
    addShared(one, arguments);
    Argument noWait = one.flag("--no-wait", arguments->noWait, "Ask for no answer");
    one.flag("--status", arguments->status, "Exit status 1 when the answer's code is not 0").excludes(noWait);
    Argument text = one.argument("TEXT", arguments->text, "The message; without one it is empty");
    Argument file = one.argument("--file", arguments->file, "Take the message from a file; - is standard input");
    file.typeName("FILE").excludes(text).notEmpty("FILE");
    one.flag("--hex", arguments->hex, "TEXT is pairs of hexadecimal digits").needs(text);
    one.flag("-0,--nul", arguments->nul, "Put a NUL behind TEXT, as C programs expect it").needs(text);
    one.notes("A thread channel is a NAME too: oltd7 is channel 7 of oltd.");
    one.example("vosctl send oltd show --nul");
    one.example("vosctl send oltd7 --hex \"00 01 ff\" --timeout 500");
    one.example("printf hello | vosctl send oltd --file - --status");
    one.onRun(context, [arguments, file](Output &out) {
        arguments->fromFile = file.given();
        return send(out, *arguments);
    });
    one.checkTogether([arguments]() -> std::string {
        if (!arguments->hex || bytesOfHex(arguments->text)) return "";
        return "TEXT: \"" + arguments->text + "\" is not pairs of hexadecimal digits";
    });
}

void addPing(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command many = app.command(
        "ping", "Measure the time until empty application messages are answered; the application does see them");
    addShared(many, arguments);
    many.number("-c,--count", arguments->count, "How many messages", 1, 1000000).defaultText("10");
    many.number("--size", arguments->size, "Bytes of each message, all zero", 0, kLargestPayload).defaultText("0");
    many.example("vosctl ping oltd -c 100");
    many.onRun(context, [arguments](Output &out) { return ping(out, *arguments); });
}

}  // namespace

void addSendCommands(Command app, Context &context) {
    addSend(app, context);
    addPing(app, context);
}

}  // namespace vosctl
