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
#include <csignal>
#include <filesystem>
#include <optional>

#include "../base/interrupts.h"
#include "../base/words.h"
#include "../processes/guardian.h"
#include "../processes/pty.h"
#include "../processes/socketDirectory.h"
#include "commands.h"

namespace vosctl {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds{3}; /* for a process to obey */
constexpr int kPollMs = 20;                         /* between looks at whether it has */

struct Arguments {
    std::string name;
    std::vector<std::string> levels;
    std::vector<std::string> levelsAfter;
};

/* The process behind a name, as far as it can be seen. */
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
    [[nodiscard]] int ended() const { return process_.get(); } /* readable when it has; -1 when that cannot be seen */
    /* Whether its standard output is the terminal; nothing when that cannot be seen. */
    [[nodiscard]] std::optional<bool> printsTo(const Pty &pty) const {
        std::error_code failed;
        const auto output = std::filesystem::read_symlink("/proc/" + std::to_string(pid_) + "/fd/1", failed);
        if (pid_ == 0 || failed) return {};
        return output == pty.path();
    }
    /* Throws a Failure when it would print to another terminal of that number. */
    void requireSameTerminals(const Pty &pty) const {
        struct stat mine {};
        struct stat its {};
        const std::string seen = "/proc/" + std::to_string(pid_) + "/root" + pty.path();
        if (pid_ == 0 || stat(pty.path().c_str(), &mine) == -1) return;
        if (stat(seen.c_str(), &its) == -1 ? errno != ENOENT : its.st_dev == mine.st_dev && its.st_ino == mine.st_ino)
            return;
        throw Failure(name_ + " lives in a container with terminals of its own", "run vosctl in that container");
    }

  private:
    std::string name_;
    int pid_ = 0;
    Fd process_;
};

/* Shows what comes: as it is, or with --json each line as a document. */
class Display {
  public:
    explicit Display(Output &out) : out_(out) {}

    [[nodiscard]] int fd() const { return out_.fd(); }

    void show(const std::string &text) {
        if (text.empty()) return;
        if (!out_.json()) {
            out_.raw(text);
            lineOpen_ = text.back() != '\n';
        } else {
            pending_ += text;
            for (std::size_t end = 0; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1))
                showLine(pending_.substr(0, end));
        }
        out_.flush();
    }
    void end() {
        if (out_.json()) showLine(pending_);
        if (lineOpen_) out_.line(""); /* lines of the log have no end */
        out_.flush();
    }

  private:
    /* Lines of the log begin with CR LF. */
    void showLine(std::string line) {
        std::erase(line, '\r');
        if (!line.empty()) out_.documentLine(Json{{"line", line}});
    }

    Output &out_;
    std::string pending_;
    bool lineOpen_ = false;
};

class Log {
  public:
    Log(Output &out, const Arguments &arguments) : arguments_(arguments), target_(arguments.name), display_(out) {
        target_.requireSameTerminals(pty_);
    }

    /* However this ends, the guardian puts everything back, and what the process prints until then is shown. */
    void run() {
        redirect();
        while (!interrupted_ && !ended_ && !outputLost_) step(-1);
        restore();
        if (ended_) throw Failure(arguments_.name + " has ended", "start it again");
    }

  private:
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

    /* Waits until the process prints here, or does not any more; false when it has not obeyed in time. */
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
        if (poll(watched, std::size(watched), timeoutMs) == -1) return;
        if (watched[0].revents != 0) show();
        if (watched[1].revents != 0) ended_ = true;
        if (watched[2].revents != 0) interrupted_ = true;
        if (watched[3].revents != 0) outputLost_ = true;
    }

    /* A lost terminal must not keep the process's output from being put back. */
    void show() {
        const std::string text = pty_.take();
        if (outputLost_) return;
        try {
            display_.show(text);
        } catch (const Failure &) {
            outputLost_ = true;
        }
    }

    void restore() {
        guardian_->release();
        for (pollfd done{guardian_->done(), POLLIN, 0}; poll(&done, 1, kPollMs) == 0;) show();
        const bool obeyed = guardian_->finish() && awaitOutput(false);
        for (std::string rest = pty_.take(); !rest.empty() && !outputLost_; rest = pty_.take()) display_.show(rest);
        if (!outputLost_) display_.end();
        if (!obeyed && !ended_) {
            throw Failure(
                arguments_.name + " could not be told to print where it printed before",
                "see with \"vosctl ps\" what keeps it busy; it is told when \"vosctl log\" ends the next time");
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
    std::optional<Guardian> guardian_; /* from the moment at which there is something to put back */
};

int showLog(Output &out, const Arguments &arguments) {
    signal(SIGPIPE, SIG_IGN); /* seen by the failing write */
    Log{out, arguments}.run();
    return kDone;
}

}  // namespace

void addLogCommand(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    const CLI::Validator isLevel{[](const std::string &text) { return levelMistake(text); }, ""};
    CLI::App *const command = app.add_subcommand("log", "Show here what a process prints, until Ctrl-C");
    addName(command, arguments->name);
    command
        ->add_option("LEVEL", arguments->levels,
                     "Log lines that it shall print meanwhile, besides errors: trace, event, or a word such as 0x26")
        ->check(isLevel);
    command
        ->add_option("--after", arguments->levelsAfter,
                     "What it shall print afterwards when a LEVEL was given; error if not given, as after its start")
        ->type_name("LEVEL")
        ->check(isLevel);
    onRun(command, context, [arguments](Output &out) { return showLog(out, *arguments); });
}

}  // namespace vosctl
