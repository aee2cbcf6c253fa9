/* SPDX-License-Identifier: MIT */
/* The part of every peer that measures. The driver's commands come on standard input, one on each line. Each command is
 * answered with one line on standard output. What a library prints goes to standard error.
 *
 *     run START END    requests from START until END, both in nanoseconds of the monotonic clock
 *     count NUMBER     that many requests between two calls of getppid(), which a system call trace shows
 */
#include "peer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace {

int g_driver = -1;

uint64_t now(clockid_t clock = CLOCK_MONOTONIC) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

void waitUntil(uint64_t moment) {
    const timespec time{static_cast<time_t>(moment / 1000000000), static_cast<long>(moment % 1000000000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
    }
}

/* Every answer is checked, because an exchange that loses, confuses or cuts messages must not count as fast. */
class Checked {
  public:
    Checked(bench::Client &client, std::size_t size) : client_(client), payload_(size + sizeof word_) {}
    void request() {
        ++word_;
        memcpy(payload_.data(), &word_, sizeof word_);
        if (!client_.request(payload_.data())) return;
        uint64_t answer;
        memcpy(&answer, payload_.data(), sizeof answer);
        if (answer != ~word_) bench::die("a wrong answer");
    }

  private:
    bench::Client &client_;
    uint64_t word_ = 0;
    std::vector<uint8_t> payload_;
};

uint32_t percentile(std::vector<uint32_t> &sorted, unsigned percent) {
    return sorted.empty() ? 0 : sorted[(sorted.size() - 1) * percent / 100];
}

/* Answers with the number of requests that ended in time, the percentiles 10, 50, 90, 99 and the longest of their
 * durations, and the processor time that this process has spent, all in nanoseconds. */
void run(Checked &client, std::vector<uint32_t> &durations, uint64_t start, uint64_t end) {
    durations.clear();
    waitUntil(start);
    const uint64_t cpu = now(CLOCK_PROCESS_CPUTIME_ID);
    uint64_t last = now();
    for (;;) {
        client.request();
        const uint64_t moment = now();
        if (moment > end) break;
        if (durations.size() < durations.capacity())
            durations.push_back(static_cast<uint32_t>(std::min<uint64_t>(moment - last, UINT32_MAX)));
        last = moment;
    }
    const uint64_t spent = now(CLOCK_PROCESS_CPUTIME_ID) - cpu;
    std::sort(durations.begin(), durations.end());
    dprintf(g_driver, "%zu %u %u %u %u %u %" PRIu64 "\n", durations.size(), percentile(durations, 10),
            percentile(durations, 50), percentile(durations, 90), percentile(durations, 99), percentile(durations, 100),
            spent);
}

void count(Checked &client, uint64_t number) {
    for (unsigned i = 0; i < 20; ++i) client.request(); /* work that is done only once is done now */
    static_cast<void>(getppid());
    for (uint64_t i = 0; i < number; ++i) client.request();
    static_cast<void>(getppid());
    dprintf(g_driver, "%" PRIu64 "\n", number);
}

void obey(bench::Client &plain, std::size_t size) {
    Checked client(plain, size);
    std::vector<uint32_t> durations(size_t{1} << 21); /* written now, so that its pages exist */
    bench::ready();
    std::array<char, 128> line;
    while (fgets(line.data(), line.size(), stdin) != nullptr) {
        uint64_t first = 0;
        uint64_t second = 0;
        if (sscanf(line.data(), "run %" SCNu64 " %" SCNu64, &first, &second) == 2)
            run(client, durations, first, second);
        else if (sscanf(line.data(), "count %" SCNu64, &first) == 1)
            count(client, first);
        else
            bench::die("an unknown command");
    }
}

unsigned number(const char *text) { return static_cast<unsigned>(strtoul(text, nullptr, 10)); }

void takeOption(bench::Setting &setting, std::string_view option) {
    const std::size_t equals = option.find('=');
    if (equals == option.npos) bench::die("an option without a value");
    const std::string_view name = option.substr(0, equals);
    const unsigned value = number(option.data() + equals + 1);
    if (name == "timers")
        setting.timers = value;
    else if (name == "sockets")
        setting.sockets = value;
    else if (name == "work")
        setting.workUs = value;
    else
        bench::die("an unknown option");
}

}  // namespace

void bench::die(const char *what) {
    fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, what, strerror(errno));
    _exit(1);
}

void bench::ready() {
    static_cast<void>(getppid()); /* a mark for the system call trace */
    dprintf(g_driver, "ready\n");
}

void bench::work(unsigned us) {
    if (us == 0) return;
    const uint64_t end = now(CLOCK_THREAD_CPUTIME_ID) + uint64_t{us} * 1000;
    while (now(CLOCK_THREAD_CPUTIME_ID) < end) {
    }
}

int main(int argc, char **argv) {
    if (argc < 5) {
        fprintf(stderr, "usage: %s server|client VARIANT SIZE ID [timers=N] [sockets=N] [work=MICROSECONDS]\n",
                argv[0]);
        return 2;
    }
    bench::Setting setting{argv[2], number(argv[3]), number(argv[4]), 0, 0, 0};
    for (int i = 5; i < argc; ++i) takeOption(setting, argv[i]);
    if (setting.size < sizeof(uint64_t) || setting.size > bench::kLargest) bench::die("a size that is not measured");
    g_driver = bench::must(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "fcntl");
    bench::must(dup2(STDERR_FILENO, STDOUT_FILENO), "dup2");
    if (strcmp(argv[1], "server") == 0) bench::serve(setting);
    obey(*bench::connect(setting), setting.size);
    return 0;
}
