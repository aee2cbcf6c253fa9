/* SPDX-License-Identifier: MIT */
/* vosctl image: upgrade images. */
#include <vosFile.h>

#include "../base/words.h"
#include "../flash/deviceFile.h"
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
    std::string target;
    std::string type;
    std::vector<std::string> compat;
    Installation installation;
};

Cell hexCell(uint32_t word) { return {word, hexWord(word), Style::plain}; }

uint32_t typeNamed(const std::string &name) {
    return name == "boot" ? kBoot : name == "application" ? kApplication : kPackage;
}

int report(Output &out, const std::string &file, const std::string &image) {
    const ImageHeader header = imageHeaderOf(image, file);
    const bool matches = crc32Of(header.payload) == header.crc;
    Record record;
    record.add("file", "file", file)
        .add("type", "type", imageTypeName(header.type))
        .add("bytes", "bytes", image.size())
        .add("payloadBytes", "payload bytes", header.payload.size())
        .add("compatA", "compatibility A", hexCell(header.compatA))
        .add("compatB", "compatibility B", hexCell(header.compatB))
        .add("crc32", "CRC-32", hexCell(header.crc))
        .add("crcMatches", "CRC-32 matches", Cell{matches, matches ? Style::good : Style::bad});
    out.report(record);
    return kDone;
}

int check(Output &out, const Arguments &arguments) {
    const std::string image = readImage(arguments.file);
    const ImageHeader header = imageHeaderOf(image, arguments.file);
    requireRegularFile(szAppFileName);
    const uint32_t type = arguments.type.empty() ? header.type : typeNamed(arguments.type);
    int32_t code = vosFileImageCheck(type, bytesOf(image), lengthOf(image));
    Refusal refusal;
    try {
        if (code != VOS_OK)
            refusal = refusalOf(code, type, header);
        else if (type == kPackage)
            requireApplicable(packageEntriesOf(header.payload, arguments.file), arguments.file);
    } catch (const FaultyPackage &faulty) {
        code = faulty.code();
        refusal = {faulty.what(), faulty.nextStep()};
    } catch (const Failure &failure) {
        refusal = {failure.what(), failure.nextStep()};
    }
    const bool accepted = code == VOS_OK;
    out.document(Json{{"file", arguments.file},
                      {"type", imageTypeName(type)},
                      {"accepted", accepted},
                      {"code", code},
                      {"reason", accepted ? Json(nullptr) : Json(refusal.reason)},
                      {"nextStep", accepted ? Json(nullptr) : Json(refusal.nextStep)}});
    out.line(
        printable(arguments.file) +
            (accepted ? " fits this device" : " is refused: " + printable(refusal.reason + "; " + refusal.nextStep)),
        accepted ? Style::good : Style::bad);
    return accepted ? kDone : kFailed;
}

int make(Output &out, const Arguments &arguments) {
    const uint32_t type = typeNamed(arguments.type);
    const Compatibility words =
        arguments.compat.empty() ? installedCompatibility() : compatibilityOf(arguments.compat[0], arguments.compat[1]);
    const std::string payload = readWhole(arguments.file, kLongestFile - kImageHeaderBytes);
    const std::string image = makeImage(type, words.a, words.b, payload);
    storeFile(out, arguments.target, image);
    return isStandardOutput(arguments.target) ? kDone : report(out, arguments.target, image);
}

void addMake(CLI::App *group, Context &context, const std::shared_ptr<Arguments> &arguments) {
    CLI::App *const command = group->add_subcommand("make", "Put an image header to a payload");
    command->add_option("PAYLOAD", arguments->file, "File with the payload; - is standard input")
        ->required()
        ->check(notEmpty("PAYLOAD"));
    command->add_option("IMAGE", arguments->target, "The file to write; - is standard output")
        ->required()
        ->check(notEmpty("IMAGE"));
    command->add_option("--type", arguments->type, "boot or application")
        ->required()
        ->check(CLI::IsMember({"boot", "application"}));
    command->add_option("--compat", arguments->compat, "Compatibility words A and B; else the installed application's")
        ->expected(2)
        ->check(CLI::Validator([](const std::string &text) { return wordMistake(text); }, ""));
    addExample(command, "vosctl image make app.bin new.img --type application");
    onRun(command, context, [arguments](Output &out) { return make(out, *arguments); });
}

void addInstall(CLI::App *group, Context &context, const std::shared_ptr<Arguments> &arguments) {
    CLI::App *const install = group->add_subcommand("install", "Install an image");
    install->add_option("FILE", arguments->installation.file, "The image; - is standard input")
        ->required()
        ->check(notEmpty("FILE"));
    install->add_option("--version", arguments->installation.version, "Version text; an application needs one")
        ->check(CLI::Validator(versionMistake, ""))
        ->type_name("TEXT");
    install->add_flag("--yes", arguments->installation.yes, "Do not ask");
    install->add_flag("--outside", arguments->installation.outside, "Apply a package's paths with \"..\" too");
    addExample(install, "vosctl image install new.img --version 2.0");
    onRun(install, context, [arguments](Output &out) { return installImage(out, arguments->installation); });

    CLI::App *const status = group->add_subcommand("status", "Tell what is installed, and what the backup is");
    addExample(status, "vosctl image status");
    onRun(status, context, showInstalled);

    CLI::App *const restore = group->add_subcommand("restore", "Make the backup the application again");
    restore->add_flag("--yes", arguments->installation.yes, "Do not ask");
    addExample(restore, "vosctl image restore");
    onRun(restore, context, [arguments](Output &out) { return restoreBackup(out, arguments->installation.yes); });
}

}  // namespace

void addImageCommands(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *const group = app.add_subcommand("image", "Look at, check, make and install upgrade images");
    group->require_subcommand(1);

    CLI::App *const info = group->add_subcommand("info", "Print an image's header");
    info->add_option("FILE", arguments->file, "The image; - is standard input")->required()->check(notEmpty("FILE"));
    addExample(info, "vosctl image info new.img");
    onRun(info, context, [arguments](Output &out) { return report(out, arguments->file, readImage(arguments->file)); });

    CLI::App *const checked = group->add_subcommand("check", "Tell whether the device accepts an image, and why not");
    checked->add_option("FILE", arguments->file, "The image; - is standard input")->required()->check(notEmpty("FILE"));
    checked->add_option("--type", arguments->type, "The type that it must be of; else its own")
        ->check(CLI::IsMember({"boot", "application", "package"}));
    addExample(checked, "vosctl image check new.img");
    onRun(checked, context, [arguments](Output &out) { return check(out, *arguments); });

    addMake(group, context, arguments);

    addInstall(group, context, arguments);
    /* Last, because a command takes over the examples that its group has. */
    addExample(group, "vosctl image info new.img");
    addExample(group, "vosctl image status");
}

}  // namespace vosctl
