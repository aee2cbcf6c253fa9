/* SPDX-License-Identifier: MIT */
#include "report.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>

#include "../base/failure.h"

namespace vosctl {

namespace {

constexpr std::string_view kGap = "  ";

std::string_view escapeOf(Style style) {
    switch (style) {
        case Style::heading:
            return "\033[1m";
        case Style::good:
            return "\033[32m";
        case Style::warning:
            return "\033[33m";
        case Style::bad:
            return "\033[31m";
        case Style::faint:
            return "\033[2m";
        case Style::plain:
            break;
    }
    return "";
}

/* The length of the UTF-8 character at the beginning of a text; 0 when there is none. */
std::size_t characterLength(std::string_view text) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const std::size_t length = byte(0) < 0x80 ? 1 : byte(0) < 0xC2 ? 0 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
    if (length == 0 || length > text.size() || byte(0) > 0xF4) return 0;
    for (std::size_t index = 1; index < length; ++index)
        if ((byte(index) & 0xC0) != 0x80) return 0;
    if (byte(0) == 0xE0 && byte(1) < 0xA0) return 0;
    if (byte(0) == 0xED && byte(1) > 0x9F) return 0; /* surrogates */
    if (byte(0) == 0xF0 && byte(1) < 0x90) return 0;
    if (byte(0) == 0xF4 && byte(1) > 0x8F) return 0;
    return length;
}

bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    return first < 0x20 || first == 0x7F || (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

std::string padded(std::string_view text, std::size_t size, Align align) {
    const std::string blanks(size - std::min(size, width(text)), ' ');
    return align == Align::left ? std::string(text) + blanks : blanks + std::string(text);
}

enum class Keep { nothing, lines };

std::string escapeOf(char byte) {
    char escape[5];
    snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return escape;
}

/* Calls the function for each character, and for each byte that is not part of one. */
template <class Character, class Byte>
void eachCharacter(std::string_view text, Character character, Byte byte) {
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (length == 0)
            byte(text[0]);
        else
            character(text.substr(0, length));
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
}

std::string harmless(std::string_view text, Keep keep) {
    std::string result;
    const auto escape = [&](char byte) { result += escapeOf(byte); };
    eachCharacter(
        text,
        [&](std::string_view character) {
            const bool kept = keep == Keep::lines && (character == "\n" || character == "\t");
            if (kept || !isControl(character))
                result += character;
            else
                std::for_each(character.begin(), character.end(), escape);
        },
        escape);
    return result;
}

/* Only bytes that are not UTF-8 are escaped here, because the JSON library escapes control characters. */
std::string utf8Of(std::string_view text) {
    std::string result;
    eachCharacter(
        text, [&](std::string_view character) { result += character; }, [&](char byte) { result += escapeOf(byte); });
    return result;
}

std::string hexDigits(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += digits;
    }
    return text;
}

/* Escapes the control characters above 0x7E, which the JSON library does not escape: a document may be printed on a
 * terminal. */
std::string withoutControls(const std::string &json) {
    std::string result;
    eachCharacter(
        json,
        [&](std::string_view character) {
            if (character == "\n" || !isControl(character)) {
                result += character;
                return;
            }
            char escape[7];
            snprintf(escape, sizeof escape, "\\u%04x",
                     static_cast<unsigned>(static_cast<unsigned char>(character.back())));
            result += escape;
        },
        [&](char) {});
    return result;
}

std::string dumped(const Json &document, int indent) { return withoutControls(jsonOf(document).dump(indent)) + "\n"; }

}  // namespace

