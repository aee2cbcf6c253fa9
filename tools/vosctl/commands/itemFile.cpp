/* SPDX-License-Identifier: MIT */
/* vosctl item export, vosctl item import: all items, or some, as lines of text. */
#include "../flash/itemStore.h"
#include "../flash/outputFile.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "itemReport.h"

namespace vosctl {

namespace {

constexpr uint64_t kLongestItemFile = 1024 * 1024; /* all items in hexadecimal need about 6 KiB */
constexpr unsigned kOwnerOnly = 0600;              /* the file has passwords */

struct Arguments {
    std::string file;
    bool yes = false;
};

int exportItems(Output &out, const Arguments &arguments) {
    std::string text = "# Items of the data partitions, passwords included. See vosctl item import.\n";
    for (const Item &item : items()) text += exportLine(item, readItem(item)) + "\n";
    storeFile(out, arguments.file, text, kOwnerOnly);
    if (isStandardOutput(arguments.file)) return kDone;
    Record record;
    record.add("file", "file", arguments.file).add("items", "items", items().size());
    out.report(record);
    return kDone;
}

int importItems(Output &out, const Arguments &arguments) {
    const auto values = parseItemLines(readWhole(arguments.file, kLongestItemFile), arguments.file);
    if (values.empty())
        throw Failure(arguments.file + " has no items, and nothing was changed", "see where it comes from");
    const std::string what = std::to_string(values.size()) + (values.size() == 1 ? " item" : " items");
    confirm(what + " of the data partitions will be overwritten. Go on?", arguments.yes);
    writeItems(values, what);
    Record record;
    record.add("file", "file", arguments.file).add("items", "items", values.size());
    out.report(record);
    return kDone;
}

}  // namespace

Json describe(const Item &item, const std::string &bytes, bool secrets) {
    Json object{{"number", item.number},     {"name", item.name},
                {"constant", item.constant}, {"partition", partitionName(item)},
                {"form", nameOf(item.form)}, {"size", item.size},
                {"limit", limitOf(item)},    {"erased", erased(bytes)}};
    const bool shown = secrets || !item.secret;
    object["value"] = shown && !erased(bytes) ? shownValue(item, bytes).value : Json(nullptr);
    object["hex"] = shown ? Json(hexOf(bytes)) : Json(nullptr);
    return object;
}

void addItemFileCommands(Command group, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command exporting = group.command("export", "Write all items to a file, passwords included");
    exporting.argument("FILE", arguments->file, "The file; - is standard output").required().notEmpty("FILE");
    exporting.example("vosctl item export items.txt");
    exporting.onRun(context, [arguments](Output &out) { return exportItems(out, *arguments); });

    Command importing = group.command("import", "Change all items that a file names, or none");
    importing.argument("FILE", arguments->file, "The file; - is standard input").required().notEmpty("FILE");
    importing.flag("--yes", arguments->yes, "Do not ask");
    importing.example("vosctl item import items.txt");
    importing.onRun(context, [arguments](Output &out) { return importItems(out, *arguments); });
}

}  // namespace vosctl
