/* SPDX-License-Identifier: MIT */
#include "itemTable.h"

#include <arpa/inet.h>
#include <vosSysConfig.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "../base/failure.h"
#include "../base/words.h"
#include "../terminal/payload.h"

namespace vosctl {

namespace {

constexpr Item kItems[] = {
    {BSP_SYS_MAC, "sys-mac", "BSP_SYS_MAC", true, Form::mac, 6, 0},
    {BSP_DEFAULT_MAC, "default-mac", "BSP_DEFAULT_MAC", true, Form::mac, 6, 6},
    {BSP_OEM_NUMBER, "oem-number", "BSP_OEM_NUMBER", true, Form::number, 4, 12},
    {BSP_SERIAL_NUMBER, "serial-number", "BSP_SERIAL_NUMBER", true, Form::text, 32, 16},
    {BSP_FLASH_DATA_VERSION, "flash-data-version", "BSP_FLASH_DATA_VERSION", false, Form::number, 4, 0},
    {BSP_IP_ADDRESS, "ip-address", "BSP_IP_ADDRESS", false, Form::ipv4, 4, 4},
    {BSP_IP_MASK, "ip-mask", "BSP_IP_MASK", false, Form::mask, 4, 8},
    {BSP_IP_GATE, "ip-gate", "BSP_IP_GATE", false, Form::ipv4, 4, 12},
    {BSP_BANDRATE, "baud-rate", "BSP_BANDRATE", false, Form::number, 4, 16},
    {BSP_ADMIN_PASSWORD, "admin-password", "BSP_ADMIN_PASSWORD", false, Form::text, 36, 20, true},
    {BSP_PRIVMODE_PWD, "privmode-password", "BSP_PRIVMODE_PWD", false, Form::text, 36, 668, true},
    {BSP_PRIVMODE_ENCRYPT, "privmode-encrypt", "BSP_PRIVMODE_ENCRYPT", false, Form::byte, 1, 704},
    {BSP_BOOTTIME, "boot-time", "BSP_BOOTTIME", false, Form::number, 4, 56},
    {BSP_USER, "user", "BSP_USER", false, Form::bytes, 476, 72, true},
    {BSP_SOFTFLAG, "softflag", "BSP_SOFTFLAG", false, Form::number, 4, 552},
    {BSP_OEM_INFO, "oem-info", "BSP_OEM_INFO", true, Form::bytes, 1024, 48},
    {BSP_MACLEARNING_MODE, "maclearning-mode", "BSP_MACLEARNING_MODE", false, Form::number, 4, 560},
    {BSP_MACHASH_MODE, "machash-mode", "BSP_MACHASH_MODE", false, Form::number, 4, 564},
    {BSP_STACK, "stack", "BSP_STACK", false, Form::bytes, 20, 568},
    {BSP_ZTP, "ztp", "BSP_ZTP", false, Form::number, 4, 664},
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

/* Six pairs of digits, with five colons or dashes between them. */
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
    throw Failure(itemMistake(text), "see \"vosctl item list\"");
}

std::string itemMistake(const std::string &text) {
    for (const Item &item : kItems)
        if (text == item.name || text == item.constant || text == std::to_string(item.number)) return "";
    std::set<std::string> names;
    for (const Item &item : kItems) names.emplace(item.name);
    const std::string meant = nearest(text, names);
    return "there is no item \"" + shortened(text) + "\"" + (meant.empty() ? "" : " (did you mean " + meant + "?)");
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
            if (printable(text) == text) return std::string(text);
            return Cell{nullptr, printable(text), Style::plain};
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

namespace {

constexpr std::string_view kErasedText = "(erased)";
constexpr std::string_view kHexText = "hex:";

/* Throws a Failure that names the limit. */
std::string bytesOfText(const Item &item, const std::string &text) {
    if (text == kErasedText) return std::string(item.size, '\xFF');
    if (!text.starts_with(kHexText)) return parseValue(item, text);
    const auto bytes = bytesOfHex(text.substr(kHexText.size()));
    if (bytes && bytes->size() == item.size) return *bytes;
    throw Failure("the value does not fit " + std::string(item.name),
                  "give exactly " + std::to_string(item.size) + " bytes in hexadecimal");
}

ItemValue parseLine(const std::string &line) {
    const std::size_t sign = line.find('=');
    if (sign == std::string::npos) throw Failure("there is no = in it", "write NAME=VALUE");
    const Item &item = itemOf(line.substr(0, sign));
    return {&item, bytesOfText(item, line.substr(sign + 1))};
}

}  // namespace

std::string exportLine(const Item &item, std::string_view bytes) {
    const std::string name = std::string(item.name) + "=";
    if (erased(bytes)) return name + std::string(kErasedText);
    const std::string text = shownValue(item, bytes).text;
    std::string back;
    const bool special = text == kErasedText || text.starts_with(kHexText);
    if (!special && fits(item, text, back) && back == bytes) return name + text;
    return name + std::string(kHexText) + hexOf(bytes);
}

std::vector<ItemValue> parseItemLines(std::string_view text, const std::string &file) {
    std::vector<ItemValue> values;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string line{text.substr(0, end)};
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line[0] == '#') continue;
        const std::string where = "line " + std::to_string(number) + " of " + file + ": ";
        try {
            values.push_back(parseLine(line));
        } catch (const Failure &failure) {
            throw Failure(where + failure.what() + ", and nothing was changed", failure.nextStep());
        }
        const Item *const item = values.back().item;
        if (std::any_of(values.begin(), values.end() - 1, [&](const ItemValue &one) { return one.item == item; }))
            throw Failure(where + item->name + " is there twice, and nothing was changed", "leave one of them out");
    }
    return values;
}

}  // namespace vosctl
