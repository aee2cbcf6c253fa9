/* SPDX-License-Identifier: MIT */
#include "overrides.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <netdb.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/auxv.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <string_view>
#include <unordered_set>

#include "faults.h"

extern "C" int __cxa_atexit(void (*hook)(void *), void *argument, void *object) noexcept;
/* How the portable strerror_r() reaches it. */
extern "C" int __xpg_strerror_r(int error, char *to, size_t size);

namespace vostest {

namespace {

/* The armed fault. Plain data besides `left`: it is written before arming and read by the thread that counts down. */
struct Armed {
    std::array<char, 32> call{};
    int error = 0;
    long shortTo = -1;
    bool ends = false;
    std::atomic<int> left = 0;  // 1: the next such call fails
    std::atomic<bool> struck = false;
} armed;

/* The call whose calling thread is to be found; written and read as `armed` is. */
struct Watched {
    std::array<char, 32> call{};
    std::atomic<pid_t> *caller = nullptr;
    std::atomic<int> left = 0;
} watched;

std::atomic<bool> recording = false;
std::mutex recordMutex;
std::vector<std::string> recorded;

enum class Kind { Listed, Output };
enum class Verdict { Pass, Fail, Shorten };

Verdict enter(const char *call, Kind kind) {
    if (recording.load(std::memory_order_relaxed) && kind == Kind::Listed) {
        const std::lock_guard lock(recordMutex);
        if (recording) recorded.emplace_back(call); /* another thread may have ended the recording meanwhile */
    }
    if (watched.left.load(std::memory_order_relaxed) != 0 && strcmp(watched.call.data(), call) == 0 &&
        watched.left.fetch_sub(1) == 1)
        *watched.caller = gettid();
    if (armed.left.load(std::memory_order_relaxed) == 0 || strcmp(armed.call.data(), call) != 0) return Verdict::Pass;
    if (armed.left.fetch_sub(1) != 1) return Verdict::Pass;
    armed.struck = true;
    if (armed.ends && armed.shortTo < 0) raise(SIGKILL);
    return armed.shortTo >= 0 ? Verdict::Shorten : Verdict::Fail;
}

int errorOr(int usual) { return armed.error != 0 ? armed.error : usual; }

struct ERRNO {
    static constexpr Kind kind = Kind::Listed;
    template <class Result>
    static Result failed() {
        errno = errorOr(EIO);
        return static_cast<Result>(-1);
    }
};
struct OUTPUT : ERRNO {
    static constexpr Kind kind = Kind::Output;
};
struct NOTHING {
    static constexpr Kind kind = Kind::Listed;
    template <class Result>
    static Result failed() {
        errno = errorOr(EIO);
        return nullptr;
    }
};
struct ZERO {
    static constexpr Kind kind = Kind::Listed;
    template <class Result>
    static Result failed() {
        errno = errorOr(EIO);
        return 0;
    }
};
/* Not in the table, because only some processors need this call. */
struct ABSENT : ZERO {
    static constexpr Kind kind = Kind::Output;
};
struct CODE {
    static constexpr Kind kind = Kind::Listed;
    template <class Result>
    static Result failed() {
        return errorOr(EIO);
    }
};

namespace over {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" /* formats are passed on */

#define FAILS(result, name, parameters, arguments, failure)                                 \
    result name parameters {                                                                \
        if (enter(#name, failure::kind) == Verdict::Fail) return failure::failed<result>(); \
        return ::name arguments;                                                            \
    }
#define MOVES(result, name, parameters, arguments, length)                                              \
    result name parameters {                                                                            \
        const Verdict verdict = enter(#name, Kind::Listed);                                             \
        if (verdict == Verdict::Fail) return ERRNO::failed<result>();                                   \
        if (verdict == Verdict::Shorten) length = std::min(length, static_cast<size_t>(armed.shortTo)); \
        const result moved = ::name arguments;                                                          \
        if (verdict == Verdict::Shorten && armed.ends) raise(SIGKILL);                                  \
        return moved;                                                                                   \
    }
#define GIVES(name, parameters, arguments)                               \
    int name parameters {                                                \
        const Verdict verdict = enter(#name, Kind::Listed);              \
        const int result = ::name arguments;                             \
        return verdict == Verdict::Fail ? ERRNO::failed<int>() : result; \
    }
#define OTHER(name, parameters, failure) /* below */
#include "faults/calls.inc"
#undef FAILS
#undef MOVES
#undef GIVES
#undef OTHER

/* Calls whose parameters do not fit the table. */

int open(const char *path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
    va_end(list);
    if (enter("open", Kind::Listed) == Verdict::Fail) return ERRNO::failed<int>();
    return ::open(path, flags, mode);
}

int openat(int at, const char *path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
    va_end(list);
    if (enter("openat", Kind::Listed) == Verdict::Fail) return ERRNO::failed<int>();
    return ::openat(at, path, flags, mode);
}

/* A short transfer of pieces is one of a shorter first piece. */
ssize_t writev(int fd, const iovec *pieces, int count) {
    const Verdict verdict = enter("writev", Kind::Listed);
    if (verdict == Verdict::Fail) return ERRNO::failed<ssize_t>();
    if (verdict == Verdict::Pass) return ::writev(fd, pieces, count);
    const ssize_t moved = ::write(fd, pieces->iov_base, std::min(pieces->iov_len, static_cast<size_t>(armed.shortTo)));
    if (armed.ends) raise(SIGKILL);
    return moved;
}

/* Has no result: a failure is a sync that does not happen. */
void sync() {
    if (enter("sync", Kind::Listed) != Verdict::Fail) ::sync();
}

int fcntl(int fd, int command, ...) {
    va_list list;
    va_start(list, command);
    const int argument = va_arg(list, int); /* commands without an argument ignore it */
    va_end(list);
    if (enter("fcntl", Kind::Listed) == Verdict::Fail) return ERRNO::failed<int>();
    return ::fcntl(fd, command, argument);
}

int ioctl(int fd, unsigned long request, ...) {
    va_list list;
    va_start(list, request);
    void *const argument = va_arg(list, void *);
    va_end(list);
    if (enter("ioctl", Kind::Listed) == Verdict::Fail) return ERRNO::failed<int>();
    return ::ioctl(fd, request, argument);
}

/* The private netlink protocol of the device's kernel module does not exist here. It is replaced by the protocol on
 * which user space may send unicast messages. So a test can send the kernel's messages, and all other steps run in the
 * real kernel. */
int socket(int domain, int type, int protocol) {
    constexpr int kDeviceProtocol = 30;
    if (enter("socket", Kind::Listed) == Verdict::Fail) return ERRNO::failed<int>();
    return ::socket(domain, type, domain == AF_NETLINK && protocol == kDeviceProtocol ? NETLINK_USERSOCK : protocol);
}

/* A short transfer of pieces is one of a shorter first piece. */
ssize_t sendmsg(int fd, const msghdr *message, int flags) {
    const Verdict verdict = enter("sendmsg", Kind::Listed);
    if (verdict == Verdict::Fail) return ERRNO::failed<ssize_t>();
    if (verdict == Verdict::Pass) return ::sendmsg(fd, message, flags);
    iovec first{message->msg_iov->iov_base, std::min(message->msg_iov->iov_len, static_cast<size_t>(armed.shortTo))};
    msghdr shorter = *message;
    shorter.msg_iov = &first;
    shorter.msg_iovlen = 1;
    return ::sendmsg(fd, &shorter, flags);
}

void *shmat(int segment, const void *address, int flags) {
    if (enter("shmat", Kind::Listed) == Verdict::Fail) {
        errno = errorOr(EIO);
        return reinterpret_cast<void *>(-1);
    }
    return ::shmat(segment, address, flags);
}

using SignalHandler = void (*)(int);
SignalHandler signal(int number, SignalHandler handler) {
    if (enter("signal", Kind::Listed) == Verdict::Fail) {
        errno = errorOr(EINVAL);
        return SIG_ERR;
    }
    return ::signal(number, handler);
}

int execl(const char *path, const char *first, ...) {
    std::array<char *, 16> arguments{const_cast<char *>(first)};
    va_list list;
    va_start(list, first);
    for (std::size_t i = 0; arguments[i] != nullptr; ++i) arguments.at(i + 1) = va_arg(list, char *);
    va_end(list);
    if (enter("execl", Kind::Listed) == Verdict::Fail) return ERRNO::failed<int>();
    return ::execv(path, arguments.data());
}

/* The child of vfork() uses the parent's stack before the parent returns from the call. So this override must not have
 * a frame of its own on that stack. It either returns a failure or jumps to the real vfork() with all registers
 * unchanged. */
extern "C" pid_t vostestVfork(void);
extern "C" [[gnu::used]] bool vostestVforkFails() {
    if (enter("vfork", Kind::Listed) != Verdict::Fail) return false;
    errno = errorOr(EAGAIN);
    return true;
}
asm(R"(
    .pushsection .text
    .globl vostestVfork
    .hidden vostestVfork
    .type vostestVfork, %function
vostestVfork:
)"
#if defined(__x86_64__)
    R"(
    endbr64
    sub $8, %rsp
    call vostestVforkFails
    add $8, %rsp
    test %al, %al
    jnz 1f
    jmp vfork@PLT
1:  mov $-1, %eax
    ret
)"
#elif defined(__aarch64__)
    R"(
    hint #34 // bti c
    stp x29, x30, [sp, #-16]!
    bl vostestVforkFails
    ldp x29, x30, [sp], #16
    tbnz w0, #0, 1f
    b vfork
1:  mov w0, #-1
    ret
)"
#elif defined(__riscv)
    R"(
    addi sp, sp, -16
    sd ra, 8(sp)
    call vostestVforkFails
    ld ra, 8(sp)
    addi sp, sp, 16
    bnez a0, 1f
    tail vfork
1:  li a0, -1
    ret
)"
#elif defined(__s390x__)
    R"(
    stmg %r14, %r15, 112(%r15)
    aghi %r15, -160
    brasl %r14, vostestVforkFails
    lmg %r14, %r15, 272(%r15)
    ltgr %r2, %r2
    jne 1f
    jg vfork@PLT
1:  lghi %r2, -1
    br %r14
)"
#endif
    R"(
    .size vostestVfork, . - vostestVfork
    .popsection
)");

int atexit(void (*hook)()) {
    if (enter("atexit", Kind::Listed) == Verdict::Fail) return -1;
    return ::atexit(hook);
}

/* atexit() in a shared object calls this function of the C library, unless a sanitizer redirects it. */
int cxaAtexit(void (*hook)(void *), void *argument, void *object) {
    if (enter("atexit", Kind::Listed) == Verdict::Fail) return -1;
    return __cxa_atexit(hook, argument, object);
}

int strerrorPortable(int error, char *to, size_t size) {
    if (enter("strerror_r", Kind::Listed) == Verdict::Fail) return CODE::failed<int>();
    return __xpg_strerror_r(error, to, size);
}

/* The mutex is released even when the call reports a failure. Otherwise the next thread that locks it would wait for
 * ever. */
int pthread_mutex_unlock(pthread_mutex_t *mutex) {
    const Verdict verdict = enter("pthread_mutex_unlock", Kind::Listed);
    const int result = ::pthread_mutex_unlock(mutex);
    return verdict == Verdict::Fail ? CODE::failed<int>() : result;
}

/* A sleep fails by ending early. */
unsigned sleep(unsigned seconds) {
    if (enter("sleep", Kind::Listed) != Verdict::Fail) return ::sleep(seconds);
    errno = errorOr(EINTR);
    return seconds;
}

/* The heap: every block that libvos has allocated is in the list until libvos releases it. */

/* Not destroyed, because libvos releases blocks until the end of the process. */
std::mutex &heapMutex = *new std::mutex;
std::unordered_set<void *> &blocks = *new std::unordered_set<void *>;

void *taken(void *block) {
    const std::lock_guard lock(heapMutex);
    if (block != nullptr) blocks.insert(block);
    return block;
}

void given(void *block) {
    const std::lock_guard lock(heapMutex);
    blocks.erase(block);
}

bool refused(const char *call) {
    if (enter(call, Kind::Listed) != Verdict::Fail) return false;
    errno = errorOr(ENOMEM);
    return true;
}

void *malloc(size_t size) { return refused("malloc") ? nullptr : taken(::malloc(size)); }

void *calloc(size_t count, size_t size) { return refused("calloc") ? nullptr : taken(::calloc(count, size)); }

void *realloc(void *block, size_t size) {
    if (refused("realloc")) return nullptr;
    given(block);
    void *const moved = ::realloc(block, size);
    if (moved == nullptr && size == 0) return nullptr; /* the block is released */
    return taken(moved != nullptr ? moved : block) == moved ? moved : nullptr;
}

void free(void *block) {
    given(block);
    ::free(block);
}

/* Optimised builds call vfprintf() on standard output where the source says vprintf(). */
int vfprintf(FILE *stream, const char *format, va_list list) {
    if (stream == stdout) return over::vprintf(format, list);
    if (enter("vfprintf", Kind::Output) == Verdict::Fail) return ERRNO::failed<int>();
    return ::vfprintf(stream, format, list);
}

#pragma GCC diagnostic pop

int printf(const char *format, ...) {
    va_list list;
    va_start(list, format);
    const int count = over::vprintf(format, list);
    va_end(list);
    return count;
}

/* A hardened build calls these functions in place of the plain ones. Tests name them by the plain names. */

int vfprintfChecked(FILE *stream, int, const char *format, va_list list) {
    return over::vfprintf(stream, format, list);
}
int vprintfChecked(int, const char *format, va_list list) { return over::vprintf(format, list); }
int printfChecked(int, const char *format, ...) {
    va_list list;
    va_start(list, format);
    const int count = over::vprintf(format, list);
    va_end(list);
    return count;
}
int vsnprintfChecked(char *to, size_t size, int, size_t, const char *format, va_list list) {
    return over::vsnprintf(to, size, format, list);
}
ssize_t recvfromChecked(int fd, void *to, size_t length, size_t, int flags, sockaddr *from, socklen_t *fromLength) {
    return over::recvfrom(fd, to, length, flags, from, fromLength);
}
ssize_t readChecked(int fd, void *to, size_t length, size_t) { return over::read(fd, to, length); }

}  // namespace over

struct Override {
    std::string_view name;
    void *replacement;
};

template <class Function>
Override entry(std::string_view name, Function *replacement) {
    return {name, reinterpret_cast<void *>(replacement)};
}

const std::vector<Override> &overrides() {
    static const std::vector<Override> all{
#define FAILS(result, name, parameters, arguments, failure) entry(#name, over::name),
#define MOVES                                               FAILS
#define GIVES(name, parameters, arguments)                  entry(#name, over::name),
#define OTHER(name, parameters, failure)
#include "faults/calls.inc"
#undef FAILS
#undef MOVES
#undef GIVES
#undef OTHER
        entry("open", over::open),
        entry("openat", over::openat),
        entry("writev", over::writev),
        entry("sync", over::sync),
        entry("fcntl", over::fcntl),
        entry("fcntl64", over::fcntl),
        entry("ioctl", over::ioctl),
        entry("socket", over::socket),
        entry("sendmsg", over::sendmsg),
        entry("shmat", over::shmat),
        entry("signal", over::signal),
        entry("atexit", over::atexit),
        entry("__cxa_atexit", over::cxaAtexit),
        entry("execl", over::execl),
        entry("vfork", over::vostestVfork),
        entry("__cxa_atexit", over::cxaAtexit),
        entry("__xpg_strerror_r", over::strerrorPortable),
        entry("pthread_mutex_unlock", over::pthread_mutex_unlock),
        entry("sleep", over::sleep),
        entry("malloc", over::malloc),
        entry("calloc", over::calloc),
        entry("realloc", over::realloc),
        entry("free", over::free),
        entry("vfprintf", over::vfprintf),
        entry("printf", over::printf),
        entry("__printf_chk", over::printfChecked),
        entry("__vfprintf_chk", over::vfprintfChecked),
        entry("__vprintf_chk", over::vprintfChecked),
        entry("__vsnprintf_chk", over::vsnprintfChecked),
        entry("__read_chk", over::readChecked),
        entry("__recvfrom_chk", over::recvfromChecked),
    };
    return all;
}

}  // namespace

void *overrideOf(const std::string &name) {
    for (const Override &each : overrides())
        if (each.name == name) return each.replacement;
    return nullptr;
}

void Faults::arm(const FaultPoint &point) {
    armed.call = {};
    point.call.copy(armed.call.data(), armed.call.size() - 1);
    armed.error = point.error;
    armed.shortTo = point.shortTo;
    armed.ends = point.ends;
    armed.struck = false;
    armed.left = point.occurrence;
}

bool Faults::disarm() {
    armed.left = 0;
    return armed.struck;
}

void Faults::watch(const std::string &call, int occurrence, std::atomic<pid_t> *caller) {
    watched.left = 0;
    watched.call = {};
    call.copy(watched.call.data(), watched.call.size() - 1);
    watched.caller = caller;
    watched.left = occurrence;
}

std::vector<std::string> Faults::record(const std::function<void()> &action) {
    {
        const std::lock_guard lock(recordMutex);
        recorded.clear();
        recording = true;
    }
    action();
    const std::lock_guard lock(recordMutex);
    recording = false;
    return std::move(recorded);
}

int Faults::liveBlocks() {
    const std::lock_guard lock(over::heapMutex);
    return static_cast<int>(over::blocks.size());
}

}  // namespace vostest
