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

/* Writes a file: the bytes are written to a file beside it, which is then renamed. So the earlier file is whole until
 * the new one is. An earlier file keeps its permissions, and a link is followed. A new file gets the mode without the
 * bits of the umask. A device and other special files are written directly. "-" is standard output. Throws a Failure;
 * then no regular file was changed. */
void storeFile(Output &out, const std::string &path, std::string_view bytes, unsigned mode = 0666);

/* The path to which a link leads; the path itself when it is no link. */
std::string resolved(const std::string &path);

/* An empty file beside a target. It has the target's permissions and owner, or the mode when there is no target. The
 * destructor removes it, unless it has replaced the target. Throws a Failure. */
class Beside {
  public:
    /* The name ends with .new, or with six random characters where others may write to the directory. */
    enum class Name { fixed, random };
    Beside(const std::string &target, unsigned mode, Name name);
    ~Beside();
    Beside(const Beside &) = delete;
    Beside &operator=(const Beside &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }
    void write(std::string_view bytes) const; /* also flushes */
    void takePlace();

  private:
    std::string shown_; /* the target as the user has written it */
    std::string target_;
    std::string path_;
    Fd file_;
};

}  // namespace vosctl

#endif
