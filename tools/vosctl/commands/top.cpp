/* SPDX-License-Identifier: MIT */
/* vosctl top: the traffic of each name, every second. */
#include <algorithm>
#include <cstdio>
#include <set>

#include "../processes/names.h"
#include "../processes/socketDirectory.h"
#include "../processes/tap.h"
#include "../processes/traffic.h"
#include "watching.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string sort = "in";
    uint32_t intervalMs = 1000;
    bool once = false;
};

/* At most five characters: 12345 as "12.3k". */
std::string shortNumber(double number) {
    constexpr const char *kUnits[] = {"", "k", "M", "G", "T"};
    std::size_t unit = 0;
    while (number >= 999.5 && unit + 1 < std::size(kUnits)) {
        number /= 1000;
        ++unit;
    }
    char text[32];
    const bool whole = unit == 0 ? number == static_cast<double>(static_cast<int>(number)) : number >= 99.95;
    snprintf(text, sizeof text, whole || number >= 99.95 ? "%.0f%s" : "%.1f%s", number, kUnits[unit]);
    return text;
}

/* At most five characters. */
std::string shortTime(uint64_t ns) {
    if (ns == 0) return "-";
    constexpr const char *kUnits[] = {"ns", "us", "ms", "s"};
    double number = static_cast<double>(ns);
    std::size_t unit = 0;
    while (number >= 999.5 && unit + 1 < std::size(kUnits)) {
        number /= 1000;
        ++unit;
    }
    char text[32];
    snprintf(text, sizeof text, number < 9.95 && unit > 0 ? "%.1f%s" : "%.0f%s", number, kUnits[unit]);
    return text;
}

/* A name in so many characters; JSON has all of it. */
std::string shortName(const std::string &name, std::size_t columns) {
    return name.size() <= columns ? name : name.substr(0, columns - 1) + "~";
}

/* Datagrams that wait for each name at least. */
std::map<std::string, uint32_t> queues() {
    std::map<std::string, uint32_t> depths;
    for (const SocketEntry &entry : readSocketDirectory())
        if (entry.kind != SocketEntry::Kind::requester && entry.queue) depths[entry.name] += entry.queue->atLeast;
    return depths;
}

struct Line {
    std::string name;
    Traffic traffic;
    uint32_t queue = 0;
};

struct SortedBy {
    const char *column;
    uint64_t (*value)(const Line &);
};
constexpr SortedBy kSortedBy[] = {
    {"in", [](const Line &line) { return line.traffic.messagesIn; }},
    {"out", [](const Line &line) { return line.traffic.messagesOut; }},
    {"bytes-in", [](const Line &line) { return line.traffic.bytesIn; }},
    {"bytes-out", [](const Line &line) { return line.traffic.bytesOut; }},
    {"queue", [](const Line &line) { return uint64_t{line.queue}; }},
    {"p50", [](const Line &line) { return line.traffic.serviceBelow(500); }},
    {"p99", [](const Line &line) { return line.traffic.serviceBelow(990); }},
    {"longest", [](const Line &line) { return line.traffic.longestService(); }},
    {"errors", [](const Line &line) { return line.traffic.errors; }},
};

std::vector<std::string> columns() {
    std::set<std::string> names{"name", "asker"};
    for (const SortedBy &each : kSortedBy) names.insert(each.column);
    return {names.begin(), names.end()};
}

/* The largest first; names and askers by the alphabet. Equal ones by name. */
void sortBy(std::vector<Line> &lines, const std::string &column) {
    std::sort(lines.begin(), lines.end(), [](const Line &left, const Line &right) { return left.name < right.name; });
    if (column == "asker") {
        std::stable_sort(lines.begin(), lines.end(), [](const Line &left, const Line &right) {
            return left.traffic.asker() < right.traffic.asker();
        });
    }
    for (const SortedBy &each : kSortedBy) {
        if (column != each.column) continue;
        std::stable_sort(lines.begin(), lines.end(),
                         [&each](const Line &left, const Line &right) { return each.value(left) > each.value(right); });
    }
}

Cell rate(uint64_t count, double seconds) {
    const double perSecond = static_cast<double>(count) / seconds;
    return {perSecond, shortNumber(perSecond), Style::plain};
}

Cell time(uint64_t ns) {
    return {ns == 0 ? Json(nullptr) : Json(static_cast<double>(ns) / 1e6), shortTime(ns), Style::plain};
}

