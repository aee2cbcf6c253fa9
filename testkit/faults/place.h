/* SPDX-License-Identifier: MIT */
/* The peer or the path that a call is about, as its arguments tell. */
#ifndef TESTKIT_FAULTS_PLACE_H
#define TESTKIT_FAULTS_PLACE_H

#include "calls.h"

namespace vosfaults {

/* The registers of a call's first arguments, and where its result goes. */
struct Frame {
#if defined(__x86_64__)
    static constexpr int kArguments = 6;
    long argument[kArguments];
    long result;
#elif defined(__aarch64__)
    static constexpr int kArguments = 8;
    union {
        long argument[kArguments];
        long result;
    };
#endif
};

/* Whether the call is about `where`: a peer's name, a path, or a directory above the path. */
bool isAbout(const Call &call, const Frame &frame, const char *where);

}  // namespace vosfaults

#endif
