/* SPDX-License-Identifier: MIT */
#include <algorithm>
#include <array>
#include <string_view>

#include "overrides.h"

namespace vostest {

namespace {

/* Reviewed: these cannot fail, or a failure cannot be distinguished from success. */
constexpr std::string_view kCannotFail[] = {
    // addresses
    "__errno_location",
    "stdout",
    // memory only
    "bcmp",
    "__memcpy_chk",
    "__memmove_chk",
    "__memset_chk",
    "__xpg_basename",
    "memchr",
    "memcmp",
    "memcpy",
    "memmove",
    "memrchr",
    "memset",
    "ntohl",
    "strchr",
    "strcmp",
    "strerror",
    "strlen",
    "strnlen",
    "strrchr",
    // signal masks: fail only for arguments that the library does not pass
    "pthread_sigmask",
    "sigfillset",
    // processes: always succeed, or their result is passed on as it is
    "geteuid",
    "getopt",
    "getpid",
    "gettid",
    "pthread_self",
    "sysconf",  // only asked for the size of a page
    // time: the one clock that is always there
    "time",
    // addresses: texts and bytes in memory
    "freeaddrinfo",
    "inet_addr",
    "inet_ntoa",
    // threads: fail only for arguments that the library does not pass, or when there is no memory at load
    "__pthread_register_cancel",
    "__pthread_unregister_cancel",
    "__pthread_unwind_next",
    "__register_atfork",
    "__sigsetjmp",
    "__sigsetjmp_cancel",
    "pthread_setcancelstate",
    // formats that only hold numbers and short texts, into bounded buffers
    "__snprintf_chk",
    "snprintf",
    // do not return; the check of a descriptor set's bounds never gets a descriptor outside them
    "__assert_fail",
    "__fdelt_chk",
    "__stack_chk_fail",
    "__stack_chk_guard",
    "_exit",
    "abort",
    "exit",
    // start-up files; the last one asks for the atomic instructions of an AArch64 machine
    "_ITM_deregisterTMCloneTable",
    "_ITM_registerTMCloneTable",
    "__cxa_finalize",
    "__getauxval",
    "__gmon_start__",
};

#ifdef VOS_COVERAGE
/* Calls of the coverage run time, which is linked into libvos. */
constexpr std::string_view kCoverage[] = {"__pthread_key_create",
                                          "access",
                                          "exit",
                                          "fcntl",
                                          "fdopen",
                                          "fprintf",
                                          "fread",
                                          "fseek",
                                          "fwrite",
                                          "getenv",
                                          "mkdir",
                                          "mmap",
                                          "stderr",
                                          "sprintf",
                                          "strcat",
                                          "strchr",
                                          "strtol"};
#else
constexpr std::array<std::string_view, 0> kCoverage;
#endif

/* Calls that instrumented builds add. */
constexpr std::string_view kInstrumentation[] = {"__asan_", "__ubsan_", "__tsan_",  "__sanitizer_",
                                                 "__gcov_", "__llvm_",  "__sancov_"};

}  // namespace

bool cannotFail(const std::string &name) {
    const auto begins = [&](std::string_view prefix) { return name.starts_with(prefix); };
    return std::ranges::find(kCannotFail, name) != std::end(kCannotFail) ||
           std::ranges::find(kCoverage, name) != std::end(kCoverage) || std::ranges::any_of(kInstrumentation, begins);
}

}  // namespace vostest
