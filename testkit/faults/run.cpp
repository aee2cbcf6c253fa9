/* SPDX-License-Identifier: MIT */
#include "run.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

namespace vosfaults {

namespace {

volatile sig_atomic_t interruptedBy;

std::string problem(const std::string &what) { return what + ": " + strerror(errno); }

/* The library is beside this program in a build, and in the library directory where it is installed. */
std::string libraryPath() {
    std::error_code error;
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    for (const char *const place : {"libvosfaults.so.1", VOS_FAULTS_LIBRARY})
        if (const auto path = here / place; std::filesystem::exists(path)) return path.lexically_normal();
    throw Cannot("libvosfaults.so.1 is neither in " + here.string() + " nor in " +
                 (here / VOS_FAULTS_LIBRARY).lexically_normal().string());
}

/* A file in memory that all processes of the run map. Its descriptor is a high one, so that it does not change the
 * numbers that the command's own descriptors get. */
class SharedArea {
  public:
    SharedArea() : fd_(memfd_create("vos-faults", 0)) {
        if (fd_ < 0 || ftruncate(fd_, sizeof(Area)) != 0) throw Cannot(problem("no shared memory"));
        if (const int high = fcntl(fd_, F_DUPFD, 800); high >= 0) {
            close(fd_);
            fd_ = high;
        }
        void *const at = mmap(nullptr, sizeof(Area), PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
        if (at == MAP_FAILED) throw Cannot(problem("no shared memory"));
        area_ = static_cast<Area *>(at);
        area_->magic = kAreaMagic;
    }
    SharedArea(const SharedArea &) = delete;
    SharedArea &operator=(const SharedArea &) = delete;
    ~SharedArea() {
        munmap(area_, sizeof *area_);
        close(fd_);
    }

    [[nodiscard]] std::string name() const {
        struct stat state {};
        fstat(fd_, &state);
        return std::to_string(fd_) + ":" + std::to_string(state.st_dev) + ":" + std::to_string(state.st_ino);
    }
    Area *operator->() const { return area_; }

  private:
    int fd_;
    Area *area_ = nullptr;
};

void setOrClear(const char *variable, const std::string &value) {
    if (value.empty())
        unsetenv(variable);
    else
        setenv(variable, value.c_str(), 1);
}

[[noreturn]] void execute(const Settings &settings, const std::string &library, const std::string &area, int output) {
    const char *const others = getenv("LD_PRELOAD");
    setenv("LD_PRELOAD", (library + (others != nullptr ? std::string(":") + others : "")).c_str(), 1);
    setenv(kAreaVariable, area.c_str(), 1);
    setOrClear(kRulesVariable, settings.rules);
    setOrClear(kProgramVariable, settings.program);
    setOrClear(kSeedVariable, settings.seed);
    if (settings.alone) {
        setpgid(0, 0);
        const int null = open("/dev/null", O_RDONLY);
        dup2(null, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        if (null > STDERR_FILENO) close(null);
    }
    std::vector<char *> words;
    for (const std::string &word : settings.command) words.push_back(const_cast<char *>(word.c_str()));
    words.push_back(nullptr);
    execvp(words[0], words.data());
    const int reason = errno;
    dprintf(STDERR_FILENO, "vos-faults: %s: %s\n", words[0], strerror(reason));
    _exit(reason == ENOENT ? 127 : 126);
}

/* Waits until the process has ended, and says so; false after the time limit and after a signal to vos-faults. */
bool awaitEnd(pid_t pid, std::chrono::milliseconds limit) {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (process < 0) throw Cannot(problem("pidfd_open"));
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + limit;
    bool ended = false;
    while (!ended && interruptedBy == 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        if (limit.count() != 0 && left <= 0) break;
        pollfd watched{process, POLLIN, 0};
        /* a signal between the test and the call is seen a moment later */
        ended = poll(&watched, 1, static_cast<int>(limit.count() != 0 ? std::min<long>(left, 100) : 100)) == 1;
    }
    close(process);
    return ended;
}

/* Ends what the command has left behind: its process group, and what has become a child of ours. A child of one that is
 * killed here becomes a child of ours before that one can be waited for. */
void endTheRest(pid_t group) {
    kill(-group, SIGKILL);
    do {
        std::ifstream children("/proc/self/task/" + std::to_string(gettid()) + "/children");
        for (pid_t child = 0; children >> child;) kill(child, SIGKILL);
    } while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR);
}

std::string contentOf(int fd) {
    std::string text;
    std::array<char, 65536> piece;
    lseek(fd, 0, SEEK_SET);
    for (ssize_t count = 0; (count = read(fd, piece.data(), piece.size())) > 0;)
        text.append(piece.data(), static_cast<std::size_t>(count));
    return text;
}

void collect(const SharedArea &area, Result &result) {
    const uint32_t used = area->used.load();
    result.complete = used <= Area::kMost;
    for (uint32_t i = 0; i < std::min(used, Area::kMost); ++i) {
        const Record &record = area->record[i];
        if (record.complete.load() == 0) continue; /* its process was killed meanwhile */
        if (record.event == Event::Call) result.made.push_back({record.program, record.call, record.occurrence});
        if (record.event == Event::Struck)
            result.strikes.push_back({record.program, record.call, record.occurrence, record.rule, record.pid});
        if (record.event != Event::End) continue;
        Left &left = result.left[record.program];
        left.descriptors = std::max(left.descriptors, record.descriptors);
        left.blocks = std::max(left.blocks, record.blocks);
    }
}

void onSignal(int number) { interruptedBy = number; }

/* No signal while the command begins: it would be lost in a child that still has the handler. */
class Undisturbed {
  public:
    Undisturbed() {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, &before_);
    }
    Undisturbed(const Undisturbed &) = delete;
    Undisturbed &operator=(const Undisturbed &) = delete;
    ~Undisturbed() { end(); }
    void end() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t before_{};
};

/* The command of a run on the terminal gets the keyboard's signals itself; the others are passed on to it. */
void catchSignals(bool alone) {
    struct sigaction action {};
    action.sa_handler = onSignal;
    for (const int number : {SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
    if (!alone) action.sa_handler = SIG_IGN;
    for (const int number : {SIGINT, SIGQUIT}) sigaction(number, &action, nullptr);
}

pid_t start(const Settings &settings, const std::string &library, const std::string &area, int output) {
    const Undisturbed undisturbed;
    const pid_t pid = fork();
    if (pid < 0) throw Cannot(problem("fork"));
    if (pid == 0) {
        for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) signal(number, SIG_DFL);
        undisturbed.end();
        execute(settings, library, area, output);
    }
    if (settings.alone) setpgid(pid, pid);
    return pid;
}

}  // namespace

Result run(const Settings &settings) {
    const std::string library = libraryPath();
    const SharedArea area;
    const int output = memfd_create("output", MFD_CLOEXEC);
    area->recording = settings.recording ? 1 : 0;
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const std::string name = area.name();
    catchSignals(settings.alone);
    const pid_t pid = start(settings, library, name, output);
    Result result;
    bool ended = awaitEnd(pid, settings.limit);
    while (!ended && interruptedBy != 0 && !settings.alone) { /* the command ends in its own way */
        kill(pid, interruptedBy);
        interruptedBy = 0;
        ended = awaitEnd(pid, settings.limit);
    }
    result.interrupted = interruptedBy != 0;
    result.hung = !ended && !result.interrupted;
    if (!ended) kill(settings.alone ? -pid : pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    if (settings.alone) endTheRest(pid);
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    result.output = contentOf(output);
    close(output);
    collect(area, result);
    return result;
}

}  // namespace vosfaults
