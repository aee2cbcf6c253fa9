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

/* The length of the UTF-8 character at the begin of a text, 0 when there is none. */
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

std::string dumped(const Json &document, int indent) {
    return document.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::size_t width(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (length == 0 || isControl(text)) {
            char escape[5];
            snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(text[0])));
            result += escape;
            text.remove_prefix(1);
        } else {
            result += text.substr(0, length);
            text.remove_prefix(length);
        }
    }
    return result;
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
        for (const auto &row : table.rows()) widths[index] = std::max(widths[index], width(row[index].text));
    }
    const auto putCell = [&](std::size_t index, std::string_view shown, Style style) {
        const bool last = index + 1 == columns.size();
        const bool bare = last && columns[index].align == Align::left; /* no blanks at the end of a line */
        put(bare ? std::string(shown) : padded(shown, widths[index], columns[index].align), style);
        put(last ? "\n" : kGap);
    };
    for (std::size_t index = 0; index < columns.size(); ++index) putCell(index, columns[index].title, Style::heading);
    for (const auto &row : table.rows())
        for (std::size_t index = 0; index < row.size(); ++index) putCell(index, row[index].text, row[index].style);
}

void Output::text(const Record &record) {
    if (settings_.json) return;
    std::size_t widest = 0;
    for (const Field &field : record.fields()) widest = std::max(widest, width(field.title));
    for (const Field &field : record.fields()) {
        put(padded(field.title, widest, Align::left), Style::heading);
        put(kGap);
        put(field.cell.text, field.cell.style);
        put("\n");
    }
}

void Output::line(std::string_view text, Style style) {
    if (settings_.json) return;
    put(text, style);
    put("\n");
}

void Output::document(const Json &document) {
    if (settings_.json) put(dumped(document, 2));
}

void Output::documentLine(const Json &document) {
    if (settings_.json) put(dumped(document, -1));
}

void Output::raw(std::string_view bytes) { put(bytes); }

void Output::flush() {
    if (fflush(file_.get()) != 0 || ferror(file_.get()) != 0)
        throw Failure(std::string("standard output cannot be written: ") + strerror(errno), "see where it leads to");
}

void Output::put(std::string_view text) { fwrite(text.data(), 1, text.size(), file_.get()); }

void Output::put(std::string_view text, Style style) {
    const std::string_view escape = settings_.color ? escapeOf(style) : "";
    put(escape);
    put(text);
    if (!escape.empty()) put("\033[0m");
}

}  // namespace vosctl
