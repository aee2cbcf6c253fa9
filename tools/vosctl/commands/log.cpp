/* SPDX-License-Identifier: MIT */
/* vosctl log: the output of a running process on this terminal. */
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <vosDebug.h>
#include <vosMsg.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <optional>
#include <utility>

#include "../base/interrupts.h"
#include "../base/words.h"
#include "../processes/guardian.h"
#include "../processes/pty.h"
#include "../processes/socketDirectory.h"
#include "commands.h"

namespace vosctl {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds{3}; /* time that a process has to redirect its output */
constexpr int kPollMs = 20;                         /* interval of the checks whether it has */

struct Arguments {
    std::string name;
    std::vector<std::string> levels;
    std::vector<std::string> levelsAfter;
    bool time = false;
};

/* The process that receives under a name, as far as /proc shows it. */
class Target {
  public:
    explicit Target(std::string name) : name_(std::move(name)) {
        requireReachable(name_);
        const std::string path = socketPath(name_);
        for (const SocketEntry &entry : readSocketDirectory())
            if (entry.path == path && !entry.owners.empty()) pid_ = entry.owners.front().pid;
        if (pid_ != 0) process_ = Fd{static_cast<int>(syscall(SYS_pidfd_open, pid_, 0))};
    }

    [[nodiscard]] const std::string &name() const { return name_; }
    [[nodiscard]] int ended() const { return process_.get(); } /* readable after its end; -1 when that cannot be seen */
    /* Whether its standard output is the terminal; nothing when that cannot be seen. */
    [[nodiscard]] std::optional<bool> printsTo(const Pty &pty) const {
        std::error_code failed;
        const auto output = std::filesystem::read_symlink("/proc/" + std::to_string(pid_) + "/fd/1", failed);
        if (pid_ == 0 || failed) return {};
        return output == pty.path();
    }
    /* Throws a Failure when the process is in a container where the terminal with that number is another one. */
    void requireSameTerminals(const Pty &pty) const {
        struct stat mine {};
        struct stat its {};
        const std::string seen = "/proc/" + std::to_string(pid_) + "/root" + pty.path();
        if (pid_ == 0 || stat(pty.path().c_str(), &mine) == -1) return;
        if (stat(seen.c_str(), &its) == -1 ? errno != ENOENT : its.st_dev == mine.st_dev && its.st_ino == mine.st_ino)
            return;
        throw Failure(name_ + " is in a container with terminals of its own", "run vosctl in that container");
    }

  private:
    std::string name_;
    int pid_ = 0;
    Fd process_;
};

/* "2026-11-21T16:28:05.123+0100" */
std::string timeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    localtime_r(&now.tv_sec, &parts);
    char day[32];
    char zone[16];
    strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &parts);
    strftime(zone, sizeof zone, "%z", &parts);
    char text[64];
    snprintf(text, sizeof text, "%s.%03ld%s", day, now.tv_nsec / 1000000, zone);
    return text;
}

/* Shows the output: unchanged, or with --json each line as a document. Lines of the log begin with CR LF, so a line is
 * known to be complete only when the next one comes. After a pause the last line counts as complete. */
class Display {
  public:
    Display(Output &out, bool time) : out_(out), time_(time) {}

    [[nodiscard]] int fd() const { return out_.fd(); }
    /* How long to wait for more output before pause() is to be called; -1: for ever. */
    [[nodiscard]] int patienceMs() const { return pending_.empty() ? -1 : kPauseMs; }

    void show(const std::string &text) {
        if (text.empty()) return;
        pending_ += text;
        if (asLines()) {
            for (std::size_t end = 0; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1))
                showLine(pending_.substr(0, end));
        } else {
            showBytes(pending_.size() - openCharacter(pending_));
        }
        if (pending_.size() > kLongestLine) pause();
        out_.flush();
    }
    void pause() {
        if (asLines())
            showLine(std::exchange(pending_, ""));
        else
            showBytes(pending_.size());
        out_.flush();
    }
    void end() {
        pause();
        if (lineOpen_) out_.line(""); /* a line of the log has no line end */
        out_.flush();
    }

  private:
    static constexpr int kPauseMs = 200;
    static constexpr std::size_t kLongestLine = 65536; /* a longer line is shown in parts */

    [[nodiscard]] bool asLines() const { return out_.json() || time_; }

    void showLine(std::string line) {
        std::erase(line, '\r');
        if (line.empty()) return;
        Json document{{"line", line}};
        if (time_) document["time"] = timeNow();
        out_.documentLine(document);
        if (!out_.json()) out_.raw(timeNow() + " " + line + "\n");
    }

    void showBytes(std::size_t count) {
        std::string text = pending_.substr(0, count);
        pending_.erase(0, count);
        if (out_.terminal()) std::erase(text, '\r'); /* a CR would be shown as \x0D */
        if (text.empty()) return;
        out_.raw(text);
        lineOpen_ = text.back() != '\n';
    }

    Output &out_;
    bool time_;
    std::string pending_;
    bool lineOpen_ = false;
};

class Log {
  public:
    Log(Output &out, const Arguments &arguments)
        : arguments_(arguments), target_(arguments.name), display_(out, arguments.time) {
        target_.requireSameTerminals(pty_);
    }

