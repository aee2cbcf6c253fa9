/* SPDX-License-Identifier: MIT */
/* Durations of waits, and the states of threads in /proc. */
#ifndef TESTS_VOS_SYS_THREADS_H
#define TESTS_VOS_SYS_THREADS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <string>

#include "support/child.h"

namespace vostest {

/* How long an action takes on the monotonic clock. */
inline Milliseconds duration(const std::function<void()> &action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - begin);
}

/* A time-out must not be too short. On a busy machine it may be longer. */
inline void expectAbout(Milliseconds wanted, Milliseconds measured) {
    EXPECT_GE(measured.count(), wanted.count());
    EXPECT_LT(measured.count(), wanted.count() + deadline().count() / 10);
}

/* Whether a thread of this process sleeps in the kernel. */
inline bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string stat;
    std::getline(file, stat);
    const std::size_t name = stat.rfind(") ");
    return name != std::string::npos && stat[name + 2] == 'S';
}

}  // namespace vostest

#endif
