/* SPDX-License-Identifier: MIT */
/* vosctl waits: who waits for whom. */
#include "../processes/waits.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include "../processes/socketDirectory.h"
#include "commands.h"

namespace vosctl {

namespace {

using Phase = Wait::Phase;

const char *nameOf(Phase phase) {
    switch (phase) {
        case Phase::sending:
            return "sending";
        case Phase::queued:
            return "queued";
        case Phase::served:
            return "served";
        case Phase::answered:
            break;
    }
    return "answered";
}

/* The same for a reader. */
const char *sentenceOf(Phase phase) {
    switch (phase) {
        case Phase::sending:
            return "the queue is full";
        case Phase::queued:
            return "in the queue";
        case Phase::served:
            return "being served";
        case Phase::answered:
            break;
    }
    return "the answer is there";
}

std::string titleOf(const Party &party) {
    const std::string pid = party.pid != 0 ? " (pid " + std::to_string(party.pid) + ")" : "";
    if (!party.name.empty()) return party.name + pid;
    return (party.program.empty() ? "a process that cannot be seen" : party.program) + pid;
}

std::string secondsOf(const Wait &wait) {
    if (!wait.elapsed) return "for an unknown time";
    char text[32];
    snprintf(text, sizeof text, "%.3f s", std::chrono::duration<double>(*wait.elapsed).count());
    return text;
}

Json partyJson(const Party &party) {
    return {{"name", party.name.empty() ? Json(nullptr) : Json(party.name)},
            {"pid", party.pid != 0 ? Json(party.pid) : Json(nullptr)},
            {"program", party.program.empty() ? Json(nullptr) : Json(party.program)}};
}

Json waitJson(const Waits &all, const Wait &wait) {
    Json from = partyJson(all.parties[wait.from]);
    from["thread"] = wait.thread != 0 ? Json(wait.thread) : Json(nullptr);
    const double ms = wait.elapsed ? std::chrono::duration<double, std::milli>(*wait.elapsed).count() : 0;
    return {{"from", std::move(from)},     {"to", partyJson(all.parties[wait.to])},
            {"path", wait.path},           {"requester", wait.requester},
            {"phase", nameOf(wait.phase)}, {"waitedMs", wait.elapsed ? Json(ms) : Json(nullptr)}};
}

Json documentOf(const Waits &all) {
    Json waits = Json::array();
    for (const Wait &wait : all.waits) waits.push_back(waitJson(all, wait));
    Json circles = Json::array();
    for (const Waits::Circle &circle : all.circles) {
        Json parties = Json::array();
        for (const std::size_t wait : circle.waits) parties.push_back(partyJson(all.parties[all.waits[wait].from]));
        circles.push_back({{"certain", circle.certain}, {"processes", std::move(parties)}});
    }
    return {{"waits", std::move(waits)}, {"circles", std::move(circles)}};
}

/* The processes for which somebody waits, each with those that wait for it below it. A process that waits for nobody
 * comes first in its tree: it is the one to look at. */
class Tree {
  public:
    Tree(Output &out, const Waits &all) : out_(out), all_(all) {}

    void print() {
        for (const Waits::Circle &circle : all_.circles) printCircle(circle);
        for (std::size_t party = 0; party < all_.parties.size(); ++party)
            if (!waits(party) && isAwaited(party)) printFrom(party);
        for (const Waits::Circle &circle : all_.circles) /* what hangs on a circle has no beginning of its own */
            if (!shown_.contains(all_.waits[circle.waits.front()].from))
                printFrom(all_.waits[circle.waits.front()].from);
    }

  private:
    [[nodiscard]] bool waits(std::size_t party) const {
        return std::any_of(all_.waits.begin(), all_.waits.end(), [&](const Wait &wait) { return wait.from == party; });
    }
    [[nodiscard]] bool isAwaited(std::size_t party) const {
        return std::any_of(all_.waits.begin(), all_.waits.end(), [&](const Wait &wait) { return wait.to == party; });
    }
    [[nodiscard]] std::string title(std::size_t party) const { return titleOf(all_.parties[party]); }

    void printCircle(const Waits::Circle &circle) {
        std::string line = circle.certain ? "CIRCLE: " : "Possible circle: ";
        for (const std::size_t wait : circle.waits) line += title(all_.waits[wait].from) + " waits for ";
        line += title(all_.waits[circle.waits.front()].from);
        out_.line(line, circle.certain ? Style::bad : Style::warning);
    }

