/* SPDX-License-Identifier: MIT */
/* Results: tables and records that are printed as aligned text or as one JSON document, and where they are printed.
 *
 * What comes from outside may hold any bytes. It reaches a terminal through printable() and JSON through jsonOf(),
 * which Output does for every command. Neither loses anything: what printable() escapes can be told from its \xHH, and
 * JSON has the bytes of what is not UTF-8 in hexadecimal beside it. */
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

/* A value, and how it looks as text where that is not the value as it is. Null looks like "-", a truth like yes or no.
 */
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
    std::string key;   /* of the JSON member */
    std::string title; /* of the text */
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
        bool terminal = false; /* the descriptor is one */
    };

    Output(int fd, Settings settings); /* takes the descriptor over */

    [[nodiscard]] bool json() const { return settings_.json; }
    [[nodiscard]] bool terminal() const { return settings_.terminal; }

    /* A command's whole result: text, or the JSON object itself. */
    void report(const Record &record);
    /* A command's whole result: text, or a JSON object whose only member is the table. */
    void report(const std::string &key, const Table &table);

    /* Parts of a result, for commands that put their own together: text without --json, a document with it. */
    void text(const Table &table);
    void text(const Record &record);
    void line(std::string_view text, Style style = Style::plain);
    /* A text of several lines, with tabs. */
    void lines(std::string_view text);
    void document(const Json &document);
    /* One JSON value on a line of its own, for results without an end. */
    void documentLine(const Json &document);
    /* Bytes as they are, but on a terminal like lines() without a line end of its own. */
    void raw(std::string_view bytes);

    /* To see whether somebody still takes what is printed. */
    [[nodiscard]] int fd() const { return fileno(file_.get()); }

    /* Makes sure that everything has arrived; throws a Failure otherwise, a ClosedPipe when nobody reads any more. */
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

/* Text from outside made harmless: control characters and bytes that are not UTF-8 become \xHH. */
std::string printable(std::string_view text);
/* The same, but tabs and line ends stay. */
std::string printableLines(std::string_view text);

/* A document in which every text is UTF-8: bytes that are not become \xHH, and where the text is the member KEY of an
 * object, a member KEYHex behind it has all its bytes. */
Json jsonOf(const Json &document);

/* Bytes at the end of a text that are the begin of a character of UTF-8 whose rest has not come yet. */
std::size_t openCharacter(std::string_view text);

/* Characters that a text takes on a terminal, when each is as wide as one. */
std::size_t width(std::string_view text);

}  // namespace vosctl

#endif
