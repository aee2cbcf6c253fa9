/* SPDX-License-Identifier: MIT */
/* A file of the device that a command replaces: looked at before, written by the library, and put back on a failure. */
#ifndef VOSCTL_DEVICE_FILE_H
#define VOSCTL_DEVICE_FILE_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vosctl {

/* Throws a Failure when the path names something that is not a regular file: a FIFO would be waited for, a device has
 * no end. A path under which nothing is found is fine. */
void requireRegularFile(const std::string &path);

/* Whether the library saves by way of a journal. */
bool hasJournal();

/* Completes a file whose save was interrupted, by the library's journal. Throws a Failure when that is not possible:
 * the file may be torn. Not for partitions. */
void completeSave(const std::string &path);

/* The whole file, read under a shared lock; nothing when there is none. A save that was interrupted is completed
 * first. Throws a Failure when it cannot be read or has more bytes than the limit. */
std::optional<std::string> readDeviceFile(const std::string &path, uint64_t limit = 0xFFFFFFFF);

/* Waits until no other program has locked the file, and says on standard error that it waits. The library truncates a
 * file before it waits for the lock. This wait comes before that, and a signal that ends it costs nothing. */
void awaitLock(const std::string &path, int how);

/* Bytes that a file is to have. */
struct Need {
    std::string path;
    uint64_t bytes = 0;
};

/* Throws a Failure when the files have no room on their file systems, all of them together. What the files at these
 * paths occupy now counts as free. Where a file system does not tell, nothing is refused. */
void requireRoomFor(const std::vector<Need> &needs);

/* Throws a Failure when the file cannot be written, or could not be created. Nothing is changed. */
void requireWritable(const std::string &path);

/* A file of the device as it was when the object was made. */
class DeviceFile {
  public:
    explicit DeviceFile(std::string path); /* throws a Failure, as readDeviceFile() */

    [[nodiscard]] const std::string &path() const { return path_; }
    [[nodiscard]] const std::optional<std::string> &content() const { return content_; }

    /* Bytes that its file system has free for it, with those it has now. The largest number when nobody can tell. */
    [[nodiscard]] uint64_t room() const;

    /* requireWritable() and requireRoomFor() */
    void requireTakes(uint64_t bytes) const;

    /* Whether the file holds these bytes now. */
    [[nodiscard]] bool holds(std::string_view bytes) const;

    /* Makes the file what it was. Returns false when that was not possible. */
    [[nodiscard]] bool putBack() const;

  private:
    [[nodiscard]] bool rewrite() const;

    std::string path_;
    std::optional<std::string> content_;
    mode_t mode_ = 0666;
};

/* The bytes that a command makes the content of a file. */
struct Replacement {
    std::string what; /* as "the configuration" */
    const DeviceFile &before;
    const std::string &content;
    std::function<bool()> write; /* by the library; whether it says that it was done */
};

/* Lets the library write while signals are held, and reads back. When the file does not hold the content then, what was
 * there before is put back, and a Failure says why and what is there now. */
void replaceContent(const Replacement &wanted);

/* Why a write did not do what it should: the error, or how many bytes arrived. */
std::string shortfall(bool done, int error, const std::string &path, uint64_t wanted);

}  // namespace vosctl

#endif
