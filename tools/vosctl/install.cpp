/* SPDX-License-Identifier: MIT */
/* Installs an image: asks, does it, and says in words what came of it. */
#include <vosFile.h>

#include <algorithm>

#include "commands.h"
#include "deviceTree.h"
#include "imageFile.h"
#include "store.h"

namespace vosctl {

namespace {

bool below() { return !devicePath("").empty(); }

std::string questionOf(const ImageHeader &header, const std::string &file) {
    if (header.type == kPackage) return "The package " + file + " changes files and items of the device. Apply it?";
    const char *const target = header.type == kBoot ? szBootLoaderFileName : szAppFileName;
    return std::string(imageTypeName(header.type)) + " image " + file + " overwrites " + target + ". Install it?";
}

/* The library names files of a package and the backup from the machine's root. */
void requireReach(const ImageHeader &header, const std::string &file) {
    if (!below() || header.type != kPackage) return;
    const auto entries = packageEntriesOf(header.payload, file);
    if (std::any_of(entries.begin(), entries.end(), [](const PackageEntry &entry) { return entry.kind != 2; })) {
        throw Failure(
            "the files of " + file + " have absolute paths and would change this machine, not " + devicePath(""),
            "apply it on the device itself");
    }
}

/* Below another root the tool keeps the backup: once the version has moved, the library makes none of its own. */
void backUpBelow() {
    const std::string version = std::string(szAppFileName) + ".ver";
    if (!below() || vosFileExist(version.c_str()) == 0) return;
    const std::string backup = devicePath("/flash/hostImage.bin.last");
    const std::string next = "see that " + devicePath("/flash") + " exists and has room";
    if (vosFileCopy(szAppFileName, backup.c_str()) != VOS_OK ||
        vosFileCopy(version.c_str(), (backup + ".ver").c_str()) != VOS_OK)
        throw Failure("the installed application could not be kept as " + backup, next);
    uint32_t kept = 0;
    uint32_t original = 0;
    vosFileSizeGet(backup.c_str(), &kept);
    vosFileSizeGet(szAppFileName, &original);
    if (kept != original) throw Failure("only a part of the application fitted into " + backup, next);
    vosFileDelete(version.c_str());
}

void requireAccepted(int32_t code, const ImageHeader &header, const std::string &file, const char *what) {
    if (code == VOS_OK) return;
    const Refusal refusal = refusalOf(code, header.type, header);
    throw Failure(file + what + refusal.reason, refusal.nextStep);
}

int32_t write(const ImageHeader &header, const std::string &image) {
    if (header.type == kBoot) return vosFileBootWrite(bytesOf(image), lengthOf(image));
    return vosFileAppWrite(bytesOf(image), lengthOf(image));
}

void setVersion(const ImageHeader &header, const std::string &version) {
    if (header.type != kApplication || version.empty()) return;
    if (vosFileAppVerUpdate(version.c_str()) != VOS_OK) {
        throw Failure(
            std::string("the image is installed, but its version could not be written to ") + szAppFileName + ".ver",
            "make room and write it there");
    }
}

}  // namespace

int installImage(Output &out, const Installation &wanted) {
    const std::string image = loadFile(wanted.file);
    const ImageHeader header = imageHeaderOf(image, wanted.file);
    if (wanted.packageOnly && header.type != kPackage)
        throw Failure(wanted.file + " is no package but an image of type " + imageTypeName(header.type),
                      "install it with \"vosctl image install\"");
    if (!wanted.version.empty() && header.type != kApplication)
        throw Failure(wanted.file + " is no application image and has no version", "leave out --version");
    progress(out, "checking " + wanted.file + ", " + std::to_string(image.size()) + " bytes");
    requireAccepted(vosFileImageCheck(header.type, bytesOf(image), lengthOf(image)), header, wanted.file,
                    " is refused: ");
    if (header.type == kPackage) packageEntriesOf(header.payload, wanted.file); /* before anything is changed */
    requireReach(header, wanted.file);
    confirm(questionOf(header, wanted.file), wanted.yes);
    if (header.type == kApplication) backUpBelow();
    progress(out, header.type == kPackage ? "applying the package" : "writing the image");
    requireAccepted(write(header, image), header, wanted.file,
                    header.type == kPackage ? " was not applied to its end: " : " could not be installed: ");
    setVersion(header, wanted.version);
    Record record;
    record.add("file", "file", wanted.file)
        .add("type", "type", imageTypeName(header.type))
        .add("bytes", "bytes", image.size())
        .add("installed", "installed", true);
    out.report(record);
    return kDone;
}

}  // namespace vosctl