std::size_t width(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string printable(std::string_view text) { return harmless(text, Keep::nothing); }

std::string printableLines(std::string_view text) { return harmless(text, Keep::lines); }

Json jsonOf(const Json &document) {
    if (document.is_string()) return utf8Of(document.get_ref<const std::string &>());
    if (document.is_array()) {
        Json array = Json::array();
        for (const Json &each : document) array.push_back(jsonOf(each));
        return array;
    }
    if (!document.is_object()) return document;
    Json object = Json::object();
    for (const auto &[key, value] : document.items()) {
        object[key] = jsonOf(value);
        if (value.is_string() && object[key] != value)
            object[key + "Hex"] = hexDigits(value.get_ref<const std::string &>());
    }
    return object;
}

std::size_t openCharacter(std::string_view text) {
    for (std::size_t back = 1; back <= std::min<std::size_t>(text.size(), 3); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if ((byte & 0xC0) == 0x80) continue;
        const std::size_t length = byte < 0xC2 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : byte < 0xF5 ? 4 : 1;
        return length > back ? back : 0;
    }
    return 0;
}

std::string Cell::textOf(const Json &value) {
    if (value.is_null()) return "-";
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (value.is_string()) return printable(value.get_ref<const std::string &>());
    return value.dump();
}

void Table::add(std::vector<Cell> row) {
    assert(row.size() == columns_.size());
    rows_.push_back(std::move(row));
}

Json Table::json() const {
    Json array = Json::array();
    for (const auto &row : rows_) {
        Json object = Json::object();
        for (std::size_t index = 0; index < row.size(); ++index) object[columns_[index].key] = row[index].value;
        array.push_back(std::move(object));
    }
    return array;
}

Record &Record::add(std::string key, std::string title, Cell cell) {
    fields_.push_back({std::move(key), std::move(title), std::move(cell)});
    return *this;
}

Json Record::json() const {
    Json object = Json::object();
    for (const Field &field : fields_) object[field.key] = field.cell.value;
    return object;
}

Output::Output(int fd, Settings settings) : file_(fdopen(fd, "w")), settings_(settings) {
    if (!file_) throw Failure(std::string("standard output cannot be written: ") + strerror(errno), "open it");
}

void Output::report(const Record &record) { settings_.json ? document(record.json()) : text(record); }

void Output::report(const std::string &key, const Table &table) {
    settings_.json ? document(Json{{key, table.json()}}) : text(table);
}

void Output::text(const Table &table) {
    if (settings_.json) return;
    const auto &columns = table.columns();
    std::vector<std::size_t> widths;
    for (std::size_t index = 0; index < columns.size(); ++index) {
        widths.push_back(width(columns[index].title));
        for (const auto &row : table.rows()) widths[index] = std::max(widths[index], width(printable(row[index].text)));
    }
    const auto putCell = [&](std::size_t index, std::string_view shown, Style style) {
        const bool last = index + 1 == columns.size();
        const bool bare = last && columns[index].align == Align::left; /* no blanks at the end of a line */
        put(bare ? std::string(shown) : padded(shown, widths[index], columns[index].align), style);
        put(last ? "\n" : kGap);
    };
    for (std::size_t index = 0; index < columns.size(); ++index) putCell(index, columns[index].title, Style::heading);
    for (const auto &row : table.rows())
        for (std::size_t index = 0; index < row.size(); ++index)
            putCell(index, printable(row[index].text), row[index].style);
}

void Output::text(const Record &record) {
    if (settings_.json) return;
    std::size_t widest = 0;
    for (const Field &field : record.fields()) widest = std::max(widest, width(field.title));
    for (const Field &field : record.fields()) {
        put(padded(field.title, widest, Align::left), Style::heading);
        put(kGap);
        put(printable(field.cell.text), field.cell.style);
        put("\n");
    }
}

void Output::line(std::string_view text, Style style) {
    if (settings_.json) return;
    put(printable(text), style);
    put("\n");
}

void Output::lines(std::string_view text) {
    if (settings_.json) return;
    put(printableLines(text));
    put("\n");
}

void Output::document(const Json &document) {
    if (settings_.json) put(dumped(document, settings_.shortJson ? -1 : 2));
}

void Output::documentLine(const Json &document) {
    if (settings_.json) put(dumped(document, -1));
}

void Output::raw(std::string_view bytes) {
    if (settings_.terminal)
        put(printableLines(bytes));
    else
        put(bytes);
}

void Output::flush() {
    if (fflush(file_.get()) != 0 && failed_ == 0) failed_ = errno;
    if (failed_ == 0) return;
    const std::string what = std::string("standard output cannot be written: ") + strerror(failed_);
    if (failed_ == EPIPE) throw ClosedPipe(what, "keep its reader running");
    throw Failure(what, "see where it leads to");
}

void Output::put(std::string_view text) {
    if (fwrite(text.data(), 1, text.size(), file_.get()) != text.size() && failed_ == 0) failed_ = errno;
}

void Output::put(std::string_view text, Style style) {
    const std::string_view escape = settings_.color ? escapeOf(style) : "";
    put(escape);
    put(text);
    if (!escape.empty()) put("\033[0m");
}

}  // namespace vosctl