    void printFrom(std::size_t party) {
        out_.line(title(party), Style::heading);
        shown_.insert(party);
        printWaiting(party, 1);
    }

    /* Each process is taken apart once, so a circle ends where it closes. The depth is bounded by the number of
     * processes; the indentation by what can be read. */
    void printWaiting(std::size_t party, std::size_t depth) {
        constexpr std::size_t kDeepest = 16;
        for (const Wait &wait : all_.waits) {
            if (wait.to != party) continue;
            const bool again = !shown_.insert(wait.from).second;
            const std::string channel = wait.path.substr(wait.path.rfind('/') + 1);
            const std::string &name = all_.parties[party].name;
            out_.line(std::string(2 * std::min(depth, kDeepest), ' ') + "<- " + title(wait.from) + "  " +
                          secondsOf(wait) + ", " + sentenceOf(wait.phase) + (channel == name ? "" : ", at " + channel) +
                          (again ? " (see above)" : ""),
                      isInCircle(wait) ? Style::bad : Style::plain);
            if (!again) printWaiting(wait.from, depth + 1);
        }
    }

    [[nodiscard]] bool isInCircle(const Wait &wait) const {
        const auto place = static_cast<std::size_t>(&wait - all_.waits.data());
        return std::any_of(all_.circles.begin(), all_.circles.end(), [&](const Waits::Circle &circle) {
            return std::find(circle.waits.begin(), circle.waits.end(), place) != circle.waits.end();
        });
    }

    Output &out_;
    const Waits &all_;
    std::set<std::size_t> shown_;
};

/* The processes that are reached from those of a name along the waits, or against them. */
std::set<std::size_t> reached(const Waits &all, const std::string &name, bool forwards) {
    std::set<std::size_t> parties;
    for (std::size_t party = 0; party < all.parties.size(); ++party)
        if (all.parties[party].name == name) parties.insert(party);
    for (std::size_t before = 0; before != parties.size();) {
        before = parties.size();
        for (const Wait &wait : all.waits)
            if (parties.contains(forwards ? wait.from : wait.to)) parties.insert(forwards ? wait.to : wait.from);
    }
    return parties;
}

void keepOnly(Waits &all, const std::string &name) {
    std::set<std::size_t> kept = reached(all, name, true);
    kept.merge(reached(all, name, false));
    std::vector<std::size_t> places(all.waits.size());
    std::vector<Wait> waits;
    for (std::size_t index = 0; index < all.waits.size(); ++index) {
        if (!kept.contains(all.waits[index].from) || !kept.contains(all.waits[index].to)) continue;
        places[index] = waits.size();
        waits.push_back(all.waits[index]);
    }
    std::erase_if(all.circles, [&](const Waits::Circle &circle) {
        return !kept.contains(all.waits[circle.waits.front()].from); /* all of it is reached, or nothing */
    });
    for (Waits::Circle &circle : all.circles)
        for (std::size_t &wait : circle.waits) wait = places[wait];
    all.waits = std::move(waits);
}

int waits(Output &out, const std::string &name) {
    if (!name.empty()) requireReachable(name);
    Waits all = readWaits();
    if (!all.diagnosed)
        throw Failure("this kernel does not tell which sockets are connected",
                      "use one with CONFIG_UNIX_DIAG, or watch the messages with \"vosctl monitor\"");
    if (!name.empty()) keepOnly(all, name.substr(name.rfind('/') + 1));
    out.document(documentOf(all));
    if (all.waits.empty())
        out.line("Nobody waits for an answer.");
    else
        Tree{out, all}.print();
    return kDone;
}

}  // namespace

void addWaitsCommand(Command app, Context &context) {
    const auto name = std::make_shared<std::string>();
    Command command = app.command("waits", "Show who waits for whose answer now, and for how long");
    command.name(*name).optional().description("Only this process, what it waits for and who waits for it");
    command.notes(
        "A process is shown above those that wait for it. In a circle each one waits\n"
        "for the next. It is certain only when each of its processes has one thread,\n"
        "because another thread may still serve. The time-outs of the requests are not\n"
        "known. Only root sees processes of other users.");
    command.example("vosctl waits");
    command.example("vosctl --json waits oltd");
    command.onRun(context, [name](Output &out) { return waits(out, *name); });
}

}  // namespace vosctl
