/* SPDX-License-Identifier: MIT */
/**
 * @file vosMsg.hpp
 * C++: requests to other processes by name. What receives them is in vosChannel.hpp.
 */
#ifndef VOS_MSG_HPP
#define VOS_MSG_HPP

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <algorithm>
#include <cstdio>

#include "vosBytes.hpp"
#include "vosLog.hpp"
#include "vosMsg.h"
#include "vosMsgChannel.h"
#include "vosProcess.hpp"
#include "vosSys.h"
#include "vosTime.hpp"

namespace vos {
inline namespace api1 {

/** The largest payload of a message in bytes. */
inline constexpr std::size_t max_payload = VOS_MSG_BUFFER_LEN - sizeof(VOS_MSG_HEAD);

/** Whom a message goes to: a process by its name. The name is not copied. */
class target {
  public:
    constexpr target(c_text name) noexcept : name_(name.get()) {}
    constexpr target(const char *name) noexcept : name_(name) {}
    target(const std::string &name) noexcept : name_(name.c_str()) {}

    /** The high-priority socket of a process. */
    [[nodiscard]] friend constexpr target high(target of) noexcept { return {of.name_, kind::high, 0}; }
    /** A thread channel of a process, by its number. */
    [[nodiscard]] friend constexpr target thread_of(target of, int32_t number) noexcept {
        return {of.name_, kind::thread, number};
    }

    /** The C calls that send; `wants` is a value of ulNoReturn. */
    [[gnu::always_inline]] int32_t send(void *payload, uint32_t size, uint32_t wants, uint32_t *code,
                                        timeout wait) const {
        if (kind_ == kind::thread)
            return vosMsgThreadSend(name_, number_, payload, size, wants, code, wait.send_ms(), 0);
        const uint32_t flags = kind_ == kind::high ? uint32_t{VOS_MSG_TO_HIGH} : 0;
        return vosMsgSend(name_, payload, size, wants, code, wait.send_ms(), flags);
    }
    /** The path of the socket. False when it does not fit. */
    bool path(char *to, std::size_t size) const noexcept {
        char normal[128];
        if (vosMsgNLChangePath(name_, normal) != VOS_OK) return false;
        char end[16] = "";
        if (kind_ == kind::high) std::snprintf(end, sizeof end, "High");
        if (kind_ == kind::thread) std::snprintf(end, sizeof end, "%d", number_);
        const int length = std::snprintf(to, size, "%s%s", normal, end);
        return length >= 0 && static_cast<std::size_t>(length) < size;
    }

  private:
    enum class kind : uint8_t { normal, high, thread };
    constexpr target(const char *name, kind of, int32_t number) noexcept : name_(name), number_(number), kind_(of) {}

    const char *name_;
    int32_t number_ = 0;
    kind kind_ = kind::normal;
};

constexpr target high(target of) noexcept;
constexpr target thread_of(target of, int32_t number) noexcept;

/** An answer: the code that the other process chose, and the payload. */
template <class T>
struct answer {
    int32_t code;
    T value;
};

namespace detail {

/* The send calls report the end of a time-out as VOS_ERROR with EAGAIN. All calls of this interface report it as
 * VOS_ERR_TIMEOUT. */
inline error request_error(int32_t code) noexcept {
    const int number = errno;
    if (code != VOS_ERROR) return error{code};
    return error{number == EAGAIN ? VOS_ERR_TIMEOUT : VOS_ERROR, number};
}

/* The socket of one request: made by the same calls in the same order as in vosMsgSend(), which does not tell how long
 * the answer is. */
class requester {
  public:
    requester() noexcept = default;
    requester(const requester &) = delete;
    requester &operator=(const requester &) = delete;
    ~requester() {
        const int before = errno;
        if (bound_) ::unlink(own_);
        errno = before;
    }

    bool open(timeout wait) {
        socket_.reset(vosMsgLocalSocket(wait.send_ms()));
        if (!socket_ || vosMsgGetLocalFile(own_, sizeof own_) != VOS_OK) return false;
        const address mine{own_};
        ::unlink(own_);
        bound_ = vosBind(socket_.get(), mine.get(), mine.length()) == 0;
        if (bound_) vosMsgSocketOptmize(socket_.get(), 0);
        return bound_;
    }
    bool connect(const char *path) {
        const address receiver{path};
        return vosConnect(socket_.get(), receiver.get(), receiver.length()) == 0;
    }
    int32_t send(VOS_MSG_HEAD &head, content payload) {
        iovec pieces[] = {{&head, sizeof head}, {const_cast<void *>(payload.data()), payload.size()}};
        msghdr message{};
        message.msg_iov = pieces;
        message.msg_iovlen = 2;
        return vosMsgSendStream1(socket_.get(), &message, static_cast<uint32_t>(sizeof head) + payload.length());
    }
    int32_t receive(VOS_MSG_HEAD &head, buffer room, bool &cut) {
        iovec pieces[] = {{&head, sizeof head}, {room.data(), room.size()}};
        msghdr message{};
        message.msg_iov = pieces;
        message.msg_iovlen = 2;
        const int32_t count = vosMsgRecvStream1(socket_.get(), &message, 0);
        cut = (message.msg_flags & MSG_TRUNC) != 0;
        return count;
    }

  private:
    /* The kernel reads the true length of a path that does not fit, and refuses it. */
    class address {
      public:
        explicit address(const char *path) noexcept { vosMsgLocalAddrInit(path, &storage_.local, &length_); }
        [[nodiscard]] const sockaddr *get() const noexcept {
            return reinterpret_cast<const sockaddr *>(&storage_.local);
        }
        [[nodiscard]] uint32_t length() const noexcept { return length_; }

      private:
        union {
            sockaddr_storage whole;
            sockaddr_un local;
        } storage_ = {};
        uint32_t length_ = 0;
    };

    unique_fd socket_;
    char own_[128] = "";
    bool bound_ = false;
};

[[gnu::cold]] inline error request_failed(const char *step) noexcept {
    const int number = errno;
    vos::log(level::error, "vos::call")("%s failed errno:%d(%s).", step, number, std::strerror(number));
    errno = number;
    return request_error(VOS_ERROR);
}

/* One exchange. The result is the answer's code and the number of its payload's bytes. */
struct exchanged {
    int32_t code;
    std::size_t size;
};
inline result<exchanged> exchange_with(target to, content question, buffer room, timeout wait, bool any_size) {
    if (question.size() > max_payload) return error{VOS_ERR_TOO_LONG};
    char path[160];
    if (!to.path(path, sizeof path)) return error{VOS_ERR_PARAM};
    requester one;
    if (!one.open(wait)) return request_failed("local socket");
    if (!one.connect(path)) return request_failed("connect");
    VOS_MSG_HEAD head{VOS_MSG_TYPE_SELF, VOS_MSG_WAIT_ANSWER, 0, 254, 0, 0, 0, question.length()};
    if (one.send(head, question) < 0) return request_error(VOS_ERROR);
    bool cut = false;
    const int32_t count = one.receive(head, room, cut);
    if (count < 0) return request_error(VOS_ERROR);
    if (static_cast<std::size_t>(count) < sizeof head) return error{VOS_ERROR};
    if (cut && !any_size) return error{VOS_ERR_TOO_LONG};
    return exchanged{static_cast<int32_t>(head.ulRetCode), static_cast<std::size_t>(count) - sizeof head};
}

}  // namespace detail

/**
 * Sends a message that is not to be answered. `wait` bounds the wait while the receiver's queue is full.
 *
 * @return VOS_ERR_TIMEOUT; VOS_ERR_TOO_LONG for more than max_payload bytes; VOS_ERROR with errno, see vosMsgSend()
 * @threads any
 */
inline result<void> post(target to, content message, timeout wait) {
    /* A send that awaits no answer does not write to the payload. */
    const int32_t code =
        to.send(const_cast<void *>(message.data()), message.length(), VOS_MSG_NO_ANSWER, nullptr, wait);
    if (code != VOS_OK) return detail::request_error(code);
    return {};
}

/**
 * Sends a record and receives the answer into it: vosMsgSend() itself. Both sides send records of this size.
 *
 * As the C call, this does not tell the length of the answer: a longer one is cut, a shorter one leaves the end of the
 * record as it was. Where the answer is of another type or length than the question, use call().
 *
 * @return the answer's code; otherwise as post()
 * @threads any
 */
template <class T>
[[gnu::always_inline]] inline result<int32_t> exchange(target to, T &record, timeout wait) {
    static_assert(detail::is_record<T>, "only a trivially copyable record without pointers can be sent");
    static_assert(!std::is_const_v<T>, "the answer replaces the record");
    static_assert(sizeof(T) <= max_payload, "the record does not fit into a message");
    uint32_t answered = 0;
    const int32_t code = to.send(&record, static_cast<uint32_t>(sizeof record), VOS_MSG_WAIT_ANSWER, &answered, wait);
    if (code != VOS_OK) return detail::request_error(code);
    return static_cast<int32_t>(answered);
}

/**
 * Sends a question and receives the answer into `room`, with its true length.
 *
 * @return the code, and the bytes of the answer in `room`; VOS_ERR_TOO_LONG when the answer does not fit, or the
 * question is larger than max_payload; VOS_ERR_TIMEOUT; VOS_ERROR with errno: ENOENT when there is no such name,
 *         ECONNREFUSED when its process has ended, EINTR after a signal
 * @threads any
 */
inline result<answer<bytes>> call(target to, content question, buffer room, timeout wait) {
    const auto exchanged = detail::exchange_with(to, question, room, wait, false);
    if (!exchanged) return exchanged.why();
    return answer<bytes>{exchanged->code, bytes{room.data(), exchanged->size}};
}

/**
 * Sends a question and receives a record, whose type may be another than the question's.
 *
 * @return as above; VOS_ERR_PARAM when the answer is shorter than the record
 * @threads any
 */
template <class A, class = std::enable_if_t<!std::is_void_v<A>>>
result<answer<A>> call(target to, content question, timeout wait) {
    static_assert(detail::is_record<A>, "only a trivially copyable record without pointers can be received");
    answer<A> received{};
    const auto exchanged = detail::exchange_with(to, question, {&received.value, sizeof(A)}, wait, false);
    if (!exchanged) return exchanged.why();
    if (exchanged->size != sizeof(A)) return error{VOS_ERR_PARAM};
    received.code = exchanged->code;
    return received;
}

/** Sends a question and receives the answer's code alone; a payload is dropped. @threads any */
inline result<int32_t> call(target to, content question, timeout wait) {
    const auto exchanged = detail::exchange_with(to, question, {}, wait, true);
    if (!exchanged) return exchanged.why();
    return exchanged->code;
}

}  // namespace api1
}  // namespace vos

#endif
