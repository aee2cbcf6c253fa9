/* SPDX-License-Identifier: MIT */
/* The files that the tool itself makes for its user. */
#ifndef VOSCTL_OUTPUT_FILE_H
#define VOSCTL_OUTPUT_FILE_H

#include <string>
#include <string_view>

#include "../base/fd.h"
#include "../terminal/report.h"

namespace vosctl {

/* Whether the path means standard output: "-" or /dev/stdout. */
bool isStandardOutput(const std::string &path);

/* Makes the bytes the content of a file: written beside it and renamed, so that the earlier file is whole until the new
 * one is. An earlier file keeps its permissions, and a link is followed; a new file gets the mode, less the umask. What
 * is no regular file, such as a device, is written to. "-" is standard output. Throws a Failure; then nothing was
 * changed. */
void storeFile(Output &out, const std::string &path, std::string_view bytes, unsigned mode = 0666);

/* Where a link leads to; the path itself when it is none. */
std::string resolved(const std::string &path);

/* A file beside another one, empty, with that one's permissions and owner, or the mode when there is no such file. It
 * is removed unless it has taken that one's place. Throws a Failure. */
class Beside {
  public:
    /* The name ends with .new, or with six characters of its own where others may write to the directory. */
    enum class Name { fixed, random };
    Beside(const std::string &target, unsigned mode, Name name);
    ~Beside();
    Beside(const Beside &) = delete;
    Beside &operator=(const Beside &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }
    void write(std::string_view bytes) const; /* and flushes */
    void takePlace();

  private:
    std::string shown_; /* the target as it was named */
    std::string target_;
    std::string path_;
    Fd file_;
};

}  // namespace vosctl

#endif
