/* SPDX-License-Identifier: MIT */
/**
 * @file vosChannel.hpp
 * C++: the channels that receive requests: the main one, the second one and those of threads; their loop timers and
 * watched descriptors; how a process is asked to end.
 */
#ifndef VOS_CHANNEL_HPP
#define VOS_CHANNEL_HPP

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>

#include "vosMsgChannel.h"
#include "vosRegistration.hpp"
#include "vosRequest.hpp"

namespace vos {
inline namespace api1 {

namespace detail {

using timer_callback = callback<void, std::chrono::milliseconds>;
class timer_node : public timer_callback {
  public:
    VOS_MSG_TIMER *handle = nullptr;
    bool periodic = false;

  protected:
    using timer_callback::timer_callback;
    ~timer_node() = default;
};

using descriptor_callback = callback<void, int32_t>;
class descriptor_node : public descriptor_callback {
  public:
    VOS_MSG_USER_SOCKET socket{};
    unique_fd owned;

  protected:
    using descriptor_callback::descriptor_callback;
    ~descriptor_node() = default;
};

/* What is known of a loop beside the library's own state. Each loop is there once in a process. */
struct loop_state {
    std::atomic<int32_t> registered{0}; /* timers and descriptors */
    std::atomic<bool> running{false};
    pthread_t thread{};
    uint32_t serial = 0; /* of the message in the receive buffer */

    void enter() noexcept {
        if (checked && !running.load(std::memory_order_relaxed)) {
            thread = pthread_self();
            running.store(true, std::memory_order_release);
        }
        check_thread();
        ++serial;
    }
    void check_thread() const noexcept {
        if constexpr (checked)
            if (running.load(std::memory_order_acquire) && pthread_equal(thread, pthread_self()) == 0)
                fail("a channel is used by another thread than the one that receives from it");
    }
};

/* The C calls of the main channel. */
struct main_calls {
    static inline loop_state state;
    static uint8_t *message() noexcept { return g_vosMsgBufferRecv; }
    static bool is_high(int32_t fd) noexcept { return fd == g_vosFdProcHigh; }
    static constexpr auto open = vosMsgInit;
    static constexpr auto receive = vosMsgRecv;
    static constexpr auto add_timer = vosTimerRegister;
    static void remove_timer(VOS_MSG_TIMER *handle) noexcept { vosTimerCancel(handle); }
};

/* Those of the second channel. No call cancels its timers, so a timer that goes becomes one that fires once, at the
 * next turn of the loop, and calls nothing: the library frees it then. */
struct second_calls {
    static inline loop_state state;
    static uint8_t *message() noexcept { return g_vosMsgBufferRecv_thread; }
    static bool is_high(int32_t fd) noexcept { return fd == g_vosFdProcHigh_thread; }
    static constexpr auto open = vosMsgInit2;
    static constexpr auto receive = vosMsgRecv2;
    static constexpr auto add_timer = vosTimerRegister2;
    static void remove_timer(VOS_MSG_TIMER *handle) noexcept {
        handle->pProc = nullptr;
        handle->ulPeriodic = 0;
        handle->ulIntervalMs = 0;
        handle->ulRunning = 1;
    }
};

/* The length of the payload of a message that was received with room for the largest, from the count of the receive
 * call. That count has the header's 32 bytes on the normal socket, and is cut to the room. -1: not a message, but an
 * empty datagram on the high-priority socket, for which the library returns the last message once more. */
inline int32_t payload_length(int32_t count, bool high, const uint8_t *message) noexcept {
    constexpr auto room = static_cast<int32_t>(max_payload);
    constexpr auto header = static_cast<int32_t>(sizeof(VOS_MSG_HEAD));
    if (count < room) return high ? count : count - header;
    VOS_MSG_HEAD head;
    std::memcpy(&head, message, sizeof head);
    if (high) return head.ulBufLen == max_payload ? room : -1;
    /* Within the last 32 bytes only the header tells the length. */
    return std::clamp(static_cast<int32_t>(std::min<uint32_t>(head.ulBufLen, max_payload)), room - header, room);
}

}  // namespace detail

/**
 * A channel with its receive loop: vos::channel is the process's main one, vos::second_channel the other one. A process
 * has each of them once. It stays open until the process ends: there is no call that closes it.
 *
 * One thread receives. It also makes all timers and watches all descriptors; before the loop starts any thread may. In
 * a debug build another thread ends the process with a line, and so does a timer or descriptor that is still registered
 * when the channel goes.
 *
 * A message is received in place, in the library's buffer, and is not copied.
 */
template <class Calls>
class basic_channel {
  public:
    basic_channel() noexcept = default;
    basic_channel(const basic_channel &) = delete;
    basic_channel &operator=(const basic_channel &) = delete;
    ~basic_channel() {
        detail::check(Calls::state.registered.load() == 0, "a timer or a descriptor outlives its channel");
    }

    /**
     * Opens the pair of sockets; see vosMsgInit() and vosMsgInit2().
     *
     * @return VOS_ERR_EXIST when it is open; VOS_ERROR with errno
     */
    result<void> open(c_text name) noexcept {
        const int32_t code = Calls::open(name.get(), VOS_MSG_OPEN_LOCAL, this);
        if (code != VOS_OK) return detail::with_errno(code);
        name_.assign(name.get());
        return {};
    }
    /** Opens the kernel's netlink socket, for packets and link changes. The second channel has none. */
    result<void> open_netlink(c_text name) noexcept {
        static_assert(std::is_same_v<Calls, detail::main_calls>, "the second channel has no netlink socket");
        return detail::with_errno(Calls::open(name.get(), VOS_MSG_OPEN_NETLINK, this));
    }

    /**
     * Waits for a request. While it waits it fires timers and runs handlers. The time starts again after each of them,
     * so it does not bound the length of the call; see vosMsgRecv().
     *
     * @return VOS_ERR_TIMEOUT; VOS_ERR_NOT_INIT; VOS_ERROR after a signal (errno EINTR), and for an empty datagram or
     * one that is too short, where errno means nothing. A loop goes on after VOS_ERROR.
     */
    result<request> receive(timeout wait = forever) {
        Calls::state.enter();
        uint8_t *const payload = Calls::message() + sizeof(VOS_MSG_HEAD);
        request got;
        const int32_t count = Calls::receive(0, payload, max_payload, wait.receive_ms(), &got.peer_);
        if (count < 0) return error{count, count == VOS_ERROR ? errno : 0};
        const bool high = Calls::is_high(got.peer_.iSocketFd);
        const int32_t size = detail::payload_length(count, high, Calls::message());
        if (size < 0) return error{VOS_ERROR};
        got.received({payload, static_cast<std::size_t>(size)}, high, false, &Calls::state.serial);
        return result<request>{std::move(got)};
    }

    /**
     * Serves requests until stop(): calls serve(request &) for each.
     *
     * @return success after stop(); VOS_ERR_NOT_INIT when the channel is not open
     */
    template <class F>
    result<void> run(F &&serve) {
        while (state_.load() != kStopped) {
            /* A message that could not be sent to a full queue wakes nobody: look again soon. */
            const bool ending = (state_.load() & kStopped) != 0;
            auto got = receive(ending ? timeout{std::chrono::milliseconds{100}} : forever);
            if (!got && got.code() != VOS_ERROR && !got.timed_out()) return got.why();
            if (!got) continue;
            if (state_.load() >= kWaking && got->payload().empty() && !got->wants_answer()) {
                if ((state_.fetch_sub(kWaking) & kStopped) != 0) break;
                continue; /* sent by a stop() that an earlier run() did not wait for */
            }
            serve(*got);
        }
        state_.fetch_and(~kStopped);
        return {};
    }
    /** Serves no requests: only timers, descriptors and handlers. A request is answered with VOS_ERR_NO_HANDLER. */
    result<void> run() {
        return run([](request &unexpected) { static_cast<void>(unexpected.answer(VOS_ERR_NO_HANDLER)); });
    }
    /** Ends run() when the messages that are already there have been served. For timers, descriptors, handlers, and
     *  other threads; not for a signal handler. It sends the channel an empty message, which ends the wait. */
    void stop() noexcept {
        uint32_t before = state_.load();
        do
            if ((before & kStopped) != 0) return;
        while (!state_.compare_exchange_weak(before, before + kStopped + kWaking));
        if (!post(name_.raw(), content{}, no_wait)) state_.fetch_sub(kWaking);
    }

    /**
     * Calls f() or f(std::chrono::milliseconds late) again and again. The next interval begins when f has returned. The
     * timer is gone when its owner is. f must not throw, and must not receive.
     *
     * @return VOS_ERR_MEMORY; VOS_ERROR when the clock cannot be read
     */
    template <class F>
    result<timer> every(interval period, F f) {
        return add_timer(period, std::move(f), true);
    }
    /** Calls f once. */
    template <class F>
    result<timer> after(interval delay, F f) {
        return add_timer(delay, std::move(f), false);
    }

    /**
     * Calls f() or f(int fd) when the descriptor is readable. The descriptor stays the caller's, who closes it after
     * the owner is gone. When both loops of a process run, both watch it: f may then be called by both threads at the
     * same time, and descriptors must not be added or removed.
     *
     * @return VOS_ERR_PARAM for a descriptor below 0 or above 1023; VOS_ERR_EXIST when it is watched; VOS_ERR_MEMORY
     */
    template <class F>
    result<descriptor> watch(int fd, F f) {
        return add_descriptor(fd, unique_fd{}, std::move(f));
    }
    /** The same, and closes the descriptor in the end. */
    template <class F>
    result<descriptor> watch(unique_fd fd, F f) {
        const int number = fd.get();
        return add_descriptor(number, std::move(fd), std::move(f));
    }

  private:
    static void fire(uint32_t late, uint64_t argument) noexcept {
        auto *const fired = reinterpret_cast<detail::timer_node *>(static_cast<uintptr_t>(argument));
        const detail::held during{*fired};
        /* The library frees a timer that fires once, and may give its address to another. */
        if (!fired->periodic) forget(*fired);
        (*fired)(std::chrono::milliseconds{late});
    }
    static int32_t ready(int32_t fd, void *argument) noexcept {
        auto &watched = *static_cast<detail::descriptor_node *>(argument);
        const detail::held during{watched};
        watched(fd);
        return VOS_OK;
    }
    static void forget(detail::timer_node &gone) noexcept {
        gone.registered = false;
        gone.handle = nullptr;
        Calls::state.registered.fetch_sub(1);
    }
    static void cancel_timer(detail::node *of) noexcept {
        auto &cancelled = *static_cast<detail::timer_node *>(of);
        Calls::state.check_thread();
        Calls::remove_timer(cancelled.handle);
        forget(cancelled);
    }
    static void cancel_descriptor(detail::node *of) noexcept {
        auto &cancelled = *static_cast<detail::descriptor_node *>(of);
        vosMsgSockDelUser(&cancelled.socket);
        Calls::state.registered.fetch_sub(1);
        cancelled.owned.reset();
    }

    template <class F>
    result<timer> add_timer(interval time, F f, bool periodic) {
        using node = detail::stored<detail::timer_node, F, void, std::chrono::milliseconds>;
        Calls::state.check_thread();
        detail::timer_node *const made = new (std::nothrow) node(std::move(f));
        if (made == nullptr) return error{VOS_ERR_MEMORY};
        registration owner{made};
        made->periodic = periodic;
        const int32_t code = Calls::add_timer(periodic ? 1 : 0, time.ms(), fire, &made->handle,
                                              static_cast<uint64_t>(reinterpret_cast<uintptr_t>(made)));
        if (code != VOS_OK) return error{code};
        return added(std::move(owner), made, cancel_timer);
    }
    template <class F>
    result<descriptor> add_descriptor(int fd, unique_fd owned, F f) {
        using node = detail::stored<detail::descriptor_node, F, void, int32_t>;
        Calls::state.check_thread();
        detail::descriptor_node *const watched = new (std::nothrow) node(std::move(f));
        if (watched == nullptr) return error{VOS_ERR_MEMORY};
        registration owner{watched};
        watched->owned = std::move(owned);
        watched->socket.iFd = fd;
        watched->socket.pProc = ready;
        watched->socket.pArg = watched;
        const int32_t code = vosMsgSockAddUser(&watched->socket);
        if (code != VOS_OK) return error{code};
        return added(std::move(owner), watched, cancel_descriptor);
    }
    static result<registration> added(registration owner, detail::node *of,
                                      void (*unregister)(detail::node *) noexcept) noexcept {
        of->unregister = unregister;
        of->registered = true;
        Calls::state.registered.fetch_add(1);
        return result<registration>{std::move(owner)};
    }

    text<128> name_;
    static constexpr uint32_t kStopped = 1;
    static constexpr uint32_t kWaking = 2;
    /* Whether run() shall end, and how many messages that wake it are on their way. Both change at once, so that no
     * such message is ever taken for a request. */
    std::atomic<uint32_t> state_{0};
};

/** The process's main channel. */
using channel = basic_channel<detail::main_calls>;
/** A second receive loop, for a thread of its own. It needs a name of its own, and the main channel open. */
using second_channel = basic_channel<detail::second_calls>;

/**
 * A thread's own socket, for requests of up to Size bytes. The main channel must be open. No timers fire and no
 * descriptors are watched here. Any number of threads may each have one, but only one thread may receive from each.
 */
template <std::size_t Size = 1024>
class thread_channel {
    static_assert(Size > 0 && Size <= max_payload);

  public:
    thread_channel() noexcept = default;
    thread_channel(const thread_channel &) = delete;
    thread_channel &operator=(const thread_channel &) = delete;

    /** @return VOS_ERROR with errno; VOS_ERR_EXIST when this object is open */
    result<void> open(c_text name, int32_t number) noexcept {
        if (socket_) return error{VOS_ERR_EXIST};
        int32_t fd = -1;
        const int32_t code = vosMsgThreadInit(name.get(), number, &fd, 0);
        if (code != VOS_OK) return detail::with_errno(code);
        socket_.reset(fd);
        return {};
    }

    /** Waits without a limit. @return VOS_ERR_NOT_INIT; VOS_ERROR as basic_channel::receive() */
    result<request> receive() {
        if (!socket_) return error{VOS_ERR_NOT_INIT};
        ++serial_;
        request got;
        const int32_t count = vosMsgThreadRecv(socket_.get(), message_, sizeof message_, 0, &got.peer_);
        if (count < 0) return error{count, count == VOS_ERROR ? errno : 0};
        const std::size_t size = static_cast<std::size_t>(count) - sizeof(VOS_MSG_HEAD);
        got.received({message_ + sizeof(VOS_MSG_HEAD), std::min(size, Size)}, false, size > Size, &serial_);
        return result<request>{std::move(got)};
    }
    /** Serves requests for ever: calls serve(request &) for each. @return VOS_ERR_NOT_INIT */
    template <class F>
    result<void> run(F &&serve) {
        for (;;) {
            auto got = receive();
            if (got)
                serve(*got);
            else if (got.code() != VOS_ERROR)
                return got.why();
        }
    }

  private:
    /* One byte more than the largest payload shows that a message was cut. */
    alignas(8) uint8_t message_[sizeof(VOS_MSG_HEAD) + Size + 1];
    unique_fd socket_;
    uint32_t serial_ = 0;
};

namespace detail {

/* Where SIGTERM and SIGHUP are reported. A child that could not execute its program shares the memory of its creator
 * and runs the procedure too; it reports nothing. */
struct termination_state {
    static inline std::atomic<int> pipe{-1};
    static inline std::atomic<int32_t> owner{0};
    static void report(int32_t /*reserved*/) noexcept {
        const int fd = pipe.load();
        if (fd >= 0 && owner.load() == static_cast<int32_t>(::getpid())) static_cast<void>(!::write(fd, "", 1));
    }
};

class termination_pipe {
  public:
    explicit termination_pipe(int fd) noexcept : end_(fd) {}
    termination_pipe(termination_pipe &&) noexcept = default;
    ~termination_pipe() {
        int mine = end_.get();
        if (mine >= 0) termination_state::pipe.compare_exchange_strong(mine, -1);
    }

  private:
    unique_fd end_;
};

}  // namespace detail

/**
 * Calls f() in the receive loop when the process gets SIGTERM or SIGHUP, once. Unlike in a termination procedure of the
 * C interface, f may do anything: it runs between two messages, and usually calls stop(). After process::init(), which
 * sets the disposition of SIGHUP. When the owner is gone the two signals stay without effect.
 *
 * @return VOS_ERROR with errno when there is no pipe; otherwise as basic_channel::watch()
 */
template <class Calls, class F>
result<registration> on_termination(basic_channel<Calls> &loop, F f) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return error{VOS_ERROR, errno};
    unique_fd read_end{ends[0]};
    detail::termination_pipe write_end{ends[1]};
    auto watched =
        loop.watch(std::move(read_end), [f = std::move(f), write_end = std::move(write_end)](int fd) mutable {
            char byte = 0;
            if (::read(fd, &byte, 1) == 1) f();
        });
    if (!watched) return watched;
    detail::termination_state::owner = static_cast<int32_t>(::getpid());
    detail::termination_state::pipe = ends[1];
    vosProcessRegTerminateProc(detail::termination_state::report);
    return watched;
}

}  // namespace api1
}  // namespace vos

#endif
