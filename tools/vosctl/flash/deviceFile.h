/* SPDX-License-Identifier: MIT */
/* A file of the device that a command replaces. It is read before, written by the library, and restored after a
 * failure. */
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

/* Throws a Failure when the path names something other than a regular file: opening a FIFO would wait, and a device has
 * no end. The path need not exist. */
void requireRegularFile(const std::string &path);

/* Whether the library uses its journal for saves. */
bool hasJournal();

/* Completes a file whose save was interrupted, by the library's journal. Throws a Failure when that is not possible:
 * the file may be torn. Not for partitions. */
void completeSave(const std::string &path);

/* The whole file, read under a shared lock; nothing when the file does not exist. A save that was interrupted is
 * completed first. Throws a Failure when it cannot be read or has more bytes than the limit. */
std::optional<std::string> readDeviceFile(const std::string &path, uint64_t limit = 0xFFFFFFFF);

/* Waits until no other program has locked the file, and says on standard error that it waits. The library truncates an
 * application before it waits for the lock, so the tool waits first: a signal that ends this wait changes nothing. */
void awaitLock(const std::string &path, int how);

/* A file and the size that it will have. */
struct Need {
    std::string path;
    uint64_t bytes = 0;
};

/* Throws a Failure when the files together do not fit on their file systems. The space that they use now counts as
 * free. When a file system does not report its free space, nothing is refused. */
void requireRoomFor(const std::vector<Need> &needs);

/* Throws a Failure when the file cannot be written, or could not be created. Nothing is changed. */
void requireWritable(const std::string &path);

/* A file of the device as it was when the object was made. */
class DeviceFile {
  public:
    explicit DeviceFile(std::string path); /* throws a Failure, as readDeviceFile() */

    [[nodiscard]] const std::string &path() const { return path_; }
    [[nodiscard]] const std::optional<std::string> &content() const { return content_; }

    /* Bytes that are free for it on its file system, together with those that it uses now. The largest number when that
     * is not known. */
    [[nodiscard]] uint64_t room() const;

    /* requireWritable() and requireRoomFor() */
    void requireTakes(uint64_t bytes) const;

    /* Whether the file holds these bytes now. */
    [[nodiscard]] bool holds(std::string_view bytes) const;

    /* Restores the file as it was. Returns false when that was not possible. */
    [[nodiscard]] bool putBack() const;

  private:
    [[nodiscard]] bool rewrite() const;

    std::string path_;
    std::optional<std::string> content_;
    mode_t mode_ = 0666;
};

/* The new content of a file. */
struct Replacement {
    std::string what; /* as "the configuration" */
    const DeviceFile &before;
    const std::string &content;
    std::function<bool()> write; /* calls the library; returns whether the library reported a success */
};

/* The library writes, while signals are blocked, and the file is read back. When it does not have the new content, the
 * earlier content is restored, and a Failure says why and what the file has now. */
void replaceContent(const Replacement &wanted);

/* Why a write was not complete: the error, or the number of bytes that were written. */
std::string shortfall(bool done, int error, const std::string &path, uint64_t wanted);

}  // namespace vosctl

#endif
