/* SPDX-License-Identifier: MIT */
/* What the measurements share. */
#ifndef BENCH_INPROCESS_BENCH_H
#define BENCH_INPROCESS_BENCH_H

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>

/* When the measured work has failed, an error is shown in place of a time. */
#define WORKS(expression)                                     \
    do {                                                      \
        if (!(expression)) {                                  \
            state.SkipWithError("this failed: " #expression); \
            return;                                           \
        }                                                     \
    } while (false)

/* Redirects standard output as long as the object exists. */
class Redirected {
  public:
    explicit Redirected(int to) : before_(dup(STDOUT_FILENO)) {
        fflush(stdout);
        dup2(to, STDOUT_FILENO);
    }
    ~Redirected() {
        fflush(stdout);
        dup2(before_, STDOUT_FILENO);
        close(before_);
    }
    Redirected(Redirected &&) = delete;
    Redirected &operator=(Redirected &&) = delete;

  private:
    int before_;
};

#endif
