/* SPDX-License-Identifier: MIT */
#include "progress.h"

#include <unistd.h>

#include <cstdio>

#include "report.h"

namespace vosctl {

namespace {
constexpr uint64_t kSilent = 32 << 20;
constexpr std::size_t kLongestText = 60; /* a line that wraps cannot be removed */
constexpr const char *kStartOfEmptyLine = "\r\033[K";
}  // namespace

Progress::Progress(const std::string &what, uint64_t whole)
    : what_(printable(what).substr(0, kLongestText)), whole_(whole), terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    if (shown_ > 0) fputs(kStartOfEmptyLine, stderr);
}

void Progress::reached(uint64_t bytes) {
    if (!terminal_ || bytes < kSilent || bytes > whole_) return;
    const uint64_t percent = bytes * 100 / whole_;
    if (percent <= shown_) return;
    shown_ = percent;
    fprintf(stderr, "%s%s, %d %%", kStartOfEmptyLine, what_.c_str(), static_cast<int>(percent));
    fflush(stderr);
}

}  // namespace vosctl
