/* SPDX-License-Identifier: MIT */
/* What one process can measure by itself. Takes the usual --benchmark_* options. Some of it writes to /flash and /app
 * and to the kernel's settings, so it runs in the sandbox of the tests only. */
#include <fcntl.h>

#include <cstdlib>

#include "bench.h"
#include "vos.h"

namespace {

/* The partitions do not exist yet. The log is off, because the lines about that are not results. */
void makePartitions() {
    const int null = open("/dev/null", O_WRONLY);
    {
        const Redirected redirected(null);
        vosSysConfigDataInit();
    }
    close(null);
}

}  // namespace

int main(int argc, char **argv) {
    if (getenv("VOS_SANDBOX") == nullptr) {
        fprintf(stderr, "run me as: testkit/vos-sandbox %s\n", argv[0]);
        return EXIT_FAILURE;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
    makePartitions();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
