/* SPDX-License-Identifier: MIT */
/* vosctl config: the saved configuration. */
#include <vosFile.h>

#include <algorithm>

#include "../base/interrupts.h"
#include "../base/lineDiff.h"
#include "../base/words.h"
#include "../flash/deviceFile.h"
#include "../flash/deviceTree.h"
#include "../flash/store.h"
#include "../processes/runningConfiguration.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string file;
    std::string from;            /* name of a process */
    uint32_t timeoutMs = 90'000; /* as the library waits */
    bool empty = false;
    bool yes = false;
};

std::string saved() {
    const auto content = readDeviceFile(szVosCfgFileName);
    if (content) return *content;
    throw Failure(std::string("there is no saved configuration at ") + szVosCfgFileName,
                  "save one with \"vosctl config save FILE\"");
}

int show(Output &out) {
    const std::string content = saved();
    if (!out.json()) out.raw(content);
    Json object{{"path", szVosCfgFileName}};
    addPayload(object, content);
    out.document(object);
    return kDone;
}

/* An empty input is refused: it usually means that the first program of a pipeline has failed. */
void requireContent(const std::string &content, const Arguments &arguments) {
    if (!content.empty() || arguments.empty) return;
    const std::string from = arguments.from.empty() ? arguments.file : arguments.from;
    throw Failure(
        "the configuration of " + (from == "-" ? "standard input" : from) + " is empty, and nothing was changed",
        "see where it comes from, or give --empty to save an empty one");
}

int save(Output &out, const Arguments &arguments) {
    const DeviceFile before{szVosCfgFileName};
    const std::string content = arguments.from.empty()
                                    ? readWhole(arguments.file, std::min(before.room(), kLongestFile))
                                    : runningConfiguration(arguments.from, arguments.timeoutMs);
    requireContent(content, arguments);
    before.requireTakes(content.size());
    if (before.content())
        confirm(std::string("The saved configuration ") + szVosCfgFileName + " will be overwritten. Go on?",
                arguments.yes);
    replaceContent({"the configuration", before, content,
                    [&content] { return vosFileCfgWrite(content.data(), lengthOf(content)) == VOS_OK; }});
    Record record;
    record.add("path", "saved to", szVosCfgFileName).add("bytes", "bytes", content.size());
    out.report(record);
    return kDone;
}

Json describe(const std::vector<LineChange> &changes) {
    Json lines = Json::array();
    for (const LineChange &change : changes) {
        lines.push_back({{"where", change.added ? "running" : "saved"},
                         {"savedLine", change.firstLine},
                         {"runningLine", change.secondLine},
                         {"text", change.text}});
    }
    return lines;
}

/* Prints a heading where a new part of the differences begins. */
void print(Output &out, const std::vector<LineChange> &changes) {
    const LineChange *last = nullptr;
    for (const LineChange &change : changes) {
        const bool adjoins =
            last != nullptr && change.firstLine - last->firstLine <= 1 && change.secondLine - last->secondLine <= 1;
        if (!adjoins) {
            out.line("@@ saved line " + std::to_string(change.firstLine) + ", running line " +
                         std::to_string(change.secondLine) + " @@",
                     Style::faint);
        }
        out.line((change.added ? "+" : "-") + printable(change.text), change.added ? Style::good : Style::bad);
        last = &change;
    }
}

int diff(Output &out, const Arguments &arguments) {
    const std::string before = saved();
    const std::string running = runningConfiguration(arguments.from, arguments.timeoutMs);
    const std::vector<LineChange> changes = changedLines(before, running);
    out.document(Json{
        {"name", arguments.from}, {"path", szVosCfgFileName}, {"same", changes.empty()}, {"lines", describe(changes)}});
    if (!changes.empty()) {
        out.line(std::string("--- ") + szVosCfgFileName + " (saved)", Style::heading);
        out.line("+++ " + printable(arguments.from) + " (running)", Style::heading);
    }
    print(out, changes);
    return changes.empty() ? kDone : kFailed;
}

/* The library also removes the settings of core dumps. It removes those of this machine, even when --root names another
 * tree. */
void removeSaved() {
    const HeldSignals held{"the saved configuration was being deleted"};
    if (devicePath("").empty()) {
        vosFileCfgDelete();
        return;
    }
    vosFileDelete(szVosCfgFileName);
    vosFileDelete(devicePath("/flash/core-file").c_str());
}

int remove(Output &out, const Arguments &arguments) {
    requireRegularFile(szVosCfgFileName);
    const bool existed = vosFileCfgExist() == 1;
    if (existed) {
        confirm(std::string("The saved configuration ") + szVosCfgFileName +
                    " and the settings of core dumps will be " + "deleted. Go on?",
                arguments.yes);
    }
    removeSaved();
    if (vosFileCfgExist() == 1 || vosFileExist(devicePath("/flash/core-file").c_str()) == 1)
        throw Failure(std::string(szVosCfgFileName) + " could not be deleted",
                      "run it again with --verbose to see why");
    Record record;
    record.add("path", "path", szVosCfgFileName).add("existed", "was there", existed);
    out.report(record);
    return kDone;
}

}  // namespace

void addConfigCommands(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command group = app.group("config", "Show, save, compare and delete the saved configuration");
    Command showing = group.command("show", "Print the saved configuration byte for byte");
    showing.example("vosctl config show");
    showing.onRun(context, show);

    Command saving = group.command("save", "Save a file, or the running configuration of a process");
    Argument file = saving.argument("FILE", arguments->file, "The file; - is standard input").notEmpty("FILE");
    Argument from = saving.argument("--from", arguments->from, "Ask this process for its running configuration")
                        .check(nameMistake)
                        .typeName("NAME")
                        .excludes(file);
    saving.timeout(arguments->timeoutMs);
    saving.flag("--empty", arguments->empty, "Save it also when it is empty");
    saving.flag("--yes", arguments->yes, "Do not ask");
    saving.checkTogether(
        [file, from]() -> std::string { return file.given() || from.given() ? "" : "FILE or --from is required"; });
    saving.example("vosctl config save new.cfg");
    saving.example("vosctl config save --from oltd");
    saving.onRun(context, [arguments](Output &out) { return save(out, *arguments); });

    Command comparing = group.command("diff", "Compare it with the running configuration of a process");
    comparing.name(arguments->from);
    comparing.timeout(arguments->timeoutMs);
    comparing.example("vosctl config diff oltd");
    comparing.onRun(context, [arguments](Output &out) { return diff(out, *arguments); });

    Command deleting = group.command("delete", "Delete it: back to the defaults");
    deleting.flag("--yes", arguments->yes, "Do not ask");
    deleting.example("vosctl config delete");
    deleting.onRun(context, [arguments](Output &out) { return remove(out, *arguments); });
    /* Added last: a command that is added to the group later would inherit these examples. */
    group.example("vosctl config show");
    group.example("vosctl config diff oltd");
}

}  // namespace vosctl
