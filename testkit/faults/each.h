/* SPDX-License-Identifier: MIT */
/* Runs a command once per call that could fail, with that call failing. */
#ifndef TESTKIT_FAULTS_EACH_H
#define TESTKIT_FAULTS_EACH_H

#include <string>
#include <vector>

#include "run.h"

namespace vosfaults {

struct Each {
    Settings settings;
    std::vector<std::string> patterns; /* only calls that one of them names; empty: all */
    uint32_t most = 0;                 /* of each call only so many; 0: all */
    bool verbose = false;
};

/* Prints a line per call and a summary. Returns 0 when no run hung, crashed or leaked; else 1. */
int failEach(const Each &each);

}  // namespace vosfaults

#endif
