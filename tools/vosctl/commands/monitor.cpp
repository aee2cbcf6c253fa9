/* SPDX-License-Identifier: MIT */
/* vosctl monitor: the messages of running processes, or those of a capture. */
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "../base/fd.h"
#include "../base/words.h"
#include "../processes/captureFile.h"
#include "messageReport.h"
#include "watching.h"

namespace vosctl {

namespace {

struct Arguments {
    std::vector<std::string> kinds;
    std::optional<int32_t> code;
    std::optional<uint64_t> slowerNs;
    std::string text;
    std::string file; /* of a capture; empty: running processes */
    uint32_t count = 0;
};

std::size_t columnsOf(const Output &out) {
    winsize size{};
    constexpr std::size_t kUsual = 160; /* in a file or a pipe */
    return out.terminal() && ioctl(out.fd(), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

class Monitor {
  public:
    Monitor(Output &out, const Arguments &arguments, const std::vector<std::string> &names)
        : out_(out), arguments_(arguments), columns_(columnsOf(out)) {
        for (const std::string &name : names) names_.push_back(name.substr(name.rfind('/') + 1));
    }

    void add(const Copy &copy, bool running) {
        if (running) learnPrograms(messages_, copy);
        messages_.add(copy);
    }
    /* False when enough have been shown. */
    bool show(uint64_t now) {
        for (const auto &[name, count] : messages_.takeLosses()) showLoss(name, count);
        while (!enough()) {
            const auto message = messages_.next(now);
            if (!message) break;
            if (!wanted(*message)) continue;
            ++shown_;
            if (out_.json())
                out_.documentLine(messageJson(*message));
            else
                printMessage(out_, *message, columns_);
        }
        out_.flush();
        return !enough();
    }

  private:
    [[nodiscard]] bool enough() const { return arguments_.count != 0 && shown_ >= arguments_.count; }

    void showLoss(const std::string &name, uint64_t count) {
        out_.documentLine(Json{{"lost", count}, {"name", name}});
        out_.line(std::to_string(count) + " copies of " + name + " were lost: the tap could not take them in time",
                  Style::warning);
    }

    [[nodiscard]] bool wanted(const Message &message) const {
        const auto isOne = [](const std::vector<std::string> &of, const std::string &what) {
            return std::find(of.begin(), of.end(), what) != of.end();
        };
        const auto &kinds = arguments_.kinds;
        if (!kinds.empty() && !isOne(kinds, stageOf(message)) && !isOne(kinds, typeOf(message))) return false;
        if (!names_.empty() && !isOne(names_, message.fromName) && !isOne(names_, message.toName)) return false;
        if (arguments_.code && !hasCode(message)) return false;
        if (arguments_.slowerNs && timeOf(message) <= *arguments_.slowerNs) return false;
        return arguments_.text.empty() || message.payload.find(arguments_.text) != std::string::npos;
    }
    [[nodiscard]] bool hasCode(const Message &message) const {
        return message.isAnswer() && message.head && static_cast<int32_t>(message.head->ulRetCode) == *arguments_.code;
    }
    /* How long an answer took, as far as it is known. */
    static uint64_t timeOf(const Message &message) {
        return std::max(message.total.value_or(0), message.served.value_or(0));
    }

    Output &out_;
    const Arguments &arguments_;
    std::size_t columns_;
    std::vector<std::string> names_;
    Messages messages_;
    uint32_t shown_ = 0;
};

int watchRunning(Output &out, const Arguments &arguments, const Watched &watched) {
    Monitor monitor{out, arguments, watched.names};
    watch(out, watched, [&](const std::vector<Taken> &taken) {
        for (const Taken &each : taken) monitor.add(each.copy, true);
        return monitor.show(monotonicNow());
    });
    monitor.show(UINT64_MAX);
    return kDone;
}

int readCapture(Output &out, const Arguments &arguments, const Watched &watched) {
    const Fd opened{arguments.file == "-" ? -1 : open(arguments.file.c_str(), O_RDONLY | O_CLOEXEC)};
    const int fd = arguments.file == "-" ? STDIN_FILENO : opened.get();
    if (fd < 0) throw Failure(arguments.file + " cannot be opened: " + strerror(errno), "name a file that can be read");
    const auto readMore = [&](char *bytes, std::size_t size) {
        ssize_t count = -1;
        do count = read(fd, bytes, size);
        while (count < 0 && errno == EINTR);
        if (count < 0)
            throw Failure(arguments.file + " cannot be read: " + strerror(errno), "name a file that can be read");
        return static_cast<std::size_t>(count);
    };
    CaptureReader reader{arguments.file == "-" ? "standard input" : arguments.file, readMore};
    Monitor monitor{out, arguments, watched.names};
    bool wanted = true;
    while (wanted) {
        const auto datagram = reader.next();
        if (!datagram) break;
        const auto copy = copyOf(*datagram);
        if (!copy) continue;
        monitor.add(*copy, false);
        wanted = monitor.show(copy->head.ullMonotonicNs);
    }
    monitor.show(UINT64_MAX);
    if (!reader.cut()) return kDone;
    return failedAfterResults(arguments.file + " is cut off in its last block", "capture again, if you miss the end");
}

std::string timeMistake(const std::string &text) {
    if (nanosecondsOf(text)) return "";
    return "\"" + shortened(text) + "\" is no time such as 10ms, 200us or 1.5s";
}

}  // namespace

void addMonitorCommand(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    const auto watched = std::make_shared<Watched>();
    Command command = app.command("monitor", "Show the messages of running processes as they pass, until Ctrl-C");
    watched->payloadBytes = 1024;
    addWatched(command, watched);
    command.argument("--kind", arguments->kinds, "Only messages of this kind; several may be named")
        .oneOf(kindNames())
        .oneValueEach()
        .typeName("KIND");
    command
        .argument(
            "--code", [arguments](const std::string &word) { arguments->code = signedOf(word); },
            "Only answers with this code")
        .check(signedMistake)
        .typeName("CODE");
    command
        .argument(
            "--slower", [arguments](const std::string &text) { arguments->slowerNs = nanosecondsOf(text); },
            "Only answers that took longer, such as 10ms, 200us or 1.5s")
        .check(timeMistake)
        .typeName("TIME");
    command.argument("--text", arguments->text, "Only messages with this text in the part that was copied")
        .notEmpty("the text");
    command.argument("-r,--read", arguments->file, "Show the messages of a file of \"vosctl capture\" instead")
        .typeName("FILE")
        .notEmpty("FILE");
    command.number("-c,--count", arguments->count, "End after so many messages", 1);
    command.notes(
        "An answer tells how long its request waited in the queue, how long it was served\n"
        "and how long it took in all, as far as the watched processes know. Ctrl-C leaves\n"
        "nothing switched on in them.");
    command.example("vosctl monitor --slower 10ms");
    command.example("vosctl --json monitor oltd --kind answer --code -4");
    command.example("vosctl monitor -r messages.pcapng --text serial");
    command.onRun(context, [arguments, watched](Output &out) {
        return arguments->file.empty() ? watchRunning(out, *arguments, *watched)
                                       : readCapture(out, *arguments, *watched);
    });
}

}  // namespace vosctl
