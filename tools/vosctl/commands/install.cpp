/* SPDX-License-Identifier: MIT */
/* Installs an image: asks the user, installs it and reports the result. */
#include <vosFile.h>

#include <algorithm>

#include "../flash/application.h"
#include "../flash/applyPackage.h"
#include "../flash/bootLoader.h"
#include "../flash/deviceTree.h"
#include "../flash/imageFile.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"
#include "installation.h"

namespace vosctl {

namespace {

bool below() { return !devicePath("").empty(); }

/* The library takes the paths in a package from the root of this machine. */
void requireReach(const std::vector<PackageEntry> &entries, const std::string &file) {
    if (!below()) return;
    if (std::any_of(entries.begin(), entries.end(),
                    [](const PackageEntry &entry) { return entry.kind != kOemEntry; })) {
        throw Failure(
            "the files of " + file + " have absolute paths and would change this machine, not " + devicePath(""),
            "apply it on the device itself");
    }
}

/* The library checks only the beginning of a path, so a path with ".." can reach every file. --yes does not allow that.
 */
void requireInside(const std::vector<PackageEntry> &entries, const Installation &wanted) {
    for (std::size_t index = 0; index < entries.size() && !wanted.outside; ++index) {
        if (!climbs(entries[index].path)) continue;
        const std::string where = entryName(entries, index, wanted.file);
        if (wanted.yes)
            throw Failure(where + " has a path with \"..\", which can lead to any file; nothing was changed",
                          "see \"vosctl package list\"; if that is wanted, apply it with --outside");
        confirm(where + " has a path with \"..\", which can lead to any file. Apply it?", false);
    }
}

void applyFile(const Installation &wanted, const ImageHeader &header, const Output &out) {
    const auto entries = packageEntriesOf(header.payload, wanted.file);
    requireApplicable(entries, wanted.file);
    requireReach(entries, wanted.file);
    requireRoomForPackage(entries);
    confirm("The package " + wanted.file + " changes files and items of the device. Apply it?", wanted.yes);
    requireInside(entries, wanted);
    progress(out, "applying the package");
    applyPackage(header, entries, wanted.file);
}

std::string questionOf(const ApplicationFiles &before, const std::string &file) {
    std::string question = "application image " + file + " overwrites " + szAppFileName;
    if (before.willBeKept()) return question + ", which is kept as " + backupPath() + ". Install it?";
    return question + (before.version().content() ? ", which is broken" : ", which has no version") +
           " and is not kept. Install it?";
}

void installApplicationFile(const Installation &wanted, const std::string &image, Output &out) {
    if (wanted.version.empty()) {
        throw Failure(wanted.file + " is an application image and needs a version",
                      "name it with --version TEXT: only an application with a version is kept when the next one is "
                      "installed");
    }
    const ApplicationFiles before;
    const NewApplication fresh{image, wanted.file, wanted.version};
    requireInstallable(before, fresh);
    confirm(questionOf(before, wanted.file), wanted.yes);
    progress(out, "writing the image");
    installApplication(before, fresh);
}

void installBootLoader(const Installation &wanted, const std::string &image, const Output &out) {
    requireBootLoaderFits(image, wanted.file);
    confirm("boot image " + wanted.file + " overwrites " + szBootLoaderFileName + ". Install it?", wanted.yes);
    progress(out, "writing the image");
    writeBootLoader(image, wanted.file);
}

void requireAccepted(const ImageHeader &header, const std::string &image, const std::string &file) {
    requireRegularFile(szAppFileName);
    const int32_t code = vosFileImageCheck(header.type, bytesOf(image), lengthOf(image));
    if (code == VOS_OK) return;
    const Refusal refusal = refusalOf(code, header.type, header);
    throw Failure(file + " is refused: " + refusal.reason, refusal.nextStep);
}

/* The options must be right for the type of the image. */
void requireFitting(const ImageHeader &header, const Installation &wanted) {
    if (wanted.packageOnly && header.type != kPackage)
        throw Failure(wanted.file + " is no package but an image of type " + imageTypeName(header.type),
                      "install it with \"vosctl image install\"");
    if (!wanted.version.empty() && header.type != kApplication)
        throw Failure(wanted.file + " is no application image and has no version", "leave out --version");
}

}  // namespace

std::string versionMistake(const std::string &text) {
    if (text.empty()) return "the version is empty";
    if (text.size() > kLongestVersion)
        return "the version has " + std::to_string(text.size()) + " bytes, and at most " +
               std::to_string(kLongestVersion) + " fit";
    return printable(text) == text ? "" : "the version has characters that cannot be printed";
}

int installImage(Output &out, const Installation &wanted) {
    const std::string image = readImage(wanted.file);
    const ImageHeader header = imageHeaderOf(image, wanted.file);
    requireFitting(header, wanted);
    progress(out, "checking " + wanted.file + ", " + std::to_string(image.size()) + " bytes");
    requireAccepted(header, image, wanted.file);
    if (header.type == kPackage)
        applyFile(wanted, header, out);
    else if (header.type == kApplication)
        installApplicationFile(wanted, image, out);
    else
        installBootLoader(wanted, image, out);
    Record record;
    record.add("file", "file", wanted.file)
        .add("type", "type", imageTypeName(header.type))
        .add("bytes", "bytes", image.size())
        .add("installed", "installed", true);
    out.report(record);
    return kDone;
}

}  // namespace vosctl
