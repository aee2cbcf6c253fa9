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

void addMake(Command group, Context &context, const std::shared_ptr<Arguments> &arguments) {
    Command command = group.command("make", "Put an image header to a payload");
    command.argument("PAYLOAD", arguments->file, "File with the payload; - is standard input")
        .required()
        .notEmpty("PAYLOAD");
    command.argument("IMAGE", arguments->target, "The file to write; - is standard output")
        .required()
        .notEmpty("IMAGE");
    command.argument("--type", arguments->type, "boot or application").required().oneOf({"boot", "application"});
    command.argument("--compat", arguments->compat, "Compatibility words A and B; else the installed application's")
        .values(2)
        .check(wordMistake);
    command.example("vosctl image make app.bin new.img --type application");
    command.onRun(context, [arguments](Output &out) { return make(out, *arguments); });
}

void addInstall(Command group, Context &context, const std::shared_ptr<Arguments> &arguments) {
    Command install = group.command("install", "Install an image");
    install.argument("FILE", arguments->installation.file, "The image; - is standard input")
        .required()
        .notEmpty("FILE");
    install.argument("--version", arguments->installation.version, "Version text; an application needs one")
        .check(versionMistake)
        .typeName("TEXT");
    install.flag("--yes", arguments->installation.yes, "Do not ask");
    install.flag("--outside", arguments->installation.outside, "Apply a package's paths with \"..\" too");
    install.example("vosctl image install new.img --version 2.0");
    install.onRun(context, [arguments](Output &out) { return installImage(out, arguments->installation); });

    Command status = group.command("status", "Tell what is installed, and what the backup is");
    status.example("vosctl image status");
    status.onRun(context, showInstalled);

    Command restore = group.command("restore", "Make the backup the application again");
    restore.flag("--yes", arguments->installation.yes, "Do not ask");
    restore.example("vosctl image restore");
    restore.onRun(context, [arguments](Output &out) { return restoreBackup(out, arguments->installation.yes); });
}

}  // namespace

void addImageCommands(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command group = app.group("image", "Look at, check, make and install upgrade images");

    Command info = group.command("info", "Print an image's header");
    info.argument("FILE", arguments->file, "The image; - is standard input").required().notEmpty("FILE");
    info.example("vosctl image info new.img");
    info.onRun(context, [arguments](Output &out) { return report(out, arguments->file, readImage(arguments->file)); });

    Command checked = group.command("check", "Tell whether the device accepts an image, and why not");
    checked.argument("FILE", arguments->file, "The image; - is standard input").required().notEmpty("FILE");
    checked.argument("--type", arguments->type, "The type that it must be of; else its own")
        .oneOf({"boot", "application", "package"});
    checked.example("vosctl image check new.img");
    checked.onRun(context, [arguments](Output &out) { return check(out, *arguments); });

    addMake(group, context, arguments);

    addInstall(group, context, arguments);
    /* Last, because a command takes over the examples that its group has. */
    group.example("vosctl image info new.img");
    group.example("vosctl image status");
}

}  // namespace vosctl
