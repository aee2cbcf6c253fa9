/* SPDX-License-Identifier: MIT */
/* Log lines: filtered, as the library writes them and as an application does, and printed. */
#include "base/log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "bench.h"
#include "vos.h"

namespace {

/* The time of an empty loop, for comparison. */
void nothing(benchmark::State &state) {
    for (auto _ : state) benchmark::ClobberMemory();
}
BENCHMARK(nothing)->Name("log/nothing");

void filteredInside(benchmark::State &state) {
    vosDebugConfig(VOS_DEBUG_ERROR);
    const vos::Caller me;
    for (auto _ : state) {
        vos::trace(me, "%s:start.");
        benchmark::ClobberMemory();
    }
}
BENCHMARK(filteredInside)->Name("log/filtered, in the library");

void filtered(benchmark::State &state) {
    vosDebugConfig(VOS_DEBUG_ERROR);
    for (auto _ : state) vosDebugPrintf(VOS_DEBUG_TRACE, "%s:start.", "filtered");
}
BENCHMARK(filtered)->Name("log/filtered, by an application");

/* A function of a shared object that does nothing: the time of the call alone. */
void emptyCall(benchmark::State &state) {
    for (auto _ : state) lstLibInit();
}
BENCHMARK(emptyCall)->Name("log/empty call");

/* Reads a pipe's end until the other is closed. */
class Drain {
  public:
    explicit Drain(int from)
        : thread_([from] {
              char taken[65536];
              while (read(from, taken, sizeof taken) > 0) {
              }
          }) {}
    ~Drain() { thread_.join(); }
    Drain(Drain &&) = delete;
    Drain &operator=(Drain &&) = delete;

  private:
    std::thread thread_;
};

int32_t aLine() {
    return vosDebugPrintf(VOS_DEBUG_ERROR, "%s:open %s failed errno:%d(%s).", "printed", "/flash/x", 2,
                          "No such file or directory");
}

/* The same text, formatted once and flushed, as a program without the library would write it. */
int32_t theSameLine() {
    const int printed = printf("\r\n%s(%d) %s:open %s failed errno:%d(%s).", "bench", getpid(), "printed", "/flash/x",
                               2, "No such file or directory");
    fflush(stdout);
    return printed > 0 ? VOS_OK : VOS_ERROR;
}

template <int32_t line()>
void toNull(benchmark::State &state) {
    const int null = open("/dev/null", O_WRONLY);
    {
        const Redirected redirected(null);
        for (auto _ : state) benchmark::DoNotOptimize(line());
    }
    close(null);
}
BENCHMARK(toNull<aLine>)->Name("log/printed to /dev/null");
BENCHMARK(toNull<theSameLine>)->Name("log/printf to /dev/null");

template <int32_t line()>
void toPipe(benchmark::State &state) {
    int ends[2];
    WORKS(pipe(ends) == 0);
    {
        const Drain drain(ends[0]);
        {
            const Redirected redirected(ends[1]);
            close(ends[1]);
            for (auto _ : state) benchmark::DoNotOptimize(line());
        }
    }
    close(ends[0]);
}
BENCHMARK(toPipe<aLine>)->Name("log/printed to a pipe")->UseRealTime();
BENCHMARK(toPipe<theSameLine>)->Name("log/printf to a pipe")->UseRealTime();

}  // namespace
