/* SPDX-License-Identifier: MIT */
/* What the processes of a run report to vos-faults: records in memory that all of them share. A record is written
 * without a system call, so that it may come from a signal handler, and from a process that is killed right after. */
#ifndef TESTKIT_FAULTS_AREA_H
#define TESTKIT_FAULTS_AREA_H

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vosfaults {

enum class Event : uint32_t { Call, Struck, End };

struct Record {
    std::atomic<uint32_t> complete;
    Event event;
    pid_t pid;
    uint32_t occurrence; /* Call, Struck: of the call in this process */
    int32_t descriptors; /* End: open descriptors */
    int32_t blocks;      /* End: heap blocks of the process */
    uint64_t rule;       /* Struck: index of the rule */
    char program[32];
    char call[48];
};

struct Area {
    static constexpr uint32_t kMost = 200000;
    uint32_t magic;
    std::atomic<uint32_t> recording; /* 1: every call that may fail is recorded */
    std::atomic<uint32_t> used;      /* may pass kMost: the rest is lost */
    Record record[kMost];
};
constexpr uint32_t kAreaMagic = 0x766f7366;

/* The environment of a run. */
constexpr const char *kRulesVariable = "VOS_FAULTS";
constexpr const char *kAreaVariable = "VOS_FAULTS_AREA";       /* descriptor:device:inode of the area's file */
constexpr const char *kProgramVariable = "VOS_FAULTS_PROGRAM"; /* only in programs of this name */
constexpr const char *kSeedVariable = "VOS_FAULTS_SEED";

/* In place of the status of a program whose rules cannot be read. */
constexpr int kCannot = 125;

}  // namespace vosfaults

#endif
