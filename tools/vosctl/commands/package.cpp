/* SPDX-License-Identifier: MIT */
/* vosctl package: file packages. */
#include <sys/stat.h>
#include <vosFile.h>

#include <array>

#include "../base/words.h"
#include "../flash/imageFile.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string file;
    std::vector<std::string> entries;
    std::vector<std::string> compat;
    Installation installation;
};

constexpr uint32_t kDirectory = 1;
constexpr uint32_t kOemRecords = 2;
constexpr std::array<std::size_t, 9> kOemFieldBytes = {128, 32, 32, 128, 64, 64, 128, 64, 128};
constexpr const char *kEntryForms =
    "file:PATH=LOCAL, dir:PATH, delete-file:PATH, delete-dir:PATH or oem:FIELD=TEXT, in this order applied";

const char *kindName(uint32_t kind) {
    constexpr const char *kNames[] = {"file", "directory", "oem", "unknown"};
    return kNames[kind <= kOemRecords ? kind : 3];
}

std::string modeText(uint32_t mode) {
    char text[16];
    snprintf(text, sizeof text, "%04o", mode);
    return text;
}

int list(Output &out, const std::string &file) {
    const std::string image = loadFile(file);
    const ImageHeader header = imageHeaderOf(image, file);
    if (header.type != kPackage)
        throw Failure(file + " is no package but an image of type " + imageTypeName(header.type),
                      "see it with \"vosctl image info\"");
    Table table({{"operation", "OPERATION"},
                 {"kind", "KIND"},
                 {"mode", "MODE"},
                 {"bytes", "BYTES", Align::right},
                 {"permitted", "PERMITTED"},
                 {"path", "PATH"}});
    for (const PackageEntry &entry : packageEntriesOf(header.payload, file)) {
        const bool permitted = entry.kind == kOemRecords || packagePathPermitted(entry.path);
        table.add({entry.remove ? "delete" : "add", kindName(entry.kind), modeText(entry.mode), entry.data.size(),
                   permitted, printable(entry.path)});
    }
    out.report("entries", table);
    return kDone;
}

[[noreturn]] void malformed(const std::string &word) {
    throw Failure("the entry \"" + word + "\" cannot be understood", std::string("write ") + kEntryForms);
}

/* What stands before and behind the first of a character. */
std::pair<std::string, std::string> split(const std::string &text, char at, const std::string &word) {
    const std::size_t position = text.find(at);
    if (position == std::string::npos || position == 0) malformed(word);
    return {text.substr(0, position), text.substr(position + 1)};
}

void requirePermitted(const std::string &path) {
    if (!packagePathPermitted(path))
        throw Failure("the device refuses the path \"" + path + "\"",
                      "name a path that begins with /app/oem or /app/preZEB.sh");
}

PackageEntry fileEntry(const std::string &rest, const std::string &word) {
    const auto [path, local] = split(rest, '=', word);
    struct stat status {};
    const std::string data = loadFile(local);
    const bool known = local != "-" && stat(local.c_str(), &status) == 0;
    return {false, 0, known ? status.st_mode & 0777 : 0644, path, data};
}

PackageEntry oemEntry(const std::string &rest, const std::string &word) {
    const auto [field, value] = split(rest, '=', word);
    const auto index = wordOf(field);
    if (!index || *index >= kOemFieldBytes.size())
        throw Failure("there is no OEM field " + field, "name a field from 0 to 8");
    if (value.size() > kOemFieldBytes[*index])
        throw Failure("the value of OEM field " + field + " has " + std::to_string(value.size()) + " bytes",
                      "give at most " + std::to_string(kOemFieldBytes[*index]));
    return {false, kOemRecords, 0644, "",
            networkBytes(VOS_PACKAGE_MAGIC) + networkBytes(*index) + networkBytes(lengthOf(value)) + value};
}

PackageEntry entryOf(const std::string &word) {
    const auto [form, rest] = split(word, ':', word);
    if (form == "oem") return oemEntry(rest, word);
    PackageEntry entry;
    if (form == "file")
        entry = fileEntry(rest, word);
    else if (form == "dir")
        entry = {false, kDirectory, 0755, rest, ""};
    else if (form == "delete-file")
        entry = {true, 0, 0, rest, ""};
    else if (form == "delete-dir")
        entry = {true, kDirectory, 0, rest, ""};
    else
        malformed(word);
    requirePermitted(entry.path);
    return entry;
}

int make(Output &out, const Arguments &arguments) {
    const Compatibility words =
        arguments.compat.empty() ? installedCompatibility() : compatibilityOf(arguments.compat[0], arguments.compat[1]);
    std::vector<PackageEntry> entries;
    for (const std::string &word : arguments.entries) entries.push_back(entryOf(word));
    storeFile(arguments.file, makeImage(kPackage, words.a, words.b, packagePayload(entries)));
    return list(out, arguments.file);
}

}  // namespace

void addPackageCommands(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *const group = app.add_subcommand("package", "List, make and apply file packages");
    group->require_subcommand(1);

    CLI::App *const listing = group->add_subcommand("list", "List a package's entries");
    listing->add_option("FILE", arguments->file, "The package")->required();
    onRun(listing, context, [arguments](Output &out) { return list(out, arguments->file); });

    CLI::App *const making = group->add_subcommand("make", "Make a package");
    making->add_option("FILE", arguments->file, "The file to write")->required();
    making->add_option("ENTRY", arguments->entries, kEntryForms)->required();
    making->add_option("--compat", arguments->compat, "Compatibility words A and B; else the installed application's")
        ->expected(2)
        ->check(CLI::Validator([](const std::string &text) { return wordMistake(text); }, ""));
    onRun(making, context, [arguments](Output &out) { return make(out, *arguments); });

    arguments->installation.packageOnly = true;
    CLI::App *const apply = group->add_subcommand("apply", "Apply a package to the device");
    apply->add_option("FILE", arguments->installation.file, "The package")->required();
    apply->add_flag("--yes", arguments->installation.yes, "Do not ask");
    onRun(apply, context, [arguments](Output &out) { return installImage(out, arguments->installation); });
}

}  // namespace vosctl
