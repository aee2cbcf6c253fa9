/* SPDX-License-Identifier: MIT */
#include "bootLoader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vosFile.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>

#include "../base/failure.h"
#include "../base/fd.h"
#include "../base/interrupts.h"
#include "../terminal/report.h"
#include "imageFile.h"
#include "store.h"

namespace vosctl {

namespace {

/* The device is never created: where it is missing, the board has no such device. */
Fd openDevice() {
    Fd device{open(szBootLoaderFileName, O_RDWR | O_NONBLOCK | O_CLOEXEC)};
    if (!device) {
        throw Failure(
            std::string(szBootLoaderFileName) + " cannot be written: " + strerror(errno) + ", and nothing was changed",
            "see that the board has this device, and run it as root");
    }
    struct stat status {};
    fstat(device.get(), &status);
    if (!S_ISBLK(status.st_mode) && !S_ISREG(status.st_mode))
        throw Failure(std::string(szBootLoaderFileName) + " is no block device", "see what is at this path");
    return device;
}

/* Reads from the device itself, not from the kernel's cache. */
std::optional<std::string> firstBytes(const Fd &device, std::size_t size) {
    fsync(device.get());
    posix_fadvise(device.get(), 0, 0, POSIX_FADV_DONTNEED);
    std::string bytes(size, '\0');
    for (std::size_t got = 0; got < size;) {
        const ssize_t count = pread(device.get(), bytes.data() + got, size - got, static_cast<off_t>(got));
        if (count <= 0) return {};
        got += static_cast<std::size_t>(count);
    }
    return bytes;
}

bool holds(const Fd &device, const std::string &bytes) { return firstBytes(device, bytes.size()) == bytes; }

bool putBack(const Fd &device, const std::string &before) {
    if (holds(device, before)) return true;
    for (std::string_view rest = before; !rest.empty();) {
        const ssize_t count =
            pwrite(device.get(), rest.data(), rest.size(), static_cast<off_t>(before.size() - rest.size()));
        if (count <= 0) return false;
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
    return holds(device, before);
}

}  // namespace

void requireBootLoaderFits(const std::string &image, const std::string &file) {
    const Fd device = openDevice();
    const off_t size = lseek(device.get(), 0, SEEK_END);
    if (size < 0 || image.size() <= static_cast<uint64_t>(size)) return;
    throw Failure(file + " has " + std::to_string(image.size()) + " bytes, and " + szBootLoaderFileName + " has " +
                      std::to_string(size) + "; nothing was changed",
                  "take a boot loader made for this board");
}

void writeBootLoader(const std::string &image, const std::string &file) {
    const Fd device = openDevice();
    const auto before = firstBytes(device, image.size());
    if (!before)
        throw Failure(std::string(szBootLoaderFileName) + " cannot be read, and nothing was changed",
                      "see whether the flash is worn out");
    const HeldSignals held{printable(file) + " was being written to the boot loader's device"};
    errno = 0;
    const bool done = vosFileBootWrite(bytesOf(image), lengthOf(image)) == VOS_OK;
    const int error = errno;
    if (done && holds(device, image)) return;
    const std::string why = !done && error != 0 ? strerror(error) : "it does not hold what was written";
    const bool back = putBack(device, *before);
    if (back) removeImageRecord(szBootLoaderFileName);
    throw Failure(file + " could not be written whole to " + szBootLoaderFileName + ": " + why +
                      (back ? ", and the earlier boot loader is still there" : ", which may hold a part of it"),
                  back ? "see with --verbose why, and install it again"
                       : "see with --verbose why, and install it again before the device restarts");
}

bool holdsBootLoader(const ImageMark &image) {
    const Fd device{open(szBootLoaderFileName, O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    struct stat status {};
    if (!device || fstat(device.get(), &status) != 0 || (!S_ISBLK(status.st_mode) && !S_ISREG(status.st_mode)))
        return false;
    const off_t size = lseek(device.get(), 0, SEEK_END);
    if (size < 0 || image.length > static_cast<uint64_t>(size) || image.length < kImageHeaderBytes) return false;
    const auto bytes = firstBytes(device, image.length);
    if (!bytes || !bytes->ends_with(image.header)) return false;
    const auto payload = std::string_view(*bytes).substr(0, bytes->size() - kImageHeaderBytes);
    return crc32Of(payload) == networkWord(image.header, kImageHeaderBytes - sizeof(uint32_t));
}

}  // namespace vosctl
