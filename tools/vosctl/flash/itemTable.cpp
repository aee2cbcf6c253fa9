/* SPDX-License-Identifier: MIT */
#include "itemTable.h"

#include <arpa/inet.h>
#include <vosSysConfig.h>

#include <algorithm>
#include <cstring>

#include "../base/failure.h"
#include "../base/words.h"
#include "../terminal/payload.h"

namespace vosctl {

namespace {

constexpr Item kItems[] = {
    {BSP_SYS_MAC, "sys-mac", "BSP_SYS_MAC", true, Form::mac, 6},
    {BSP_DEFAULT_MAC, "default-mac", "BSP_DEFAULT_MAC", true, Form::mac, 6},
    {BSP_OEM_NUMBER, "oem-number", "BSP_OEM_NUMBER", true, Form::number, 4},
    {BSP_SERIAL_NUMBER, "serial-number", "BSP_SERIAL_NUMBER", true, Form::text, 32},
    {BSP_FLASH_DATA_VERSION, "flash-data-version", "BSP_FLASH_DATA_VERSION", false, Form::number, 4},
    {BSP_IP_ADDRESS, "ip-address", "BSP_IP_ADDRESS", false, Form::ipv4, 4},
    {BSP_IP_MASK, "ip-mask", "BSP_IP_MASK", false, Form::mask, 4},
    {BSP_IP_GATE, "ip-gate", "BSP_IP_GATE", false, Form::ipv4, 4},
    {BSP_BANDRATE, "baud-rate", "BSP_BANDRATE", false, Form::number, 4},
    {BSP_ADMIN_PASSWORD, "admin-password", "BSP_ADMIN_PASSWORD", false, Form::text, 36, true},
    {BSP_PRIVMODE_PWD, "privmode-password", "BSP_PRIVMODE_PWD", false, Form::text, 36, true},
    {BSP_PRIVMODE_ENCRYPT, "privmode-encrypt", "BSP_PRIVMODE_ENCRYPT", false, Form::byte, 1},
    {BSP_BOOTTIME, "boot-time", "BSP_BOOTTIME", false, Form::number, 4},
    {BSP_USER, "user", "BSP_USER", false, Form::bytes, 476, true},
    {BSP_SOFTFLAG, "softflag", "BSP_SOFTFLAG", false, Form::number, 4},
    {BSP_OEM_INFO, "oem-info", "BSP_OEM_INFO", true, Form::bytes, 1024},
    {BSP_MACLEARNING_MODE, "maclearning-mode", "BSP_MACLEARNING_MODE", false, Form::number, 4},
    {BSP_MACHASH_MODE, "machash-mode", "BSP_MACHASH_MODE", false, Form::number, 4},
    {BSP_STACK, "stack", "BSP_STACK", false, Form::bytes, 20},
    {BSP_ZTP, "ztp", "BSP_ZTP", false, Form::number, 4},
};

uint32_t nativeWord(std::string_view bytes) {
    uint32_t word = 0;
    memcpy(&word, bytes.data(), sizeof word);
    return word;
}

std::string macText(std::string_view bytes) {
    std::string text;
    for (std::size_t index = 0; index < bytes.size(); ++index)
        text += (index == 0 ? "" : ":") + hexOf(bytes.substr(index, 1));
    return text;
}

std::string ipv4Text(std::string_view bytes) {
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, bytes.data(), text, sizeof text);
}

/* Six pairs with five colons or dashes between them. */
bool isMac(const std::string &text, std::string &bytes) {
    if (text.size() != 17) return false;
    std::string digits;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const bool separator = index % 3 == 2;
        if (separator && text[index] != ':' && text[index] != '-') return false;
        if (!separator) digits += text[index];
    }
    const auto parsed = bytesOfHex(digits);
    if (!parsed || parsed->size() != 6) return false;
    bytes = *parsed;
    return (bytes[0] & 1) == 0 && bytes != std::string(6, '\0');
}

