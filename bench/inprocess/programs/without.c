/* SPDX-License-Identifier: MIT */
/* A process without the library. With an argument it sets what vosInit() sets, by the same shell commands. */
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static const char *const kCommands[] = {
    "echo 0 > /proc/sys/vm/overcommit_memory",
    "echo 1 > /proc/sys/kernel/core_uses_pid",
    "echo \"/flash/core-bench-%e-%p-%t\" > /proc/sys/kernel/core_pattern",
    "echo 1 > /proc/sys/fs/suid_dumpable",
    "echo 14680064 > /proc/sys/net/core/wmem_max",
    "echo 14680064 > /proc/sys/net/core/rmem_max",
    "echo 4096 > /proc/sys/net/unix/max_dgram_qlen",
};

int main(int argc, char **argv) {
    int failures = getpid() > 0 ? 0 : 1;
    if (argc > 1 && strcmp(argv[1], "commands") == 0)
        for (size_t i = 0; i < sizeof kCommands / sizeof kCommands[0]; ++i) failures += system(kCommands[i]) != 0;
    return failures;
}
