/* SPDX-License-Identifier: MIT */
/* The checks that a device can restart, can be updated, and can go back to the earlier application. */
#include <vosFile.h>

#include "../base/failure.h"
#include "../flash/application.h"
#include "../flash/imageFile.h"
#include "checks.h"

namespace vosctl {

namespace {

/* A file that cannot be examined is reported, too. */
Finding lookedAt(const char *check, Finding (*look)(const char *check)) {
    try {
        return look(check);
    } catch (const Failure &failure) {
        return {check, Verdict::error, failure.what(), failure.nextStep()};
    }
}

bool isWhole(const DeviceFile &file) { return file.content() && isWholeApplication(*file.content()); }

std::string named(const DeviceFile &file, const DeviceFile &version) {
    return file.path() + (version.content() ? ", version " + versionText(*version.content()) + "," : "");
}

Finding lookAtApplication(const char *check) {
    const ApplicationFiles files;
    const DeviceFile &application = files.application();
    if (!application.content())
        return {check, Verdict::warning, "there is no application at " + application.path(),
                "put the first one there by hand: a device without one accepts no image"};
    if (!isWhole(application)) {
        return {check, Verdict::error, application.path() + " is broken: cut off, or changed since it was installed",
                isWhole(files.backup()) ? "put the backup back with \"vosctl image restore\""
                                        : "put an image there by hand: there is no whole backup"};
    }
    if (!files.version().content()) {
        return {check, Verdict::warning,
                application.path() + " has no version, so the next installation keeps no backup",
                "write its version to " + versionPath() + ", with a NUL at its end"};
    }
    return {check, Verdict::good, named(application, files.version()) + " is whole", ""};
}

Finding lookAtBackup(const char *check) {
    const ApplicationFiles files;
    if (!files.application().content())
        return {check, Verdict::good, "there is no application to keep a backup of", ""};
    if (isWhole(files.backup()))
        return {check, Verdict::good, named(files.backup(), files.backupVersion()) + " is whole", ""};
    const char *const remedy = files.willBeKept() ? "nothing: the next installation makes one"
                                                  : "see the application first; then the next installation makes one";
    if (!files.backup().content())
        return {check, Verdict::warning, "there is no backup of the application at " + backupPath(), remedy};
    return {check, Verdict::warning, backupPath() + " is broken, so there is no way back to it", remedy};
}

Finding lookAtConfiguration(const char *check) {
    const DeviceFile saved{szVosCfgFileName};
    if (!saved.content())
        return {check, Verdict::good, "no configuration is saved at " + saved.path() + ": the defaults hold", ""};
    if (!saved.content()->empty()) return {check, Verdict::good, saved.path() + " is not empty", ""};
    return {check, Verdict::warning, saved.path() + " is empty, as a save that was interrupted leaves it",
            "save one with \"vosctl config save\", or go back to the defaults with \"vosctl config delete\""};
}

/* An installation needs the most space, because it copies the application to flash as the backup. */
Finding lookAtRoom(const char *check) {
    const ApplicationFiles files;
    const uint64_t needed = files.willBeKept() ? files.application().content()->size() : 1;
    const uint64_t room = files.backup().room();
    const std::string where = backupPath().substr(0, backupPath().rfind('/'));
    if (room < needed) {
        return {check, Verdict::warning,
                where + " has room for " + std::to_string(room) +
                    " bytes, and the next backup of the application needs " + std::to_string(needed),
                "make room there; until then no image can be installed"};
    }
    return {check, Verdict::good, where + " has room for what is saved next", ""};
}

}  // namespace

Finding checkApplication() { return lookedAt("application", lookAtApplication); }

Finding checkBackup() { return lookedAt("backup", lookAtBackup); }

Finding checkConfiguration() { return lookedAt("configuration", lookAtConfiguration); }

Finding checkFlashRoom() { return lookedAt("flash-room", lookAtRoom); }

}  // namespace vosctl
