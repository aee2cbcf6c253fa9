/* SPDX-License-Identifier: MIT */
/* From the start of a process to its end, as a parent sees it. */
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench.h"

namespace {

void start(benchmark::State &state, const char *program, const char *what) {
    char *const arguments[] = {const_cast<char *>(program), const_cast<char *>(what), nullptr};
    posix_spawn_file_actions_t silently;
    posix_spawn_file_actions_init(&silently);
    posix_spawn_file_actions_addopen(&silently, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    for (auto _ : state) {
        pid_t pid = -1;
        int status = -1;
        WORKS(posix_spawn(&pid, program, &silently, nullptr, arguments, environ) == 0);
        WORKS(waitpid(pid, &status, 0) == pid && status == 0);
    }
    posix_spawn_file_actions_destroy(&silently);
}

constexpr const char *kWithout = START_PROGRAMS "/bench-without";
constexpr const char *kWith = START_PROGRAMS "/bench-with";

BENCHMARK_CAPTURE(start, without, kWithout, "nothing")->Name("start/without the library")->UseRealTime();
BENCHMARK_CAPTURE(start, loaded, kWith, "nothing")->Name("start/with the library")->UseRealTime();
BENCHMARK_CAPTURE(start, channel, kWith, "channel")->Name("start/with name and channel")->UseRealTime();
BENCHMARK_CAPTURE(start, init, kWith, "init")->Name("start/with vosInit")->UseRealTime();
BENCHMARK_CAPTURE(start, commands, kWithout, "commands")->Name("start/with the same commands by hand")->UseRealTime();

}  // namespace
