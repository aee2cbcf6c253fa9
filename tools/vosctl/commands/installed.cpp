/* SPDX-License-Identifier: MIT */
/* vosctl image status, vosctl image restore: the installed application and its backup. */
#include <vosFile.h>

#include "../base/words.h"
#include "../flash/application.h"
#include "../flash/bootLoader.h"
#include "../flash/imageFile.h"
#include "../flash/journal.h"
#include "../flash/store.h"
#include "commands.h"
#include "installation.h"

namespace vosctl {

namespace {

/* "whole"; "missing"; "broken": the file was cut off or changed */
const char *stateOf(const DeviceFile &file) {
    if (!file.content()) return "missing";
    return isWholeApplication(*file.content()) ? "whole" : "broken";
}

Json headerOf(const DeviceFile &file) {
    Json object{{"compatA", nullptr}, {"compatB", nullptr}, {"crc32", nullptr}};
    if (!file.content() || file.content()->size() < kImageHeaderBytes) return object;
    object["compatA"] = networkWord(*file.content(), 4);
    object["compatB"] = networkWord(*file.content(), 8);
    object["crc32"] = networkWord(*file.content(), 12);
    return object;
}

Json describe(const DeviceFile &file, const DeviceFile &version) {
    Json object{{"path", file.path()},
                {"state", stateOf(file)},
                {"version", version.content() ? Json(printable(versionText(*version.content()))) : Json(nullptr)},
                {"bytes", file.content() ? Json(file.content()->size()) : Json(nullptr)}};
    object.update(headerOf(file));
    return object;
}

/* A whole image is recognised by its length and its header. */
bool isImage(const DeviceFile &file, const ImageMark &mark) {
    return file.content() && file.content()->size() == mark.length && file.content()->starts_with(mark.header) &&
           isWholeApplication(*file.content());
}

/* What the last installation has left, by its record in the journal: "new", "old", "broken", or "other" for an
 * application that was put there in another way. */
const char *foundOf(const DeviceFile &file, const ImageRecord &record) {
    if (isImage(file, record.wanted)) return "new";
    if (record.old && isImage(file, *record.old)) return "old";
    return stateOf(file) == std::string("whole") ? "other" : "broken";
}

Json crcOf(const ImageMark &mark) { return networkWord(mark.header, 12); }

Json installationOf(const DeviceFile &file) {
    const auto record = imageRecordOf(file.path());
    if (!record) return nullptr;
    return Json{{"found", foundOf(file, *record)},
                {"newCrc32", crcOf(record->wanted)},
                {"oldCrc32", record->old ? crcOf(*record->old) : Json(nullptr)}};
}

/* The boot loader's flash has no end of its own: only the record tells how many bytes of it are the boot loader. */
Json bootLoaderOf() {
    const auto record = imageRecordOf(szBootLoaderFileName);
    if (!record) return nullptr;
    const bool whole = holdsBootLoader(record->wanted);
    return Json{
        {"path", szBootLoaderFileName}, {"state", whole ? "whole" : "broken"}, {"crc32", crcOf(record->wanted)}};
}

std::string sentenceOf(const Json &installation) {
    if (installation.is_null()) return "";
    const std::string found = installation["found"], wanted = hexWord(installation["newCrc32"].get<uint32_t>());
    if (found == "new") return "The application is the image that was installed last, with CRC-32 " + wanted + ".";
    if (found == "old")
        return "The application is the one from before the last installation: the image with CRC-32 " + wanted +
               " was not written, or the earlier one was put back.";
    if (found == "broken")
        return "The installation of the image with CRC-32 " + wanted + " was cut off, or the file was changed since.";
    return "The application is neither the image that was installed last, with CRC-32 " + wanted +
           ", nor the one from before.";
}

void print(Output &out, const char *title, const Json &object) {
    const std::string state = object["state"];
    const auto hex = [&](const char *key) {
        return object[key].is_null() ? Cell{nullptr} : Cell{object[key], hexWord(object[key]), Style::plain};
    };
    Record record;
    record.add("path", title, Cell{object["path"]})
        .add("state", "state", Cell{object["state"], state == "whole" ? Style::good : Style::bad})
        .add("version", "version", Cell{object["version"]})
        .add("bytes", "bytes", Cell{object["bytes"]})
        .add("compatA", "compatibility A", hex("compatA"))
        .add("compatB", "compatibility B", hex("compatB"))
        .add("crc32", "CRC-32", hex("crc32"));
    out.text(record);
}

/* The backup is a copy of the application and has its version. */
bool isKept(const ApplicationFiles &files) {
    return files.backup().content() && files.backup().content() == files.application().content() &&
           files.backupVersion().content();
}

/* What to do about what was found; empty when nothing. */
std::string remedyOf(const ApplicationFiles &files) {
    const bool whole = stateOf(files.application()) == std::string("whole");
    const bool way = stateOf(files.backup()) == std::string("whole");
    if (!whole) {
        return std::string("The last installation was cut off, or the file was changed since. ") +
               (way ? "\"vosctl image restore\" puts the backup back."
                    : "There is no whole backup: put an image there by hand.");
    }
    if (!files.version().content() && isKept(files)) {
        return "The application is the same as its backup: the last installation was cut off before the new image "
               "was " +
               std::string("written. Copy ") + backupVersionPath() + " to " + versionPath() + ", or install again.";
    }
    if (!files.version().content())
        return "The application has no version and would not be kept by the next installation. Write its version to " +
               versionPath() + ", with a NUL at its end.";
    if (!way) return "There is no whole backup. The next installation makes one.";
    return "";
}

}  // namespace

int showInstalled(Output &out) {
    const ApplicationFiles files;
    const Json application = describe(files.application(), files.version());
    const Json backup = describe(files.backup(), files.backupVersion());
    const bool whole = application["state"] == "whole";
    const std::string remedy = remedyOf(files);
    const Json installation = installationOf(files.application()), bootLoader = bootLoaderOf();
    const bool boots = bootLoader.is_null() || bootLoader["state"] == "whole";
    print(out, "application", application);
    out.line("");
    print(out, "backup", backup);
    if (!installation.is_null()) {
        out.line("");
        out.line(sentenceOf(installation));
    }
    if (!remedy.empty()) {
        out.line("");
        out.line(remedy, whole ? Style::warning : Style::bad);
    }
    if (!bootLoader.is_null()) {
        out.line("");
        out.line(boots ? "The boot loader is the one that was installed last."
                       : "The boot loader is not whole: its installation was cut off, or it was changed since. Install "
                         "it again before the next restart.",
                 boots ? Style::plain : Style::bad);
    }
    out.document(Json{{"application", application},
                      {"backup", backup},
                      {"cutOff", application["state"] == "broken"},
                      {"installation", installation},
                      {"bootLoader", bootLoader},
                      {"remedy", remedy.empty() ? Json(nullptr) : Json(remedy)}});
    return whole && boots ? kDone : kFailed;
}

int restoreBackup(Output &out, bool yes) {
    const ApplicationFiles before;
    if (!before.backup().content())
        throw Failure("there is no backup at " + backupPath(),
                      std::string("put an application image to ") + szAppFileName + " by hand");
    if (!isWholeApplication(*before.backup().content()))
        throw Failure("the backup " + backupPath() + " is broken: its CRC-32 does not match, and nothing was changed",
                      std::string("put an application image to ") + szAppFileName + " by hand");
    confirm("The backup " + backupPath() + " overwrites " + szAppFileName + ", which is not kept. Go on?", yes);
    progress(out, "writing the image");
    restoreApplication(before);
    const auto &version = before.backupVersion().content();
    Record record;
    record.add("path", "path", szAppFileName)
        .add("version", "version", version ? Json(printable(versionText(*version))) : Json(nullptr))
        .add("bytes", "bytes", before.backup().content()->size());
    out.report(record);
    return kDone;
}

}  // namespace vosctl
