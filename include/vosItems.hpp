/* SPDX-License-Identifier: MIT */
/**
 * @file vosItems.hpp
 * C++: the items of the device data, each with the type of its value.
 */
#ifndef VOS_ITEMS_HPP
#define VOS_ITEMS_HPP

#include <array>

#include "vosBytes.hpp"
#include "vosSysConfig.h"

namespace vos {
inline namespace api1 {

using mac_address = std::array<uint8_t, 6>;

/** A text of N bytes as it is in an item: when it has all N characters there is no NUL. */
template <std::size_t N>
class item_text {
  public:
    item_text() noexcept = default;
    /** Cuts what does not fit. */
    item_text(std::string_view from) noexcept { from.copy(chars_, N); }
    item_text(const char *from) noexcept : item_text(std::string_view{from}) {}
    item_text(const std::string &from) noexcept : item_text(std::string_view{from}) {}
    [[nodiscard]] std::string_view view() const noexcept { return {chars_, strnlen(chars_, N)}; }

  private:
    char chars_[N] = {};
};

/** The value of items::stack. */
struct stack_settings {
    std::array<uint8_t, 20> settings{};
    uint32_t valid = VOS_STACK_VALID_MAGIC; /**< Another word makes the settings read as zeros. */
};

/** An item: its number, the type of its value, and whether it can be read. */
template <int32_t Number, class T, bool Readable = true>
struct item {
    static_assert(std::is_trivially_copyable_v<T>);
    using value_type = T;
    static constexpr int32_t number = Number;
    static constexpr bool readable = Readable;
};

/** The items by name; see vosSysConfig.h for each. */
namespace items {

inline constexpr item<BSP_SYS_MAC, mac_address> systemMac{};
inline constexpr item<BSP_DEFAULT_MAC, mac_address> defaultMac{};
inline constexpr item<BSP_OEM_NUMBER, uint32_t> oemNumber{};
inline constexpr item<BSP_SERIAL_NUMBER, item_text<32>> serialNumber{};
inline constexpr item<BSP_FLASH_DATA_VERSION, uint32_t> flashDataVersion{};
inline constexpr item<BSP_IP_ADDRESS, uint32_t> ipAddress{};
inline constexpr item<BSP_IP_MASK, uint32_t> ipMask{};
inline constexpr item<BSP_IP_GATE, uint32_t> ipGateway{};
inline constexpr item<BSP_BANDRATE, uint32_t> baudRate{};
inline constexpr item<BSP_ADMIN_PASSWORD, item_text<36>> adminPassword{};
inline constexpr item<BSP_PRIVMODE_PWD, item_text<36>> privilegedPassword{};
inline constexpr item<BSP_PRIVMODE_ENCRYPT, uint8_t, false> privilegedPasswordFlag{};
inline constexpr item<BSP_BOOTTIME, uint32_t> bootTime{};
inline constexpr item<BSP_USER, std::array<uint8_t, 476>> users{};
inline constexpr item<BSP_SOFTFLAG, uint32_t> softFlags{};
inline constexpr item<BSP_OEM_INFO, std::array<uint8_t, 1024>> oemInfo{};
inline constexpr item<BSP_MACLEARNING_MODE, uint32_t> macLearningMode{};
inline constexpr item<BSP_MACHASH_MODE, uint32_t> macHashMode{};
inline constexpr item<BSP_STACK, stack_settings> stack{};
inline constexpr item<BSP_ZTP, uint32_t> zeroTouch{};

/** Reads an item from flash: items::get(items::systemMac). @return VOS_ERROR; the log tells why
 *  @threads one thread at a time, as for all calls here */
template <int32_t Number, class T, bool Readable>
result<T> get(item<Number, T, Readable> /*which*/) noexcept {
    static_assert(Readable, "this item cannot be read");
    T value{};
    const int32_t code = vosSysConfigDataGet(Number, &value, sizeof value);
    if (code != VOS_OK) return error{code};
    return value;
}
/** Changes an item on flash. The value is of the item's own type. @return VOS_ERROR; see vosSysConfigDataSet() for a
 *  failed rewriting, which is only logged */
template <int32_t Number, class T, bool Readable>
result<void> set(item<Number, T, Readable> /*which*/, const std::common_type_t<T> &value) noexcept {
    return error{vosSysConfigDataSet(Number, &value, sizeof value)};
}
/** Erases the user accounts. */
inline result<void> clear_users() noexcept { return detail::done(vosBspUserClearAll()); }

}  // namespace items

/** The serial number as a text, "123456789" where none is set; see vosProdSerialNoRead(). */
[[nodiscard]] inline text<33> serial_number() noexcept {
    text<33> found;
    vosProdSerialNoRead(found.raw(), 33);
    return found;
}
[[nodiscard]] inline text<8> boot_rom_version() noexcept {
    text<8> found;
    vosBootromVersionGet(found.raw(), 8);
    return found;
}
[[nodiscard]] inline int32_t hardware_version() noexcept { return vosHardwareVersionGet(); }

}  // namespace api1
}  // namespace vos

#endif