bool isIpv4(const std::string &text, bool mask, std::string &bytes) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) return false;
    const uint32_t zeros = ~ntohl(address.s_addr);
    if (mask && (zeros & (zeros + 1)) != 0) return false;
    bytes.assign(reinterpret_cast<const char *>(&address), sizeof address);
    return true;
}

bool isNumber(const std::string &text, std::size_t size, std::string &bytes) {
    const auto word = wordOf(text);
    if (!word || (size == 1 && *word > 0xFF)) return false;
    if (size == 1)
        bytes.assign(1, static_cast<char>(*word));
    else
        bytes.assign(reinterpret_cast<const char *>(&*word), sizeof *word);
    return true;
}

bool isText(const std::string &text, std::size_t size, std::string &bytes) {
    if (text.size() > size || std::any_of(text.begin(), text.end(), [](char c) { return c < 0x20 || c > 0x7E; }))
        return false;
    bytes = text;
    bytes.resize(size, '\0');
    return true;
}

bool isHex(const std::string &text, std::size_t size, std::string &bytes) {
    const auto parsed = bytesOfHex(text);
    if (!parsed || parsed->size() != size) return false;
    bytes = *parsed;
    return true;
}

bool fits(const Item &item, const std::string &text, std::string &bytes) {
    switch (item.form) {
        case Form::mac:
            return isMac(text, bytes);
        case Form::ipv4:
        case Form::mask:
            return isIpv4(text, item.form == Form::mask, bytes);
        case Form::number:
        case Form::byte:
            return isNumber(text, item.size, bytes);
        case Form::text:
            return isText(text, item.size, bytes);
        case Form::bytes:
            break;
    }
    return isHex(text, item.size, bytes);
}

}  // namespace

std::span<const Item> items() { return kItems; }

const Item &itemOf(const std::string &text) {
    for (const Item &item : kItems)
        if (text == item.name || text == item.constant || text == std::to_string(item.number)) return item;
    throw Failure("there is no item \"" + text + "\"", "see \"vosctl item list\"");
}

const char *nameOf(Form form) {
    constexpr const char *kNames[] = {"mac", "ipv4", "mask", "number", "byte", "text", "hex"};
    return kNames[static_cast<std::size_t>(form)];
}

std::string limitOf(const Item &item) {
    switch (item.form) {
        case Form::mac:
            return "a MAC address of one device, such as 02:00:00:00:00:01";
        case Form::ipv4:
            return "an IPv4 address, such as 192.0.2.1";
        case Form::mask:
            return "an IPv4 mask with its ones in front, such as 255.255.255.0";
        case Form::number:
            return "a number from 0 to 4294967295";
        case Form::byte:
            return "a number from 0 to 255";
        case Form::text:
            return "at most " + std::to_string(item.size) + " printing ASCII characters";
        case Form::bytes:
            break;
    }
    return "exactly " + std::to_string(item.size) + " bytes in hexadecimal";
}

bool erased(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == '\xFF'; });
}

Cell shownValue(const Item &item, std::string_view bytes) {
    switch (item.form) {
        case Form::mac:
            return macText(bytes);
        case Form::ipv4:
        case Form::mask:
            return ipv4Text(bytes);
        case Form::number:
            return nativeWord(bytes);
        case Form::byte:
            return static_cast<unsigned>(static_cast<unsigned char>(bytes[0]));
        case Form::text: {
            const std::string_view text = bytes.substr(0, bytes.find('\0'));
            return printable(text) == text ? std::string(text) : hexOf(bytes);
        }
        case Form::bytes:
            break;
    }
    return hexOf(bytes);
}

std::string parseValue(const Item &item, const std::string &text) {
    std::string bytes;
    if (!fits(item, text, bytes))
        throw Failure("the value does not fit " + std::string(item.name), "give " + limitOf(item));
    return bytes;
}

}  // namespace vosctl
