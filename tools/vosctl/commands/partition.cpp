/* SPDX-License-Identifier: MIT */
/* vosctl partition: the factory and the system partition as a whole. */
#include <vosFile.h>

#include <algorithm>

#include "../flash/outputFile.h"
#include "../flash/partition.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string partition = "all";
    std::string file;
    bool yes = false;
};

bool wanted(const Partition &partition, const Arguments &arguments) {
    return arguments.partition == "all" || arguments.partition == partition.name;
}

Json word(const std::optional<uint32_t> &value) { return value ? Json(*value) : Json(nullptr); }

Json describe(const Partition &partition, const PartitionState &state) {
    return Json{{"name", partition.name},
                {"path", *partition.path},
                {"valid", state.valid()},
                {"reason", state.valid() ? Json(nullptr) : Json(state.reason)},
                {"bytes", state.fileBytes},
                {"storedChecksum", word(state.storedChecksum)},
                {"computedChecksum", word(state.computedChecksum)},
                {"remedy", state.valid() ? Json(nullptr) : Json(state.remedy)}};
}

void print(Output &out, const Partition &partition, const PartitionState &state) {
    const std::string which = printable(std::string(partition.name) + " partition " + *partition.path);
    if (state.valid()) return out.line(which + " is valid", Style::good);
    out.line(which + " is not valid: " + printable(state.reason + "; " + state.remedy), Style::bad);
}

int check(Output &out, const Arguments &arguments, bool bodies) {
    Json all = Json::array();
    int status = kDone;
    for (const Partition &partition : partitions()) {
        if (!wanted(partition, arguments)) continue;
        const PartitionState state = stateOf(partition);
        if (!state.valid()) status = kFailed;
        print(out, partition, state);
        Json object = describe(partition, state);
        if (bodies) {
            if (!out.json()) printPayload(out, state.bytes);
            object["hex"] = hexOf(state.bytes);
        }
        all.push_back(object);
    }
    out.document(Json{{"partitions", all}});
    return status;
}

void confirmErasing(const Arguments &arguments) {
    for (const Partition &partition : partitions()) {
        if (!wanted(partition, arguments) || vosFileExist(*partition.path) == 0) continue;
        confirm(std::string("All items of the ") + partition.name + " partition " + *partition.path +
                    " will be erased. Go on?",
                arguments.yes);
    }
}

int init(Output &out, const Arguments &arguments) {
    confirmErasing(arguments);
    Json all = Json::array();
    for (const Partition &partition : partitions()) {
        if (!wanted(partition, arguments)) continue;
        try {
            makeFresh(partition);
        } catch (const Failure &failure) {
            if (all.empty()) throw;
            throw Failure(std::string(failure.what()) + ", while the factory partition is fresh", failure.nextStep());
        }
        out.line(printable(std::string(partition.name) + " partition " + *partition.path + " is fresh"));
        all.push_back(describe(partition, stateOf(partition)));
    }
    out.document(Json{{"partitions", all}});
    return kDone;
}

int report(Output &out, const Partition &partition, const std::string &file) {
    Record record;
    record.add("name", "partition", partition.name)
        .add("path", "path", *partition.path)
        .add("file", "copy", file)
        .add("bytes", "bytes", partition.bytes());
    out.report(record);
    return kDone;
}

int save(Output &out, const Arguments &arguments) {
    const Partition &partition = partitionOf(arguments.partition == "factory");
    requireValid(partition);
    constexpr unsigned kOwnerOnly = 0600; /* the passwords are in it */
    storeFile(out, arguments.file, stateOf(partition).bytes, kOwnerOnly);
    return isStandardOutput(arguments.file) ? kDone : report(out, partition, arguments.file);
}

/* The partitions differ in length, so a copy tells of which one it is. */
const Partition &partitionOfCopy(const std::string &bytes, const std::string &file) {
    for (const Partition &partition : partitions()) {
        if (bytes.size() != partition.bytes()) continue;
        const PartitionState state = stateOfBytes(partition, bytes);
        if (state.valid()) return partition;
        throw Failure(file + " is no copy of the " + partition.name + " partition: " + state.reason,
                      "name a file of \"vosctl partition save\"");
    }
    throw Failure(file + " is no copy of a partition: it has " + std::to_string(bytes.size()) + " bytes",
                  "name a file of \"vosctl partition save\"");
}

int restore(Output &out, const Arguments &arguments) {
    const std::string bytes = readWhole(arguments.file, partitionOf(true).bytes());
    const Partition &partition = partitionOfCopy(bytes, arguments.file);
    confirm(std::string("The ") + partition.name + " partition " + *partition.path + " will be what " + arguments.file +
                " holds. Go on?",
            arguments.yes);
    replacePartition(partition, bytes);
    requireValid(partition);
    return report(out, partition, arguments.file);
}

Argument addPartition(Command command, const std::shared_ptr<Arguments> &arguments) {
    return command.argument("PARTITION", arguments->partition, "factory, system or all")
        .oneOf({"factory", "system", "all"});
}

void addCopies(Command group, Context &context, const std::shared_ptr<Arguments> &arguments) {
    Command saving = group.command("save", "Keep a copy of a partition, passwords included");
    saving.argument("FILE", arguments->file, "The file; - is standard output").required().notEmpty("FILE");
    Argument which = saving.argument("PARTITION", arguments->partition, "factory, if not given, or system")
                         .oneOf({"factory", "system"});
    saving.checkTogether([arguments, which]() -> std::string {
        if (!which.given()) arguments->partition = "factory";
        return "";
    });
    saving.example("vosctl partition save /flash/factory.copy");
    saving.example("vosctl partition save system.copy system");
    saving.onRun(context, [arguments](Output &out) { return save(out, *arguments); });

    Command restoring = group.command("restore", "Put a copy back");
    restoring.argument("FILE", arguments->file, "A copy; - is standard input").required().notEmpty("FILE");
    restoring.flag("--yes", arguments->yes, "Do not ask");
    restoring.example("vosctl partition restore /flash/factory.copy");
    restoring.onRun(context, [arguments](Output &out) { return restore(out, *arguments); });
}

}  // namespace

void addPartitionCommands(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command group = app.group("partition", "Check, show, renew and copy the data partitions");

    Command checked = group.command("check", "Tell whether the partitions are valid, and why not");
    addPartition(checked, arguments);
    checked.example("vosctl partition check");
    checked.onRun(context, [arguments](Output &out) { return check(out, *arguments, false); });

    Command show = group.command("show", "Print the partitions' bytes");
    addPartition(show, arguments);
    show.example("vosctl partition show system");
    show.onRun(context, [arguments](Output &out) { return check(out, *arguments, true); });

    Command fresh = group.command("init", "Make a fresh partition: all items erased");
    addPartition(fresh, arguments).required();
    fresh.flag("--yes", arguments->yes, "Do not ask");
    fresh.example("vosctl partition init system");
    fresh.onRun(context, [arguments](Output &out) { return init(out, *arguments); });

    addCopies(group, context, arguments);
    /* Last, because a command takes over the examples that its group has. */
    group.example("vosctl partition check");
    group.example("vosctl partition save /flash/factory.copy");
}

}  // namespace vosctl
