/* SPDX-License-Identifier: MIT */
/**
 * @file vosHandlers.hpp
 * C++: the running configuration, configuration objects, and the kernel's events: handlers here, requests to others.
 *
 * A process has one handler of each kind. A later one replaces an earlier one, whose owner then has no effect. Handlers
 * run inside the receive calls, in the thread that receives: with several loops they may run at the same time. They
 * must not throw, and must not receive. They are registered by the thread of the receive loop, or before it starts.
 */
#ifndef VOS_HANDLERS_HPP
#define VOS_HANDLERS_HPP

#include <array>

#include "vosChannel.hpp"

namespace vos {
inline namespace api1 {

/** A trapped packet. It is valid until the handler returns. */
struct packet {
    bytes data;
    const VOS_PKT_INFO &info;
    const VOS_PKT_EXT &ext;
};

/** The running configuration under construction. Text that does not fit makes the answer VOS_ERROR. */
class config_writer {
  public:
    config_writer(char *room, int32_t size) noexcept : at_(room), left_(size) {}

    config_writer &operator<<(std::string_view more) noexcept {
        if (more.size() > static_cast<std::size_t>(left_)) return full_ = true, *this;
        std::memcpy(at_, more.data() != nullptr ? more.data() : "", more.size());
        return advance(static_cast<int32_t>(more.size()));
    }
    /** Text as by printf(); the compiler compares the format with the arguments. */
    __attribute__((format(printf, 2, 3))) config_writer &print(const char *format, ...) noexcept {
        std::va_list arguments;
        va_start(arguments, format);
        const int length = std::vsnprintf(at_, static_cast<std::size_t>(left_), format, arguments);
        va_end(arguments);
        if (length < 0 || length >= left_) return full_ = true, *this;
        return advance(length);
    }
    [[nodiscard]] bool full() const noexcept { return full_; }
    [[nodiscard]] int32_t left() const noexcept { return left_; }

  private:
    config_writer &advance(int32_t by) noexcept {
        at_ += by;
        left_ -= by;
        return *this;
    }
    char *at_;
    int32_t left_;
    bool full_ = false;
};

/** A request to read or write a configuration object; see VOS_CCD_PROC. */
class object_access {
  public:
    object_access(uint32_t operation, const char *name, uint32_t *indexes, int32_t *count, void *value,
                  uint32_t *length, uint16_t *argument) noexcept
        : operation_(operation),
          name_(name),
          indexes_(indexes),
          count_(count),
          value_(value),
          room_(*length),
          length_(length),
          argument_(argument) {
        *length_ = 0;
    }

    [[nodiscard]] uint32_t operation() const noexcept { return operation_; }
    [[nodiscard]] std::string_view name() const noexcept { return name_; }
    [[nodiscard]] uint16_t &argument() const noexcept { return *argument_; }

    static constexpr int32_t max_indexes = 16142;
    [[nodiscard]] int32_t index_count() const noexcept { return *count_; }
    /** An index word; 0 where there is none. */
    [[nodiscard]] uint32_t index(int32_t at) const noexcept { return at >= 0 && at < *count_ ? indexes_[at] : 0; }
    /** Replaces the index words. @return false for more than max_indexes, and then nothing is changed */
    bool set_indexes(const uint32_t *words, int32_t count) noexcept {
        if (count < 0 || count > max_indexes) return false;
        std::memmove(indexes_, words, static_cast<std::size_t>(count) * sizeof *words);
        *count_ = count;
        return true;
    }

    /** The value that came, or the requester's room for one. */
    [[nodiscard]] bytes value() const noexcept { return {value_, room_}; }
    /** The value to send back; without this call none is sent. @return VOS_OK; VOS_ERR_PARAM, which the handler may
     *  return, when the requester has less room */
    [[nodiscard]] int32_t answer(content with) noexcept {
        if (with.size() > room_) return VOS_ERR_PARAM;
        std::memmove(value_, with.data(), with.size());
        *length_ = with.length();
        return VOS_OK;
    }

  private:
    uint32_t operation_;
    const char *name_;
    uint32_t *indexes_;
    int32_t *count_;
    void *value_;
    uint32_t room_;
    uint32_t *length_;
    uint16_t *argument_;
};

/** The description of a configuration object; the meaning of its words is the applications'. */
struct object_description {
    std::array<uint32_t, 6> first{};  /**< Outputs 1 to 6. */
    std::array<uint32_t, 32> table{}; /**< The table words. */
    uint32_t count = 0;               /**< Output 7: the number of table words in use. */
    std::array<uint32_t, 3> last{};   /**< Outputs 8 to 10. */
};

namespace detail {

/* The handler of a kind. The C callback has no argument of the application's own, so it finds the handler here. */
template <class Kind>
struct slot {
    using callable = typename Kind::callable;
    static inline std::atomic<callable *> current{nullptr};

    template <class... Args>
    static auto run(Args &&...args) noexcept {
        callable *const now = current.load(std::memory_order_acquire);
        using R = decltype((*now)(std::forward<Args>(args)...));
        if constexpr (std::is_void_v<R>) {
            if (now == nullptr) return;
            const held during{*now};
            (*now)(std::forward<Args>(args)...);
        } else {
            if (now == nullptr) return R{VOS_ERR_NO_HANDLER};
            const held during{*now};
            return (*now)(std::forward<Args>(args)...);
        }
    }
    static void remove(node *of) noexcept {
        auto *mine = static_cast<callable *>(of);
        if (current.compare_exchange_strong(mine, nullptr)) Kind::enable(false);
    }
    static result<handler> set(callable *made) noexcept {
        if (made == nullptr) return error{VOS_ERR_MEMORY};
        made->unregister = remove;
        made->registered = true;
        current.store(made, std::memory_order_release);
        Kind::enable(true);
        return result<handler>{registration{made}};
    }
};

template <class Kind, class F>
struct maker;
template <class Kind, class F, class R, class... Args>
result<handler> make_handler(F &&f, callback<R, Args...> * /*type*/) {
    using plain = std::decay_t<F>;
    return slot<Kind>::set(new (std::nothrow)
                               stored<callback<R, Args...>, plain, R, Args...>(plain(std::forward<F>(f))));
}
template <class Kind, class F>
result<handler> make_handler(F &&f) {
    return make_handler<Kind>(std::forward<F>(f), static_cast<typename Kind::callable *>(nullptr));
}

struct packet_kind {
    using callable = callback<void, const packet &>;
    static void enable(bool on) noexcept { vosMsgRegisterPkt(on ? run : nullptr); }
    static int32_t run(uint8_t *data, int32_t length, VOS_PKT_INFO info, VOS_PKT_EXT ext) noexcept {
        slot<packet_kind>::run(packet{{data, length > 0 ? static_cast<std::size_t>(length) : 0}, info, ext});
        return VOS_OK;
    }
};
template <uint32_t Ports>
struct port_kind {
    using callable = callback<void, uint32_t, uint32_t>;
    static void enable(bool on) noexcept { vosMsgRegisterPortLink(Ports, on ? run : nullptr); }
    static int32_t run(uint32_t value2, uint32_t value3) noexcept {
        slot<port_kind>::run(value2, value3);
        return VOS_OK;
    }
};
struct vlan_kind {
    using callable = callback<void, uint32_t, uint32_t, uint32_t>;
    static void enable(bool on) noexcept { vosMsgRegisterVlanintfLink(on ? run : nullptr); }
    static int32_t run(uint32_t value2, uint32_t value3, uint32_t value4) noexcept {
        slot<vlan_kind>::run(value2, value3, value4);
        return VOS_OK;
    }
};
struct mac_kind {
    using callable = callback<void, uint32_t, uint32_t, uint32_t, const void *>;
    static void enable(bool on) noexcept { vosMsgRegisterMac(on ? run : nullptr); }
    static int32_t run(uint32_t value1, uint32_t value2, uint32_t value3, void *payload) noexcept {
        slot<mac_kind>::run(value1, value2, value3, payload);
        return VOS_OK;
    }
};
struct config_kind {
    using callable = callback<int32_t, config_writer &, uint32_t, uint32_t>;
    static void enable(bool on) noexcept { vosMsgRegisterBldrun(on ? run : nullptr); }
    static int32_t run(char *room, int32_t *left, uint32_t value1, uint32_t value2) noexcept {
        config_writer writer{room, *left};
        const int32_t code = slot<config_kind>::run(writer, value1, value2);
        if (code != VOS_OK) return code;
        *left = writer.left();
        return writer.full() ? VOS_ERROR : VOS_OK;
    }
};
struct object_kind {
    using callable = callback<int32_t, object_access &>;
    static void enable(bool on) noexcept { vosMsgRegisterCcd(on ? run : nullptr); }
    static int32_t run(uint32_t operation, char *name, uint32_t *indexes, int32_t *count, void *value, uint32_t *length,
                       uint16_t *argument) noexcept {
        object_access access{operation, name, indexes, count, value, length, argument};
        return slot<object_kind>::run(access);
    }
};
struct description_kind {
    using callable = callback<int32_t, std::string_view, uint32_t, object_description &>;
    static void enable(bool on) noexcept { vosMsgRegisterCcdObjInfoGet(on ? run : nullptr); }
    static int32_t run(char *name, uint32_t argument, uint32_t *out1, uint32_t *out2, uint32_t *out3, uint32_t *out4,
                       uint32_t *out5, uint32_t *out6, uint32_t *table, uint32_t *count, uint32_t *out8, uint32_t *out9,
                       uint32_t *out10) noexcept {
        object_description about;
        const int32_t code = slot<description_kind>::run(std::string_view{name}, argument, about);
        uint32_t *const first[] = {out1, out2, out3, out4, out5, out6};
        for (std::size_t i = 0; i < about.first.size(); ++i) *first[i] = about.first[i];
        std::memcpy(table, about.table.data(), sizeof about.table);
        *count = std::min<uint32_t>(about.count, 32);
        *out8 = about.last[0];
        *out9 = about.last[1];
        *out10 = about.last[2];
        return code;
    }
};

}  // namespace detail

/** Trapped packets: f(const packet &). */
template <class F>
result<handler> on_packet(F f) {
    return detail::make_handler<detail::packet_kind>(std::move(f));
}
/** Link changes of one kind of ports, 0 or 1: f(uint32_t value2, uint32_t value3), the two words of the event. */
template <class F>
result<handler> on_port_link(uint32_t kind, F f) {
    if (kind == 0) return detail::make_handler<detail::port_kind<0>>(std::move(f));
    if (kind == 1) return detail::make_handler<detail::port_kind<1>>(std::move(f));
    return error{VOS_ERR_PARAM};
}
/** Link changes of VLAN interfaces: f(uint32_t value2, uint32_t value3, uint32_t value4). */
template <class F>
result<handler> on_vlan_link(F f) {
    return detail::make_handler<detail::vlan_kind>(std::move(f));
}
/** MAC addresses: f(uint32_t value1, uint32_t value2, uint32_t value3, const void *payload); see VOS_MAC_TRAP_PROC for
 *  the payload, whose length is not known. */
template <class F>
result<handler> on_mac(F f) {
    return detail::make_handler<detail::mac_kind>(std::move(f));
}
/** Builds the running configuration: f(config_writer &out, uint32_t value1, uint32_t value2), which returns nothing or
 * a code for the requester. */
template <class F>
result<handler> on_running_config(F f) {
    return detail::make_handler<detail::config_kind>(std::move(f));
}
/** Reads and writes configuration objects: int32_t f(object_access &). */
template <class F>
result<handler> on_object(F f) {
    return detail::make_handler<detail::object_kind>(std::move(f));
}
/** Describes configuration objects: int32_t f(std::string_view name, uint32_t argument, object_description &out). */
template <class F>
result<handler> on_object_description(F f) {
    return detail::make_handler<detail::description_kind>(std::move(f));
}

/**
 * The running configuration of another process, in `room`, which has more than 32 bytes and at most 4 MiB.
 *
 * @return the text; otherwise as vosMsgBldrunSend(), which also tells how long it waits
 * @threads any
 */
inline result<std::string_view> running_config(c_text process, buffer room, uint32_t value1 = 0, uint32_t value2 = 0) {
    if (room.size() > UINT32_MAX) return error{VOS_ERR_PARAM};
    auto *const to = reinterpret_cast<char *>(room.data());
    const auto capacity = static_cast<uint32_t>(room.size());
    uint32_t left = capacity;
    const int32_t code = vosMsgBldrunSend(process.get(), to, &left, value1, value2);
    if (code != VOS_OK) return detail::request_error(code);
    return std::string_view{to, capacity - left};
}

/** The description of a configuration object of another process, with the code of its describer; see
 *  vosMsgCcdObjInfoGetSend(). Outputs 8 to 10 are right only with all 32 table words in use. @threads the receive
 * loop's */
inline result<answer<object_description>> describe(c_text process, c_text object, uint32_t argument) {
    uint32_t code = 0;
    object_description about;
    auto &one = about.first;
    const int32_t sent = vosMsgCcdObjInfoGetSend(&code, process.get(), object.get(), argument, &one[0], &one[1],
                                                 &one[2], &one[3], &one[4], &one[5], about.table.data(), &about.count,
                                                 &about.last[0], &about.last[1], &about.last[2]);
    if (sent != VOS_OK) return detail::request_error(sent);
    return answer<object_description>{static_cast<int32_t>(code), about};
}

}  // namespace api1
}  // namespace vos

#endif
