/* SPDX-License-Identifier: MIT */
/* Installs an image: asks, does it, and says in words what came of it. */
#include <vosFile.h>

#include <algorithm>
#include <optional>

#include "../flash/deviceTree.h"
#include "../flash/imageFile.h"
#include "../flash/store.h"
#include "commands.h"

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

std::string versionPath() { return std::string(szAppFileName) + ".ver"; }

/* The tool keeps the backup, which the library would also do, but not below another root and without looking whether it
 * is whole: once the version has moved, the library makes none of its own. */
void backUp() {
    const std::string version = versionPath();
    if (vosFileExist(version.c_str()) == 0) return;
    const std::string backup = devicePath("/flash/hostImage.bin.last");
    if (vosFileCopy(szAppFileName, backup.c_str()) == VOS_OK &&
        vosFileCopy(version.c_str(), (backup + ".ver").c_str()) == VOS_OK &&
        loadFile(backup) == loadFile(szAppFileName) && loadFile(backup + ".ver") == loadFile(version)) {
        vosFileDelete(version.c_str());
        return;
    }
    vosFileDelete(backup.c_str());
    vosFileDelete((backup + ".ver").c_str());
    throw Failure(std::string("nothing was installed: ") + szAppFileName + " could not be kept whole as " + backup +
                      (vosFileExist(backup.c_str()) == 1 ? "" : ", where no backup is now"),
                  "see that " + devicePath("/flash") + " exists, can be written and has room, or remove " + version +
                      " to install without a backup");
}

/* The application that a new one replaces. */
struct Earlier {
    std::string image;
    std::optional<std::string> version;
};

Earlier earlierApplication() {
    Earlier earlier{loadFile(szAppFileName), {}};
    if (vosFileExist(versionPath().c_str()) == 1) earlier.version = loadFile(versionPath());
    return earlier;
}

bool holds(const std::string &path, const std::string &content) {
    return vosFileExist(path.c_str()) == 1 && loadFile(path) == content;
}

void makeHold(const std::string &path, const std::string &content) {
    if (!holds(path, content)) vosFileWrite(path.c_str(), content.data(), lengthOf(content));
}

/* After a new one could not be written: the earlier one is there again. Returns what is there now. */
std::string putBack(const Earlier &earlier) {
    makeHold(szAppFileName, earlier.image);
    if (earlier.version) makeHold(versionPath(), *earlier.version);
    if (holds(szAppFileName, earlier.image)) return ", and the earlier application is still there";
    return ", and the earlier application is lost";
}

void requireAccepted(int32_t code, const ImageHeader &header, const std::string &file, const char *what) {
    if (code == VOS_OK) return;
    const Refusal refusal = refusalOf(code, header.type, header);
    throw Failure(file + what + refusal.reason, refusal.nextStep);
}

void writeApplication(const std::string &image, const std::string &file) {
    const Earlier earlier = earlierApplication();
    backUp();
    if (vosFileAppWrite(bytesOf(image), lengthOf(image)) == VOS_OK) return;
    throw Failure(file + " could not be written whole to " + szAppFileName + putBack(earlier),
                  "see with --verbose why; if it has room and can be written, install again");
}

void writeBootLoader(const std::string &image, const std::string &file) {
    if (vosFileBootWrite(bytesOf(image), lengthOf(image)) == VOS_OK) return;
    throw Failure(file + " could not be written whole to " + szBootLoaderFileName + ", which may hold a part of it",
                  "see with --verbose why, and install it again before the device restarts");
}

void write(const ImageHeader &header, const std::string &image, const std::string &file) {
    if (header.type == kBoot) return writeBootLoader(image, file);
    if (header.type == kApplication) return writeApplication(image, file);
    requireAccepted(vosFileAppWrite(bytesOf(image), lengthOf(image)), header, file, " was not applied to its end: ");
}

void setVersion(const ImageHeader &header, const std::string &version) {
    if (header.type != kApplication || version.empty()) return;
    if (vosFileAppVerUpdate(version.c_str()) != VOS_OK || !holds(versionPath(), version + '\0')) {
        throw Failure("the image is installed, but its version could not be written to " + versionPath(),
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
    progress(out, header.type == kPackage ? "applying the package" : "writing the image");
    write(header, image, wanted.file);
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