    /* The guardian restores the process's output in every case. What the process prints until then is shown. */
    void run() {
        redirect();
        sayThatItListens();
        while (!interrupted_ && !ended_ && !outputLost_) step(display_.patienceMs());
        restore();
        if (ended_) throw Failure(arguments_.name + " has ended", "start it again");
    }

  private:
    /* To standard error, because standard output shows only what the process prints. */
    void sayThatItListens() const {
        if (isatty(STDERR_FILENO) == 1 && !interrupted_)
            fprintf(stderr, "Showing what %s prints from now on; Ctrl-C ends it.\n",
                    printable(arguments_.name).c_str());
    }

    void redirect() {
        guardian_.emplace([this] { return putBack(); });
        if (vosMsgDebugMsgSend(arguments_.name.c_str(), VOS_MSG_STDOUT_REDIRECT, 1, pty_.number() + 1) != VOS_OK)
            explainSilence(arguments_.name, Pair::normal, arguments_.name + " cannot be told to print here",
                           "run it again with --verbose");
        if (!awaitOutput(true))
            throw Failure(arguments_.name + " did not begin to print here within 3 s",
                          "see with \"vosctl ps\" whether it is busy, and run vosctl as its user or as root");
        if (!arguments_.levels.empty())
            vosMsgDebugVos(arguments_.name.c_str(), levelsOf(arguments_.levels) | VOS_DEBUG_ERROR);
    }

    /* Waits until the process prints here, or until it does not any more. False when the time is over. */
    bool awaitOutput(bool here) {
        const auto deadline = Clock::now() + kPatience;
        while (target_.printsTo(pty_) == !here && !ended_) {
            if (Clock::now() > deadline) return false;
            if (here && interrupted_) return true;
            step(kPollMs);
        }
        return true;
    }

    void step(int timeoutMs) {
        pollfd watched[] = {{pty_.fd(), POLLIN, 0},
                            {target_.ended(), POLLIN, 0},
                            {interrupted_ ? -1 : interrupts_.fd(), POLLIN, 0},
                            {outputLost_ ? -1 : display_.fd(), 0, 0}};
        const int count = poll(watched, std::size(watched), timeoutMs);
        if (count == -1) return;
        if (count == 0) showing([this] { display_.pause(); });
        if (watched[0].revents != 0) show();
        if (watched[1].revents != 0) ended_ = true;
        if (watched[2].revents != 0) interrupted_ = true;
        if (watched[3].revents != 0) outputLost_ = true;
    }

    /* The process's output must be restored also when this tool has lost its terminal. */
    void show() {
        const std::string text = pty_.take();
        showing([&] { display_.show(text); });
    }

    template <class Show>
    void showing(Show shown) {
        if (outputLost_) return;
        try {
            shown();
        } catch (const Failure &) {
            outputLost_ = true;
        }
    }

    void restore() {
        guardian_->release();
        for (pollfd done{guardian_->done(), POLLIN, 0}; poll(&done, 1, kPollMs) == 0;) show();
        const bool obeyed = guardian_->finish() && awaitOutput(false);
        for (std::string rest = pty_.take(); !rest.empty() && !outputLost_; rest = pty_.take())
            showing([&] { display_.show(rest); });
        showing([this] { display_.end(); });
        if (!obeyed && !ended_) {
            throw Failure(arguments_.name + " could not be told to print where it printed before",
                          "see with \"vosctl ps\" what keeps it busy; run \"vosctl log\" again, which restores the "
                          "output when it ends");
        }
    }

    /* Runs in the guardian. */
    [[nodiscard]] bool putBack() const {
        const char *const name = arguments_.name.c_str();
        const bool level =
            arguments_.levels.empty() || vosMsgDebugVos(name, levelsOf(arguments_.levelsAfter)) == VOS_OK;
        return vosMsgDebugMsgSend(name, VOS_MSG_STDOUT_REDIRECT, 0, 0) == VOS_OK && level;
    }

    const Arguments &arguments_;
    Target target_;
    Display display_;
    Interrupts interrupts_;
    Pty pty_;
    bool interrupted_ = false;
    bool ended_ = false;
    bool outputLost_ = false;
    std::optional<Guardian> guardian_; /* exists when the process's output has to be restored at the end */
};

int showLog(Output &out, const Arguments &arguments) {
    Log{out, arguments}.run();
    return kDone;
}

}  // namespace

void addLogCommand(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command command = app.command("log", "Show here what a process prints, until Ctrl-C");
    command.name(arguments->name);
    command
        .argument("LEVEL", arguments->levels,
                  "Log lines that it prints meanwhile, in addition to errors: trace, event, or a word such as 0x26")
        .check(levelMistake);
    command
        .argument("--after", arguments->levelsAfter,
                  "Log lines that it prints afterwards, if a LEVEL was given; error if not given, as after its start")
        .typeName("LEVEL")
        .check(levelMistake);
    command.flag("--time", arguments->time, "Put the time of arrival before each line");
    command.notes(
        "It says at once on a terminal that it listens. Ctrl-C ends it, and the output of\nthe process goes where it "
        "went before.");
    command.example("vosctl log oltd trace");
    command.example("vosctl --json log oltd --time >oltd.log");
    command.onRun(context, [arguments](Output &out) { return showLog(out, *arguments); });
}

}  // namespace vosctl
