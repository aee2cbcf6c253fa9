/* SPDX-License-Identifier: MIT */
/* Results: tables and records, printed as aligned text or as one JSON document, and the output to which they are
 * printed.
 *
 * Text from outside may have any bytes. Output passes it through printable() before a terminal shows it, and through
 * jsonOf() before it goes into JSON. printable() shows the bytes that it escapes as \xHH. For a text that is not UTF-8,
 * JSON also has its bytes in hexadecimal. */
#ifndef VOSCTL_REPORT_H
#define VOSCTL_REPORT_H

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace vosctl {

using Json = nlohmann::ordered_json; /* members stay in the order in which they were added */

enum class Style { plain, heading, good, warning, bad, faint };

/* A value, and its text where that differs from the value. Null is printed as "-", a bool as yes or no. */
struct Cell {
    template <class Value>
    requires(!std::is_same_v<std::remove_cvref_t<Value>, Cell>) Cell(Value &&data, Style look = Style::plain)
        : value(std::forward<Value>(data)), text(textOf(value)), style(look) {}
    Cell(Json data, std::string shown, Style look) : value(std::move(data)), text(std::move(shown)), style(look) {}

    static std::string textOf(const Json &value);

    Json value;
    std::string text;
    Style style;
};

enum class Align { left, right };

struct Column {
    std::string key;   /* name of the JSON member */
    std::string title; /* name in the text */
    Align align = Align::left;
};

class Table {
  public:
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}
    /* One cell per column. */
    void add(std::vector<Cell> row);
    [[nodiscard]] bool empty() const { return rows_.empty(); }
    [[nodiscard]] const std::vector<Column> &columns() const { return columns_; }
    [[nodiscard]] const std::vector<std::vector<Cell>> &rows() const { return rows_; }
    [[nodiscard]] Json json() const; /* an array of objects */

  private:
    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

struct Field {
    std::string key;
    std::string title;
    Cell cell;
};

class Record {
  public:
    Record &add(std::string key, std::string title, Cell cell);
    [[nodiscard]] const std::vector<Field> &fields() const { return fields_; }
    [[nodiscard]] Json json() const; /* an object */

  private:
    std::vector<Field> fields_;
};

/* The standard output of the tool. The library prints its log to descriptor 1, so results go to a duplicate of it. */
class Output {
  public:
    struct Settings {
        bool json = false;
        bool shortJson = false; /* a document on one line */
        bool color = false;
        bool terminal = false; /* whether the descriptor is a terminal */
    };

    Output(int fd, Settings settings); /* owns the descriptor from now on */

    [[nodiscard]] bool json() const { return settings_.json; }
    [[nodiscard]] bool terminal() const { return settings_.terminal; }

    /* A command's whole result: text, or the JSON object itself. */
    void report(const Record &record);
    /* A command's whole result: text, or a JSON object whose only member is the table. */
    void report(const std::string &key, const Table &table);

    /* Parts of a result, for commands that have a form of their own: text without --json, a document with it. */
    void text(const Table &table);
    void text(const Record &record);
    void line(std::string_view text, Style style = Style::plain);
    /* A text of several lines, with tabs. */
    void lines(std::string_view text);
    void document(const Json &document);
    /* One JSON value on a line of its own, for results without an end. */
    void documentLine(const Json &document);
    /* Bytes without a change. On a terminal they are escaped as by lines(), but no line end is added. */
    void raw(std::string_view bytes);

    /* For poll(): whether the other end still reads the output. */
    [[nodiscard]] int fd() const { return fileno(file_.get()); }

    /* Flushes all output. Throws a Failure when that is not possible, a ClosedPipe when nobody reads the output any
     * more. */
    void flush();

  private:
    struct Close {
        void operator()(FILE *file) const { fclose(file); }
    };
    void put(std::string_view text);
    void put(std::string_view text, Style style);

    std::unique_ptr<FILE, Close> file_;
    Settings settings_;
    int failed_ = 0; /* errno of the first write that failed */
};

/* Makes text from outside safe for a terminal: control characters and bytes that are not UTF-8 become \xHH. */
std::string printable(std::string_view text);
/* The same, but tabs and line ends are kept. */
std::string printableLines(std::string_view text);

/* A document in which every text is UTF-8. Bytes that are not UTF-8 become \xHH. When such a text is the member KEY of
 * an object, a member KEYHex after it has all its bytes. */
Json jsonOf(const Json &document);

/* The number of bytes at the end of a text that begin a UTF-8 character whose rest has not come yet. */
std::size_t openCharacter(std::string_view text);

/* The width of a text on a terminal in characters, if each character is one column wide. */
std::size_t width(std::string_view text);

}  // namespace vosctl

#endif
