/* SPDX-License-Identifier: MIT */
/**
 * @file vosRequest.hpp
 * C++: a request that was received, which is to be answered exactly once.
 */
#ifndef VOS_REQUEST_HPP
#define VOS_REQUEST_HPP

#include <exception>

#include "vosMsg.hpp"

namespace vos {
inline namespace api1 {

/**
 * A message of another process. Answer it with answer(), or say with ignore() that it gets none. It can be moved and
 * answered later, by any thread; its payload is valid only until the channel receives again, or is gone.
 *
 * In a debug build the process ends with a line when a request is answered twice, when one that wants an answer is
 * destroyed without, and when a payload is used after it has become invalid. Otherwise a second answer is VOS_ERR_PARAM
 * and is not sent, and a forgotten one lets the requester wait until its time-out.
 */
class request {
  public:
    request(request &&other) noexcept { take(other); }
    request &operator=(request &&other) noexcept {
        if (this != &other) {
            expect_done();
            take(other);
        }
        return *this;
    }
    ~request() { expect_done(); }

    /** The payload with its true length, on every kind of socket. */
    [[nodiscard]] bytes payload() const noexcept {
        detail::check(serial_ == nullptr || *serial_ == received_as_, "the payload of an earlier request is used");
        return payload_;
    }
    /** The payload up to its first NUL. */
    [[nodiscard]] std::string_view text() const noexcept { return payload().text(); }
    /** The payload as a record; VOS_ERR_PARAM when it has another length. */
    template <class T>
    [[nodiscard]] result<T> as() const noexcept {
        if (cut_) return error{VOS_ERR_PARAM};
        return payload().as<T>();
    }

    /** Whether the payload was larger than a thread channel's buffer; what did not fit is lost. */
    [[nodiscard]] bool cut() const noexcept { return cut_; }
    /** Whether it came over the high-priority socket of the main or of the second channel. */
    [[nodiscard]] bool high() const noexcept { return high_; }
    [[nodiscard]] bool wants_answer() const noexcept { return peer_.ulNoReturn != VOS_MSG_NO_ANSWER; }
    [[nodiscard]] const VOS_MSG_PEER &peer() const noexcept { return peer_; }

    /**
     * Answers. Nothing is sent to a requester that wants no answer.
     *
     * @return VOS_ERR_TOO_LONG; VOS_ERR_TIMEOUT when the requester's queue stayed full; VOS_ERROR with errno, for
     * example ENOENT when the requester no longer waits; VOS_ERR_PARAM for a second answer
     * @threads any
     */
    result<void> answer(int32_t code, content payload = {}) {
        detail::check(open_, "a request is answered twice");
        if (!open_) return error{VOS_ERR_PARAM};
        open_ = false;
        const int32_t sent = vosMsgResp(0, static_cast<uint32_t>(code), payload.data(), payload.length(), &peer_);
        if (sent != VOS_OK) return detail::request_error(sent);
        return {};
    }
    /** This request gets no answer. */
    void ignore() noexcept { open_ = false; }

  private:
    template <class Calls>
    friend class basic_channel;
    template <std::size_t Size>
    friend class thread_channel;
    friend class result<request>;
    friend class std::optional<request>;

    request() noexcept = default;

    void received(bytes payload, bool high, bool cut, const uint32_t *serial) noexcept {
        payload_ = payload;
        high_ = high;
        cut_ = cut;
        serial_ = serial;
        received_as_ = *serial;
        open_ = true;
    }
    void take(request &other) noexcept {
        peer_ = other.peer_;
        payload_ = other.payload_;
        serial_ = other.serial_;
        received_as_ = other.received_as_;
        open_ = std::exchange(other.open_, false);
        high_ = other.high_;
        cut_ = other.cut_;
    }
    void expect_done() const noexcept {
        if constexpr (detail::checked)
            if (open_ && wants_answer() && std::uncaught_exceptions() == 0)
                detail::fail("a request was not answered; answer() it, or ignore() it");
    }

    VOS_MSG_PEER peer_;
    bytes payload_;
    const uint32_t *serial_ = nullptr;
    uint32_t received_as_ = 0;
    bool open_ = false;
    bool high_ = false;
    bool cut_ = false;
};

}  // namespace api1
}  // namespace vos

#endif
