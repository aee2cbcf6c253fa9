/* SPDX-License-Identifier: MIT */
#include "outputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "../base/failure.h"
#include "../base/fd.h"
#include "../base/interrupts.h"

namespace vosctl {

namespace {

[[noreturn]] void cannot(const std::string &path, const char *what) {
    const int error = errno;
    throw Failure(path + " cannot be " + what + ": " + strerror(error),
                  error == ENOSPC || error == EFBIG || error == EDQUOT ? "make room and run it again"
                                                                       : "name a file that can be written");
}

void writeAll(const Fd &file, const std::string &path, std::string_view rest) {
    while (!rest.empty()) {
        const ssize_t count = ::write(file.get(), rest.data(), rest.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) cannot(path, "written");
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
    if (fsync(file.get()) != 0 && errno != EINVAL && errno != EROFS) cannot(path, "written");
}

unsigned umaskNow() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

void storeRegular(const std::string &path, std::string_view bytes, unsigned mode) {
    const HeldSignals held{printable(path) + " was being written"};
    Beside beside{path, mode & ~umaskNow(), Beside::Name::random};
    beside.write(bytes);
    beside.takePlace();
}

}  // namespace

std::string resolved(const std::string &path) {
    const std::unique_ptr<char, decltype(&free)> real{realpath(path.c_str(), nullptr), &free};
    return real ? real.get() : path;
}

Beside::Beside(const std::string &target, unsigned mode, Name name) : shown_(target), target_(resolved(target)) {
    struct stat earlier {};
    const bool there = stat(target_.c_str(), &earlier) == 0;
    path_ = target_ + (name == Name::fixed ? ".new" : ".XXXXXX");
    if (name == Name::fixed) unlink(path_.c_str()); /* a file that an earlier attempt has left */
    file_ = Fd{name == Name::fixed ? open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)
                                   : mkostemp(path_.data(), O_CLOEXEC)};
    if (!file_) {
        path_.clear();
        cannot(shown_, "created");
    }
    if (there && fchown(file_.get(), earlier.st_uid, earlier.st_gid) != 0 && errno != EPERM) {
        unlink(path_.c_str());
        cannot(shown_, "written");
    }
    fchmod(file_.get(), there ? earlier.st_mode & 07777 : mode);
}

Beside::~Beside() {
    if (!path_.empty()) unlink(path_.c_str());
}

void Beside::write(std::string_view bytes) const { writeAll(file_, shown_, bytes); }

void Beside::takePlace() {
    if (rename(path_.c_str(), target_.c_str()) != 0) cannot(shown_, "written");
    path_.clear();
    const std::string parent = std::filesystem::path(target_).parent_path();
    const Fd directory{open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    fsync(directory.get()); /* flushes the new name; the content has been flushed before */
}

bool isStandardOutput(const std::string &path) { return path == "-" || path == "/dev/stdout"; }

void storeFile(Output &out, const std::string &path, std::string_view bytes, unsigned mode) {
    if (isStandardOutput(path)) {
        if (out.json()) throw Failure("with --json standard output holds the result", "name a file");
        return out.raw(bytes);
    }
    struct stat status {};
    const bool there = stat(path.c_str(), &status) == 0;
    if (there && S_ISDIR(status.st_mode)) throw Failure(path + " is a directory", "name a file");
    if (!there || S_ISREG(status.st_mode)) return storeRegular(path, bytes, mode);
    const Fd file{open(path.c_str(), O_WRONLY | O_CLOEXEC)};
    if (!file) cannot(path, "opened");
    writeAll(file, path, bytes);
}

}  // namespace vosctl
