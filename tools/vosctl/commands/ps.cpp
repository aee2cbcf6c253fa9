/* SPDX-License-Identifier: MIT */
/* vosctl ps: which processes are reachable. */
#include <algorithm>
#include <tuple>

#include "../processes/socketDirectory.h"
#include "commands.h"

namespace vosctl {

namespace {

using Kind = SocketEntry::Kind;

struct Arguments {
    std::string name; /* empty: all */
    bool all = false;
};

std::string kindOf(const SocketEntry &entry) {
    switch (entry.kind) {
        case Kind::normal:
            return "normal";
        case Kind::high:
            return "high";
        case Kind::thread:
            return "thread";
        case Kind::threadHigh:
            return "thread-high";
        case Kind::requester:
            break;
    }
    return "requester";
}

Cell stateOf(const SocketEntry &entry) {
    switch (entry.reach) {
        case Reach::reachable:
            return {"reachable", Style::good};
        case Reach::full:
            return {"full", Style::bad};
        case Reach::connected:
            return {"connected", Style::plain};
        case Reach::stale:
            return {"stale", Style::warning};
        case Reach::forbidden:
            return {"forbidden", Style::warning};
        default:
            return {"unknown", Style::warning};
    }
}

/* Sorted by name. For one name: the normal socket, the high-priority socket, then the thread channels by number. */
bool before(const SocketEntry &left, const SocketEntry &right) {
    return std::tuple{left.kind == Kind::requester, left.name, left.kind >= Kind::thread, left.thread, left.kind} <
           std::tuple{right.kind == Kind::requester, right.name, right.kind >= Kind::thread, right.thread, right.kind};
}

std::vector<SocketEntry> listed(const Arguments &arguments) {
    std::vector<SocketEntry> entries = readSocketDirectory();
    const std::string name = arguments.name.substr(arguments.name.rfind('/') + 1);
    std::erase_if(entries, [&](const SocketEntry &entry) {
        if (!name.empty()) return entry.name != name && entry.file != name;
        return !arguments.all && entry.kind == Kind::requester && alive(entry);
    });
    std::sort(entries.begin(), entries.end(), before);
    return entries;
}

std::string socketTitle(const SocketEntry &entry) {
    switch (entry.kind) {
        case Kind::thread:
            return "thread " + std::to_string(entry.thread);
        case Kind::threadHigh:
            return "thread " + std::to_string(entry.thread) + " high";
        default:
            return kindOf(entry);
    }
}

Cell queueCell(const SocketEntry &entry) {
    if (!entry.queue) return nullptr;
    const uint32_t count = entry.queue->atLeast;
    return {count, std::to_string(count) + (count > 0 ? "+" : ""), count > 0 ? Style::heading : Style::plain};
}

Table tableOf(const std::vector<SocketEntry> &entries, const Json &limit) {
    Table table{{{"name", "NAME"},
                 {"socket", "SOCKET"},
                 {"pid", "PID", Align::right},
                 {"program", "PROGRAM"},
                 {"queued", "QUEUE", Align::right},
                 {"limit", "LIMIT", Align::right},
                 {"state", "STATE"}}};
    for (const SocketEntry &entry : entries) {
        const bool known = !entry.owners.empty();
        table.add({entry.name, socketTitle(entry), known ? Json(entry.owners.front().pid) : Json(nullptr),
                   known ? Json(entry.owners.front().program) : Json(nullptr), queueCell(entry),
                   alive(entry) ? limit : Json(nullptr), stateOf(entry)});
    }
    return table;
}

Json socketJson(const SocketEntry &entry, const Json &limit) {
    Json socket{{"kind", kindOf(entry)}, {"path", entry.path}, {"state", stateOf(entry).value}};
    if (entry.kind == Kind::thread || entry.kind == Kind::threadHigh) socket["thread"] = entry.thread;
    socket["pids"] = Json::array();
    for (const Owner &owner : entry.owners) socket["pids"].push_back(owner.pid);
    socket["queuedAtLeast"] = entry.queue ? Json(entry.queue->atLeast) : Json(nullptr);
    socket["nextBytes"] = entry.queue ? Json(entry.queue->nextBytes) : Json(nullptr);
    socket["limit"] = alive(entry) ? limit : Json(nullptr);
    return socket;
}

Json documentOf(const std::vector<SocketEntry> &entries, const Json &limit) {
    Json names = Json::array();
    for (const SocketEntry &entry : entries) {
        if (names.empty() || names.back()["name"] != entry.name)
            names.push_back({{"name", entry.name}, {"pid", nullptr}, {"program", nullptr}, {"sockets", Json::array()}});
        Json &name = names.back();
        name["sockets"].push_back(socketJson(entry, limit));
        if (name["pid"].is_null() && !entry.owners.empty()) {
            name["pid"] = entry.owners.front().pid;
            name["program"] = entry.owners.front().program;
        }
    }
    return {{"names", std::move(names)}};
}

/* A name that was given must be reachable. */
int ps(Output &out, const Arguments &arguments) {
    if (!arguments.name.empty()) requireReachable(arguments.name);
    const std::vector<SocketEntry> entries = listed(arguments);
    const auto number = queueLimit();
    const Json limit = number ? Json(*number) : Json(nullptr);
    out.document(documentOf(entries, limit));
    if (entries.empty())
        out.line("No process is reachable.");
    else
        out.text(tableOf(entries, limit));
    return kDone;
}

}  // namespace

void addPsCommands(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command list = app.command("ps", "List the names under which processes are reachable, or tell whether one is");
    list.name(arguments->name).optional().description("Only this name; exit status 1 when it is not reachable");
    list.flag("--all", arguments->all, "Also the sockets of requesters that wait for an answer");
    list.notes(
        "QUEUE is the least number of datagrams that wait there. There may be more,\n"
        "because the kernel does not report the number of all. Where it reports\n"
        "nothing, QUEUE is -.");
    list.example("vosctl ps");
    list.example("vosctl ps oltd >/dev/null && echo oltd is there");
    list.onRun(context, [arguments](Output &out) { return ps(out, *arguments); });
}

}  // namespace vosctl
