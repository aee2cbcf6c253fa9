/* SPDX-License-Identifier: MIT */
#include "messageReport.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <set>

#include "../base/words.h"
#include "../terminal/payload.h"

namespace vosctl {

namespace {

struct TypeName {
    uint32_t type;
    const char *name;
};
constexpr TypeName kTypes[] = {
    {VOS_MSG_TYPE_BLDRUN, "configuration"},
    {VOS_MSG_TYPE_PACKET, "packet"},
    {VOS_MSG_TYPE_LINK, "link"},
    {VOS_MSG_TYPE_CCD, "object"},
    {VOS_MSG_TYPE_CCD_OBJ_INFO_GET, "object-info"},
    {VOS_MSG_VOS_DEBUG, "debug"},
    {VOS_MSG_SMD_DEBUG, "smd"},
    {VOS_MSG_STDOUT_REDIRECT, "output"},
    {VOS_MSG_TYPE_SELF, "app"},
    {VOS_MSG_TYPE_MAC, "mac"},
};

constexpr const char *kSockets[] = {"",       "normal",  "high",      "second", "second-high",
                                    "thread", "netlink", "requester", "other"};

std::string socketOf(const Message &message) {
    return message.socket < std::size(kSockets) ? kSockets[message.socket] : "";
}

/* "19:20:05.123456" in local time, or with the date and the zone, and all nine digits. */
std::string timeOf(uint64_t wallNs, bool whole) {
    const auto seconds = static_cast<time_t>(wallNs / 1'000'000'000);
    const auto rest = static_cast<unsigned>(wallNs % 1'000'000'000);
    tm parts{};
    char text[96] = "";
    char zone[16] = "";
    if (localtime_r(&seconds, &parts) == nullptr) return "-"; /* a year that does not fit */
    const std::size_t length = strftime(text, sizeof text, whole ? "%Y-%m-%dT%H:%M:%S" : "%H:%M:%S", &parts);
    strftime(zone, sizeof zone, "%z", &parts);
    snprintf(text + length, sizeof text - length, whole ? ".%09u%s" : ".%06u", whole ? rest : rest / 1000, zone);
    return text;
}

Json textOrNull(const std::string &text) { return text.empty() ? Json(nullptr) : Json(text); }

Json msOrNull(const std::optional<uint64_t> &ns) { return ns ? Json(static_cast<double>(*ns) / 1e6) : Json(nullptr); }

std::string errorName(int32_t error) {
    const char *const name = strerrorname_np(error);
    return name != nullptr ? name : std::to_string(error);
}

/* "request", "answer -3", "debug one-way". */
std::string kindText(const Message &message) {
    const std::string type = typeOf(message);
    std::string text = (type == "app" ? "" : type + " ") + stageOf(message);
    if (message.isAnswer() && message.head) text += " " + std::to_string(static_cast<int32_t>(message.head->ulRetCode));
    return text;
}

std::string payloadText(const Message &message) {
    if (message.payload.empty()) return "";
    if (const auto text = textOf(message.payload)) return "\"" + printable(*text) + "\"";
    return hexOf(message.payload);
}

/* Cut behind a character of UTF-8. */
std::string cut(const std::string &text, std::size_t columns) {
    if (width(text) <= columns) return text;
    std::string result;
    for (std::size_t at = 0, seen = 0; at < text.size(); ++at) {
        const bool begins = (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80;
        if (begins && ++seen > columns) break;
        result += text[at];
    }
    return result + "...";
}

std::string padded(const std::string &text, std::size_t size) {
    return text + std::string(size - std::min(size, width(text)), ' ');
}

std::string timesText(const Message &message) {
    std::string text;
    const auto add = [&](const char *name, const std::optional<uint64_t> &ns) {
        if (ns) text += (text.empty() ? "" : ", ") + (name + durationText(*ns));
    };
    add("queued ", message.queued);
    add("served ", message.served);
    add("in all ", message.total);
    return text;
}

Style styleOf(const Message &message) {
    if (message.error() != 0) return Style::bad;
    if (!message.isAnswer() || !message.head) return Style::plain;
    return message.head->ulRetCode == 0 ? Style::good : Style::warning;
}

}  // namespace

std::string stageOf(const Message &message) {
    switch (message.stage) {
        case VOS_MSG_TAP_REQUEST:
            return "request";
        case VOS_MSG_TAP_ANSWER:
            return "answer";
        case VOS_MSG_TAP_ONE_WAY:
            return "one-way";
        default:
            return "other";
    }
}

std::string typeOf(const Message &message) {
    if (!message.head) return "app";
    for (const TypeName &each : kTypes)
        if (each.type == message.head->ulType) return each.name;
    return hexWord(message.head->ulType);
}

std::vector<std::string> kindNames() {
    std::set<std::string> names{"request", "answer", "one-way", "other"};
    for (const TypeName &each : kTypes) names.insert(each.name);
    return {names.begin(), names.end()};
}

std::string durationText(uint64_t ns) {
    char text[48];
    if (ns < 1'000'000)
        snprintf(text, sizeof text, "%.1f us", static_cast<double>(ns) / 1e3);
    else if (ns < 1'000'000'000)
        snprintf(text, sizeof text, "%.3f ms", static_cast<double>(ns) / 1e6);
    else
        snprintf(text, sizeof text, "%.3f s", static_cast<double>(ns) / 1e9);
    return text;
}

Json messageJson(const Message &message) {
    const Side &first = message.first();
    Json document{{"time", timeOf(first.wallNs, true)},
                  {"monotonicNs", first.monotonicNs},
                  {"from", textOrNull(message.fromName)},
                  {"to", textOrNull(message.toName)},
                  {"fromPath", textOrNull(message.from)},
                  {"toPath", textOrNull(message.to)},
                  {"fromPid", message.sent ? Json(message.sent->pid) : Json(nullptr)},
                  {"toPid", message.received ? Json(message.received->pid) : Json(nullptr)},
                  {"fromThread", message.sent ? Json(message.sent->thread) : Json(nullptr)},
                  {"toThread", message.received ? Json(message.received->thread) : Json(nullptr)},
                  {"socket", textOrNull(socketOf(message))},
                  {"kind", stageOf(message)},
                  {"type", typeOf(message)},
                  {"code", nullptr}};
    if (message.isAnswer() && message.head) document["code"] = static_cast<int32_t>(message.head->ulRetCode);
    document["error"] = message.error() != 0 ? Json(errorName(message.error())) : Json(nullptr);
    document["queuedMs"] = msOrNull(message.queued);
    document["servedMs"] = msOrNull(message.served);
    document["totalMs"] = msOrNull(message.total);
    addPayload(document, message.payload);
    document["copiedBytes"] = message.payload.size();
    document["bytes"] = message.bytes;
    return document;
}

void printMessage(Output &out, const Message &message, std::size_t columns) {
    constexpr std::size_t kNameColumns = 8;
    constexpr std::size_t kSocketColumns = 6;
    constexpr std::size_t kKindColumns = 9;
    const auto name = [](const std::string &known) {
        return padded(known.empty() ? "?" : printable(known), kNameColumns);
    };
    char bytes[16];
    snprintf(bytes, sizeof bytes, "%6u", message.bytes);
    const std::string socket = socketOf(message);
    std::string line = timeOf(message.first().wallNs, false) + "  " + name(message.fromName) + " > " +
                       name(message.toName) + "  " + padded(socket.empty() ? "-" : socket, kSocketColumns) + "  " +
                       padded(kindText(message), kKindColumns) + "  " + bytes;
    if (message.error() != 0) line += "  " + errorName(message.error());
    const std::string times = timesText(message);
    if (!times.empty()) line += "  " + times;
    const std::string payload = payloadText(message);
    constexpr std::size_t kShortest = 16; /* of a payload that is shown at all */
    const std::size_t used = width(line) + 2;
    if (!payload.empty()) line += "  " + cut(payload, std::max(columns > used ? columns - used : 0, kShortest));
    out.line(line, styleOf(message));
}

}  // namespace vosctl
