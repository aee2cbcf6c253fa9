/* SPDX-License-Identifier: MIT */
/**
 * @file vosSystem.hpp
 * C++: network namespaces as scopes, and shared memory.
 */
#ifndef VOS_SYSTEM_HPP
#define VOS_SYSTEM_HPP

#include <pthread.h>
#include <sys/shm.h>

#include <array>

#include "vosBytes.hpp"
#include "vosDebug.h"
#include "vosSys.h"

namespace vos {
inline namespace api1 {

/**
 * The calling thread is in the network namespace of a VRF until the end of this object's scope. Sockets that are made
 * meanwhile stay in that namespace. Scopes of one thread must end in the opposite order of their beginning.
 *
 * In a debug build the process ends with a line when a scope is ended by another thread.
 */
class vrf_scope {
  public:
    /** @param number 1 and up @return VOS_ERR_PARAM for 0; VOS_ERROR with errno; see vosSwitchToNetVrf() */
    [[nodiscard]] static result<vrf_scope> enter(uint32_t number) noexcept {
        int32_t back = -1;
        const int32_t code = vosSwitchToNetVrf(number, &back);
        if (code != VOS_OK) return error{code, code == VOS_ERROR ? errno : 0};
        return result<vrf_scope>{vrf_scope{back}};
    }
    vrf_scope(vrf_scope &&other) noexcept : back_(std::exchange(other.back_, -1)), thread_(other.thread_) {}
    vrf_scope &operator=(vrf_scope &&) = delete;
    /** When the thread cannot be moved back it stays in the namespace, and a line says so. To be told, call leave(). */
    ~vrf_scope() { static_cast<void>(leave()); }

    /** Ends the scope now. After a failure it may be tried again. @return VOS_ERROR with errno */
    result<void> leave() noexcept {
        if (back_ < 0) return {};
        detail::check(pthread_equal(thread_, pthread_self()) != 0, "a namespace is left by another thread");
        const int32_t code = vosNetVrfRestore(back_);
        if (code != VOS_OK) return detail::with_errno(code);
        back_ = -1;
        return {};
    }

  private:
    explicit vrf_scope(int32_t back) noexcept : back_(back), thread_(pthread_self()) {}
    int32_t back_;
    pthread_t thread_;
};

/** The kernel's index of an interface in the calling thread's namespace. */
inline result<uint32_t> interface_index(c_text name) noexcept {
    uint32_t index = 0;
    const int32_t code = vosIfNameToKernelIndex(name.get(), &index);
    if (code != VOS_OK) return detail::with_errno(code);
    return index;
}
inline result<text<16>> interface_name(uint32_t index) noexcept {
    text<16> name;
    if (vosIfKernelIndexToName(index, name.raw()) == nullptr) return error{VOS_ERROR, errno};
    return name;
}
inline result<std::array<uint8_t, 6>> interface_mac(c_text name) noexcept {
    std::array<uint8_t, 6> mac{};
    const int32_t code = vosIfKernelMacGet(name.get(), mac.data());
    if (code != VOS_OK) return detail::with_errno(code);
    return mac;
}

/**
 * A record in shared memory, attached while this object exists. With a const T it is attached for reading only. Access
 * is not synchronised. The segment itself is never removed; see vosMemoryShareGet() for its permissions.
 */
template <class T>
class shared_memory {
    static_assert(std::is_trivially_copyable_v<T>, "only a trivially copyable record can be shared");

  public:
    /** Attaches a segment that exists. @param project 1 to 255 @return VOS_ERR_PARAM for 0; VOS_ERROR with errno */
    [[nodiscard]] static result<shared_memory> attach(c_text path, uint8_t project) noexcept {
        return get(path, project, 0);
    }
    /** The same, and makes the segment, of zeros, if it does not exist. */
    [[nodiscard]] static result<shared_memory> create(c_text path, uint8_t project) noexcept {
        return get(path, project, VOS_SHARE_CREATE);
    }
    shared_memory(shared_memory &&other) noexcept : at_(std::exchange(other.at_, nullptr)) {}
    shared_memory &operator=(shared_memory &&other) noexcept {
        std::swap(at_, other.at_);
        return *this;
    }
    ~shared_memory() {
        if (at_ != nullptr) shmdt(const_cast<std::remove_const_t<T> *>(at_));
    }

    [[nodiscard]] T &operator*() const noexcept { return *at_; }
    [[nodiscard]] T *operator->() const noexcept { return at_; }

  private:
    explicit shared_memory(T *at) noexcept : at_(at) {}
    static result<shared_memory> get(c_text path, uint8_t project, int32_t options) noexcept {
        if (project == 0) return error{VOS_ERR_PARAM};
        const int32_t all = options | (std::is_const_v<T> ? int32_t{VOS_SHARE_READ_ONLY} : 0);
        void *const at = vosMemoryShareGet(path.get(), project, static_cast<uint32_t>(sizeof(T)), all);
        if (at == nullptr) return error{VOS_ERROR, errno};
        return result<shared_memory>{shared_memory{static_cast<T *>(at)}};
    }
    T *at_;
};

}  // namespace api1
}  // namespace vos

#endif
