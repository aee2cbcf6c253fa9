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

CLI::Option *addPartition(CLI::App *command, const std::shared_ptr<Arguments> &arguments) {
    return command->add_option("PARTITION", arguments->partition, "factory, system or all")
        ->check(CLI::IsMember({"factory", "system", "all"}));
}

void addCopies(CLI::App *group, Context &context, const std::shared_ptr<Arguments> &arguments) {
    CLI::App *const saving = group->add_subcommand("save", "Keep a copy of a partition, passwords included");
    saving->add_option("FILE", arguments->file, "The file; - is standard output")->required()->check(notEmpty("FILE"));
    saving->add_option("PARTITION", arguments->partition, "factory, if not given, or system")
        ->check(CLI::IsMember({"factory", "system"}));
    saving->parse_complete_callback([saving, arguments] {
        if (saving->count("PARTITION") == 0) arguments->partition = "factory";
    });
    addExample(saving, "vosctl partition save /flash/factory.copy");
    addExample(saving, "vosctl partition save system.copy system");
    onRun(saving, context, [arguments](Output &out) { return save(out, *arguments); });

    CLI::App *const restoring = group->add_subcommand("restore", "Put a copy back");
    restoring->add_option("FILE", arguments->file, "A copy; - is standard input")->required()->check(notEmpty("FILE"));
    restoring->add_flag("--yes", arguments->yes, "Do not ask");
    addExample(restoring, "vosctl partition restore /flash/factory.copy");
    onRun(restoring, context, [arguments](Output &out) { return restore(out, *arguments); });
}

}  // namespace

void addPartitionCommands(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *const group = app.add_subcommand("partition", "Check, show, renew and copy the data partitions");
    group->require_subcommand(1);

    CLI::App *const checked = group->add_subcommand("check", "Tell whether the partitions are valid, and why not");
    addPartition(checked, arguments);
    addExample(checked, "vosctl partition check");
    onRun(checked, context, [arguments](Output &out) { return check(out, *arguments, false); });

    CLI::App *const show = group->add_subcommand("show", "Print the partitions' bytes");
    addPartition(show, arguments);
    addExample(show, "vosctl partition show system");
    onRun(show, context, [arguments](Output &out) { return check(out, *arguments, true); });

    CLI::App *const fresh = group->add_subcommand("init", "Make a fresh partition: all items erased");
    addPartition(fresh, arguments)->required();
    fresh->add_flag("--yes", arguments->yes, "Do not ask");
    addExample(fresh, "vosctl partition init system");
    onRun(fresh, context, [arguments](Output &out) { return init(out, *arguments); });

    addCopies(group, context, arguments);
    /* Last, because a command takes over the examples that its group has. */
    addExample(group, "vosctl partition check");
    addExample(group, "vosctl partition save /flash/factory.copy");
}

}  // namespace vosctl
