/* SPDX-License-Identifier: MIT */
/**
 * @file vosProcess.hpp
 * C++: start-up of a process, and other processes. How a process is asked to end is in vosChannel.hpp.
 */
#ifndef VOS_PROCESS_HPP
#define VOS_PROCESS_HPP

#include <unistd.h>

#include "vosBytes.hpp"
#include "vosProcess.h"

namespace vos {
inline namespace api1 {

/** A descriptor that is closed with its owner. -1: none. errno is left as it was. */
class unique_fd {
  public:
    constexpr unique_fd() noexcept = default;
    constexpr explicit unique_fd(int fd) noexcept : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~unique_fd() { reset(); }

    [[nodiscard]] constexpr int get() const noexcept { return fd_; }
    [[nodiscard]] constexpr explicit operator bool() const noexcept { return fd_ >= 0; }
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }
    void reset(int fd = -1) noexcept {
        const int old = std::exchange(fd_, fd);
        if (old < 0) return;
        const int before = errno;
        ::close(old);
        errno = before;
    }

  private:
    int fd_ = -1;
};

namespace process {

/** How the main thread of a process is scheduled; see vosProcessDescGet(). */
struct scheduling {
    int32_t priority; /**< Real-time priority, or the nice value. */
    text<9> policy;   /**< "FIFO RT", "RR RT", "NORMAL" or "UNKKNOWN". */
};

/** Sets the process's name and signal dispositions; see vosProcessInit(). */
inline result<void> init(c_text name) noexcept { return detail::done(vosProcessInit(name.get())); }

/** Kernel settings and device data, as the first call of a process on the device; see vosInit(). */
inline void prepare_device(c_text name) noexcept { vosInit(name.get()); }

/** The name at the beginning of log lines. */
[[nodiscard]] inline std::string_view name() noexcept { return vosProcessGetName(); }
[[nodiscard]] inline int32_t id() noexcept { return vosProcessGetId(); }

/** The beginning of another process's command line; see vosProcessGetNameByPid(). */
inline result<text<33>> name_of(int32_t pid) noexcept {
    text<33> found;
    const int32_t code = vosProcessGetNameByPid(pid, found.raw());
    if (code != VOS_OK) return error{code};
    return found;
}

[[nodiscard]] inline bool exists(int32_t pid) noexcept { return vosProcessCheck(pid) == VOS_OK; }

/**
 * Starts a program under SCHED_RR; see vosProcessCreate() for what it inherits, and for what happens to the creator
 * when the program cannot be executed. A file that may not be executed is refused before, with VOS_ERR_NO_FILE.
 *
 * @return the process id
 */
inline result<int32_t> create(c_text path, int32_t priority) noexcept {
    if (::access(path.get(), X_OK) != 0) return error{VOS_ERR_NO_FILE, errno};
    const int32_t pid = vosProcessCreate(path.get(), priority, 0, nullptr);
    if (pid <= 0) return detail::with_errno(pid < 0 ? pid : VOS_ERROR);
    return pid;
}

/** The same with arguments, separated by exactly one blank each. */
inline result<int32_t> create(c_text path, int32_t priority, c_text arguments) noexcept {
    if (::access(path.get(), X_OK) != 0) return error{VOS_ERR_NO_FILE, errno};
    const int32_t pid = vosProcessCreate(path.get(), priority, 0, arguments.get());
    if (pid <= 0) return detail::with_errno(pid < 0 ? pid : VOS_ERROR);
    return pid;
}

/** Starts a program with other standard descriptors; see vosProcessCreateWithNewFd(). A child whose program cannot be
 *  executed ends with the status 127; the C call returns in it. */
inline result<int32_t> create(c_text path, int32_t priority, int input, int output, int errors) noexcept {
    const int32_t pid = vosProcessCreateWithNewFd(path.get(), priority, 0, input, output, errors);
    if (pid == 0) ::_exit(127);
    if (pid < 0) return detail::with_errno(pid);
    return pid;
}

/** Sends SIGTERM and, if it is a child, waits for its end without a limit; see vosProcessDestroy(). A process id of 0
 * or less names other processes to kill(), so it is refused here with VOS_ERR_PARAM. */
inline result<void> destroy(int32_t pid) noexcept {
    if (pid <= 0) return error{VOS_ERR_PARAM};
    return detail::done(vosProcessDestroy(pid));
}

inline result<void> schedule(int32_t pid, int32_t priority) noexcept {
    return detail::done(vosProcessSched(pid, priority, 0));
}

inline result<scheduling> scheduling_of(int32_t pid) noexcept {
    scheduling found{};
    const int32_t code = vosProcessDescGet(pid, &found.priority, found.policy.raw());
    if (code != VOS_OK) return error{code};
    return found;
}

}  // namespace process

}  // namespace api1
}  // namespace vos

#endif
