/* SPDX-License-Identifier: MIT */
/**
 * @file vosRegistration.hpp
 * C++: the owner of a timer, a watched descriptor or a handler. When it goes, what it owns is unregistered.
 */
#ifndef VOS_REGISTRATION_HPP
#define VOS_REGISTRATION_HPP

#include <atomic>
#include <new>
#include <type_traits>
#include <utility>

#include "vosResult.hpp"

namespace vos {
inline namespace api1 {

namespace detail {

/* A callable with its state, allocated once at its registration. Its owner and each call that runs hold it, so a
 * callable that removes itself stays valid until it returns. The count is atomic: two receive loops may call at the
 * same time. */
class node {
  public:
    node(const node &) = delete;
    node &operator=(const node &) = delete;

    void retain() noexcept { uses_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (uses_.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy_(this);
    }

    bool registered = false;
    void (*unregister)(node *) noexcept = nullptr; /* called once, if `registered` is still set then */

  protected:
    explicit node(void (*destroy)(node *) noexcept) noexcept : destroy_(destroy) {}
    ~node() = default;

  private:
    std::atomic<int32_t> uses_{1};
    void (*destroy_)(node *) noexcept;
};

/* Keeps a node for the time of a call. */
class held {
  public:
    explicit held(node &of) noexcept : node_(of) { node_.retain(); }
    held(const held &) = delete;
    held &operator=(const held &) = delete;
    ~held() { node_.release(); }

  private:
    node &node_;
};

template <class F>
decltype(auto) call_with(F &f) {
    return f();
}
/* A callable may take all arguments, only the first, or none. */
template <class F, class First, class... Rest>
decltype(auto) call_with(F &f, First &first, Rest &...rest) {
    if constexpr (std::is_invocable_v<F &, First &, Rest &...>)
        return f(first, rest...);
    else if constexpr (std::is_invocable_v<F &, First &>)
        return f(first);
    else {
        static_assert(std::is_invocable_v<F &>, "the callable does not take the arguments that this handler gets");
        return f();
    }
}

template <class R, class... Args>
class callback : public node {
  public:
    /* An exception that leaves the callable ends the process: the caller is the C library. */
    R operator()(Args... args) noexcept { return invoke_(this, args...); }

  protected:
    using invoker = R (*)(callback *, Args &...);
    callback(void (*destroy)(node *) noexcept, invoker invoke) noexcept : node(destroy), invoke_(invoke) {}
    ~callback() = default;

  private:
    invoker invoke_;
};

/* Base is a callback with what the kind of registration needs beside the callable. */
template <class Base, class F, class R, class... Args>
class stored final : public Base {
  public:
    explicit stored(F &&f) : Base(destroy, invoke), f_(std::move(f)) {}
    ~stored() = default;

  private:
    static R invoke(callback<R, Args...> *self, Args &...args) {
        F &f = static_cast<stored *>(self)->f_;
        if constexpr (std::is_void_v<R>)
            static_cast<void>(call_with(f, args...));
        else if constexpr (std::is_void_v<decltype(call_with(f, args...))>)
            return call_with(f, args...), R{}; /* a handler that tells no code has succeeded */
        else
            return call_with(f, args...);
    }
    static void destroy(node *self) noexcept { delete static_cast<stored *>(static_cast<Base *>(self)); }
    F f_;
};

}  // namespace detail

/**
 * Owns a timer, a watched descriptor or a handler, and removes it at the end of its scope. It can be moved, and it may
 * be destroyed or cancelled by the callable that it owns. It belongs to the thread of the receive loop.
 */
class registration {
  public:
    registration() noexcept = default;
    registration(registration &&other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
    registration &operator=(registration &&other) noexcept {
        if (this != &other) {
            cancel();
            node_ = std::exchange(other.node_, nullptr);
        }
        return *this;
    }
    ~registration() { cancel(); }

    /** False when there is nothing to cancel: a timer that fires once has fired, or nothing was ever registered. */
    [[nodiscard]] bool active() const noexcept { return node_ != nullptr && node_->registered; }
    void cancel() noexcept {
        detail::node *const old = std::exchange(node_, nullptr);
        if (old == nullptr) return;
        if (std::exchange(old->registered, false)) old->unregister(old);
        old->release();
    }

    explicit registration(detail::node *of) noexcept : node_(of) {}

  private:
    detail::node *node_ = nullptr;
};

/** A loop timer; see basic_channel::every() and after(). */
using timer = registration;
/** A watched descriptor; see basic_channel::watch(). */
using descriptor = registration;
/** A handler; see vosHandlers.hpp. */
using handler = registration;

}  // namespace api1
}  // namespace vos

#endif
