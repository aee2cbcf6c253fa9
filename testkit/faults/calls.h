/* SPDX-License-Identifier: MIT */
/* The calls that can be made to fail: those of an application into libvos, and those of libvos into the C library. */
#ifndef TESTKIT_FAULTS_CALLS_H
#define TESTKIT_FAULTS_CALLS_H

#include <cstddef>

namespace vosfaults {

enum class Failure {
    Unknown,  /* the rule must name the result */
    Value,    /* Call::usual */
    Errno,    /* -1 and errno */
    Nothing,  /* 0 or null, and errno */
    Code,     /* the error number itself */
    Given,    /* as Errno, after the call was made: it releases something */
    Released, /* as Code, after the call was made */
    Early     /* the call is not made, and its first argument is the result */
};

struct Call {
    const char *name;
    const char *parameters; /* as declared: their names tell what they are */
    Failure failure;
    long usual;
    bool mayFail; /* without a mistake of the caller: one of those that --each tries */
    bool ofLibvos;
};

constexpr std::size_t kMostCalls = 512;

/* First the exported functions, in the order of their stubs. */
extern const Call kCalls[];
extern const std::size_t kCallCount;
extern const std::size_t kExportCount;

/* The call of this name, or kCallCount. The C library's has names of its own for some calls, such as __read_chk. */
std::size_t findCall(const char *name);

/* The position of a parameter of this name, or -1; with `type`, only if the type begins with it. */
int positionOf(const Call &call, const char *parameter, const char *type = "");

}  // namespace vosfaults

#endif