Table tableOf(const std::vector<Line> &lines, double seconds) {
    constexpr std::size_t kNameColumns = 10;
    constexpr std::size_t kAskerColumns = 8;
    Table table{{{"name", "NAME"},
                 {"messagesInPerSecond", "IN/S", Align::right},
                 {"messagesOutPerSecond", "OUT/S", Align::right},
                 {"bytesInPerSecond", "B IN", Align::right},
                 {"bytesOutPerSecond", "B OUT", Align::right},
                 {"queuedAtLeast", "QUE", Align::right},
                 {"p50Ms", "P50", Align::right},
                 {"p99Ms", "P99", Align::right},
                 {"longestMs", "MAX", Align::right},
                 {"errors", "ERR", Align::right},
                 {"asker", "ASKER"}}};
    for (const Line &line : lines) {
        const Traffic &traffic = line.traffic;
        const std::string asker = traffic.asker();
        table.add({{line.name, shortName(line.name, kNameColumns), Style::heading},
                   rate(traffic.messagesIn, seconds),
                   rate(traffic.messagesOut, seconds),
                   rate(traffic.bytesIn, seconds),
                   rate(traffic.bytesOut, seconds),
                   {line.queue, shortNumber(line.queue), line.queue > 0 ? Style::warning : Style::plain},
                   time(traffic.serviceBelow(500)),
                   time(traffic.serviceBelow(990)),
                   time(traffic.longestService()),
                   {traffic.errors, shortNumber(static_cast<double>(traffic.errors)),
                    traffic.errors > 0 ? Style::bad : Style::plain},
                   {asker.empty() ? Json(nullptr) : Json(asker), asker.empty() ? "-" : shortName(asker, kAskerColumns),
                    Style::plain}});
    }
    return table;
}

class Top {
  public:
    Top(Output &out, const Arguments &arguments, const std::vector<std::string> &names)
        : out_(out), arguments_(arguments), begin_(monotonicNow()) {
        for (const std::string &name : names) names_.insert(name.substr(name.rfind('/') + 1));
    }

    /* False when it was to be shown once and has been. */
    bool add(const std::vector<Taken> &taken) {
        const uint64_t now = monotonicNow();
        for (const Taken &each : taken) {
            learnPrograms(messages_, each.copy);
            messages_.add(each.copy);
        }
        while (const auto message = messages_.next(now)) traffic_.add(*message);
        for (const auto &[name, count] : messages_.takeLosses()) traffic_.addLoss(name, count);
        if (now - begin_ < uint64_t{arguments_.intervalMs} * 1'000'000) return true;
        if (shown_ && arguments_.once) return false; /* Ctrl-C and the end came together */
        show(static_cast<double>(now - begin_) / 1e9);
        begin_ = now;
        return !arguments_.once;
    }

  private:
    void show(double seconds) {
        const auto depths = queues();
        std::map<std::string, Traffic> traffic = traffic_.take();
        for (const auto &[name, depth] : depths) traffic.try_emplace(name); /* who is silent is shown too */
        std::vector<Line> lines;
        uint64_t lost = 0;
        for (auto &[name, each] : traffic) {
            lost += each.lost;
            if (!names_.empty() && !names_.contains(name)) continue;
            if (name.starts_with(kOwnFile) || Messages::isNoName(name)) continue;
            const auto depth = depths.find(name);
            lines.push_back({name, std::move(each), depth == depths.end() ? 0 : depth->second});
        }
        sortBy(lines, arguments_.sort);
        print(tableOf(lines, seconds), seconds, lost);
        shown_ = true;
    }

    void print(const Table &table, double seconds, uint64_t lost) {
        const Json document{{"seconds", seconds}, {"lost", lost}, {"names", table.json()}};
        arguments_.once ? out_.document(document) : out_.documentLine(document);
        if (!out_.json() && !arguments_.once) clear();
        out_.text(table);
        if (lost > 0)
            out_.line("At least " + std::to_string(lost) + " copies were lost: the numbers are too small.",
                      Style::warning);
        out_.flush();
    }

    /* A terminal shows the last table only; elsewhere an empty line is between two. */
    void clear() {
        if (out_.terminal())
            dprintf(out_.fd(), "\033[H\033[J"); /* all before it has been flushed */
        else if (shown_)
            out_.line("");
    }

    static constexpr const char *kOwnFile = Tap::kFileBegin;
    Output &out_;
    const Arguments &arguments_;
    std::set<std::string> names_;
    Messages messages_;
    TrafficByName traffic_;
    uint64_t begin_;
    bool shown_ = false;
};

int top(Output &out, const Arguments &arguments, const Watched &watched) {
    Top top{out, arguments, watched.names};
    watch(out, watched, [&](const std::vector<Taken> &taken) { return top.add(taken); });
    return kDone;
}

}  // namespace

void addTopCommand(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    const auto watched = std::make_shared<Watched>(); /* headers only */
    Command command = app.command("top", "Show the traffic and the service times of each name");
    command.argument("NAME", watched->names, "Only these processes; without one all, also those that start later")
        .notEmpty("the name");
    command.argument("--sort", arguments->sort, "Column by which the lines are sorted")
        .oneOf(columns())
        .typeName("COLUMN")
        .defaultText("in");
    command.number("--interval", arguments->intervalMs, "Milliseconds that are counted together", 50, 3600000)
        .typeName("MS")
        .defaultText("1000");
    command.flag("--once", arguments->once, "Show one interval and end");
    command.notes(
        "IN/S, OUT/S, B IN and B OUT are messages and bytes of payload per second. QUE is\n"
        "the least number that waits. P50, P99 and MAX are times of service. ERR counts\n"
        "answers with a code other than 0, and messages that failed. ASKER has sent most\n"
        "requests.");
    command.example("vosctl top --sort p99");
    command.example("vosctl --json top --once oltd");
    command.onRun(context, [arguments, watched](Output &out) { return top(out, *arguments, *watched); });
}

}  // namespace vosctl
