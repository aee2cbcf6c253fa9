/* SPDX-License-Identifier: MIT */
/* vosctl package: file packages. */
#include <sys/stat.h>
#include <vosFile.h>

#include "../base/words.h"
#include "../flash/imageFile.h"
#include "../flash/outputFile.h"
#include "../flash/packageFile.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"
#include "installation.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string file;
    std::vector<std::string> entries;
    std::vector<std::string> compat;
    Installation installation;
};

constexpr const char *kEntryForms =
    "file:PATH=LOCAL, dir:PATH, delete-file:PATH, delete-dir:PATH or oem:FIELD=TEXT, in this order applied";

std::string modeText(uint32_t mode) {
    char text[16];
    snprintf(text, sizeof text, "%04o", mode);
    return text;
}

/* The text that says whether packages may use a path, and whether it leads out of the permitted directories. */
const char *permissionOf(bool permitted, bool outside) {
    if (!permitted) return "no";
    return outside ? "yes, but \"..\"" : "yes";
}

int list(Output &out, const std::string &file, const std::string &image) {
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
    Json all = Json::array();
    for (const PackageEntry &entry : packageEntriesOf(header.payload, file)) {
        const bool permitted = entry.kind == kOemEntry || packagePathPermitted(entry.path);
        const bool outside = climbs(entry.path);
        const char *const operation = entry.remove ? "delete" : "add";
        table.add({operation, entryKindName(entry.kind), modeText(entry.mode), entry.data.size(),
                   Cell{permissionOf(permitted, outside), permitted && !outside ? Style::plain : Style::bad},
                   entry.path});
        all.push_back({{"operation", operation},
                       {"kind", entryKindName(entry.kind)},
                       {"mode", modeText(entry.mode)},
                       {"bytes", entry.data.size()},
                       {"permitted", permitted},
                       {"path", entry.path},
                       {"climbs", outside}});
    }
    out.text(table);
    out.document(Json{{"entries", all}});
    return kDone;
}

[[noreturn]] void malformed(const std::string &word) {
    throw Failure("the entry \"" + word + "\" cannot be understood", std::string("write ") + kEntryForms);
}

/* The texts before and after the first place of a character. */
std::pair<std::string, std::string> split(const std::string &text, char at, const std::string &word) {
    const std::size_t position = text.find(at);
    if (position == std::string::npos || position == 0) malformed(word);
    return {text.substr(0, position), text.substr(position + 1)};
}

void requirePermitted(const std::string &path) {
    if (!packagePathPermitted(path))
        throw Failure("the device refuses the path \"" + path + "\"",
                      "name a path that begins with /app/oem or /app/preZEB.sh");
    if (climbs(path))
        throw Failure("the path \"" + path + "\" has a part \"..\" and can lead to any file",
                      "name the path that is meant");
}

PackageEntry fileEntry(const std::string &rest, const std::string &word) {
    const auto [path, local] = split(rest, '=', word);
    struct stat status {};
    const std::string data = readWhole(local);
    const bool known = local != "-" && stat(local.c_str(), &status) == 0;
    return {false, kFileEntry, known ? status.st_mode & 0777 : 0644, path, data};
}

PackageEntry oemEntry(const std::string &rest, const std::string &word) {
    const auto [field, value] = split(rest, '=', word);
    const auto index = wordOf(field);
    if (!index || *index >= kOemFields.size())
        throw Failure("there is no OEM field " + field, "name a field from 0 to 8");
    if (value.size() > kOemFields[*index].size)
        throw Failure("the value of OEM field " + field + " has " + std::to_string(value.size()) + " bytes",
                      "give at most " + std::to_string(kOemFields[*index].size));
    return {false, kOemEntry, 0644, "", oemRecordBytes({*index, value})};
}

PackageEntry entryOf(const std::string &word) {
    const auto [form, rest] = split(word, ':', word);
    if (form == "oem") return oemEntry(rest, word);
    PackageEntry entry;
    if (form == "file")
        entry = fileEntry(rest, word);
    else if (form == "dir")
        entry = {false, kDirectoryEntry, 0755, rest, ""};
    else if (form == "delete-file")
        entry = {true, kFileEntry, 0, rest, ""};
    else if (form == "delete-dir")
        entry = {true, kDirectoryEntry, 0, rest, ""};
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
    const std::string payload = packagePayload(entries);
    if (payload.size() > kLongestFile - kImageHeaderBytes)
        throw Failure("the package would have more than 4294967295 bytes", "put less into it");
    const std::string image = makeImage(kPackage, words.a, words.b, payload);
    storeFile(out, arguments.file, image);
    return isStandardOutput(arguments.file) ? kDone : list(out, arguments.file, image);
}

}  // namespace

void addPackageCommands(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command group = app.group("package", "List, make and apply file packages");

    Command listing = group.command("list", "List a package's entries");
    listing.argument("FILE", arguments->file, "The package; - is standard input").required().notEmpty("FILE");
    listing.example("vosctl package list new.pkg");
    listing.onRun(context, [arguments](Output &out) { return list(out, arguments->file, readImage(arguments->file)); });

    Command making = group.command("make", "Make a package");
    making.argument("FILE", arguments->file, "The file to write; - is standard output").required().notEmpty("FILE");
    making.argument("ENTRY", arguments->entries, kEntryForms).required();
    making.argument("--compat", arguments->compat, "Compatibility words A and B; else the installed application's")
        .values(2)
        .check(wordMistake);
    making.example("vosctl package make new.pkg dir:/app/oem file:/app/oem/logo.png=logo.png oem:1=SN");
    making.onRun(context, [arguments](Output &out) { return make(out, *arguments); });

    arguments->installation.packageOnly = true;
    Command apply = group.command("apply", "Apply a package to the device");
    apply.argument("FILE", arguments->installation.file, "The package; - is standard input")
        .required()
        .notEmpty("FILE");
    apply.flag("--yes", arguments->installation.yes, "Do not ask");
    apply.flag("--outside", arguments->installation.outside, "Apply paths with \"..\" too");
    apply.example("vosctl package apply new.pkg");
    apply.onRun(context, [arguments](Output &out) { return installImage(out, arguments->installation); });
    /* Added last: a command that is added to the group later would inherit these examples. */
    group.example("vosctl package list new.pkg");
}

}  // namespace vosctl
