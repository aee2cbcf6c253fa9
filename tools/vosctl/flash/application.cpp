/* SPDX-License-Identifier: MIT */
#include "application.h"

#include <sys/file.h>
#include <vosFile.h>

#include <cerrno>
#include <cstring>

#include "../base/failure.h"
#include "../base/interrupts.h"
#include "../terminal/report.h"
#include "deviceTree.h"
#include "imageFile.h"
#include "store.h"

namespace vosctl {

namespace {

bool write(const std::string &path, const std::string &content) {
    return vosFileWrite(path.c_str(), content.data(), lengthOf(content)) == VOS_OK;
}

/* The tool makes the backup itself. The library would not use another root, and would not check that the application is
 * whole. Without a version file, which the tool removes first, the library makes no backup. */
void keepBackup(const ApplicationFiles &before) {
    if (!before.willBeKept()) return;
    errno = 0;
    bool done = write(backupPath(), *before.application().content());
    const int error = errno;
    if (before.backup().holds(*before.application().content())) {
        done = write(backupVersionPath(), *before.version().content());
        if (before.backupVersion().holds(*before.version().content())) return;
    }
    const std::string why = shortfall(done, error, backupPath(), before.application().content()->size());
    const std::string now = before.putBack();
    throw Failure("nothing was installed: " + before.application().path() + " could not be kept whole as " +
                      backupPath() + ": " + why + now,
                  "see that its directory can be written, or remove " + versionPath() + " to install without a backup");
}

void writeApplication(const ApplicationFiles &before, const NewApplication &wanted) {
    vosFileDelete(versionPath().c_str()); /* it is that of the earlier application, not of the new one */
    errno = 0;
    const bool done = vosFileAppWrite(bytesOf(wanted.image), lengthOf(wanted.image)) == VOS_OK;
    const int error = errno;
    if (before.application().holds(wanted.image)) return;
    const std::string why = shortfall(done, error, szAppFileName, wanted.image.size());
    const std::string now = before.putBack();
    throw Failure(wanted.file + " could not be written whole to " + szAppFileName + ": " + why + now,
                  "see that it has room and can be written, and install again");
}

void writeVersion(const ApplicationFiles &before, const std::string &version) {
    if (vosFileAppVerUpdate(version.c_str()) == VOS_OK && before.version().holds(version + '\0')) return;
    throw Failure("the image is installed, but its version could not be written to " + versionPath(),
                  "make room there, and install it again");
}

}  // namespace

std::string versionPath() { return std::string(szAppFileName) + ".ver"; }
std::string backupPath() { return devicePath("/flash/hostImage.bin.last"); }
std::string backupVersionPath() { return backupPath() + ".ver"; }

std::string versionText(const std::string &bytes) { return bytes.substr(0, bytes.find('\0')); }

ApplicationFiles::ApplicationFiles()
    : application_(szAppFileName),
      version_(versionPath()),
      backup_(backupPath()),
      backupVersion_(backupVersionPath()) {}

/* A broken application is useless as a backup, and would replace a backup that may be whole. */
bool ApplicationFiles::willBeKept() const {
    return application_.content() && version_.content() && isWholeApplication(*application_.content());
}

std::string ApplicationFiles::putBack() const {
    const bool application = application_.putBack() && version_.putBack();
    const bool backup = backup_.putBack() && backupVersion_.putBack();
    const std::string one = !application_.content() ? ", and no application is there"
                            : application           ? ", and the earlier application is still there"
                                                    : ", and the earlier application is lost";
    return one + (backup ? "" : ", and the earlier backup is lost");
}

void requireInstallable(const ApplicationFiles &before, const NewApplication &wanted) {
    std::vector<Need> needs{{szAppFileName, wanted.image.size()}, {versionPath(), wanted.version.size() + 1}};
    if (before.willBeKept()) {
        needs.push_back({backupPath(), before.application().content()->size()});
        needs.push_back({backupVersionPath(), before.version().content()->size()});
    }
    for (const Need &need : needs) requireWritable(need.path);
    try {
        requireRoomFor(needs);
    } catch (const Failure &failure) {
        if (!before.willBeKept()) throw;
        throw Failure(failure.what(),
                      failure.nextStep() + ", or remove " + versionPath() + " to install without a backup");
    }
}

void installApplication(const ApplicationFiles &before, const NewApplication &wanted) {
    awaitLock(szAppFileName, LOCK_EX);
    const HeldSignals held{printable(wanted.file) + " was being installed"};
    keepBackup(before);
    writeApplication(before, wanted);
    writeVersion(before, wanted.version);
}

void restoreApplication(const ApplicationFiles &before) {
    const std::string &image = *before.backup().content();
    const bool hasVersion = before.backupVersion().content().has_value();
    requireWritable(versionPath());
    before.application().requireTakes(image.size());
    awaitLock(szAppFileName, LOCK_EX);
    const HeldSignals held{"the backup was being made the application"};
    vosFileDelete(versionPath().c_str());
    errno = 0;
    bool done = write(szAppFileName, image);
    const int error = errno;
    const bool whole = before.application().holds(image);
    if (whole && !hasVersion) return;
    if (whole) {
        done = write(versionPath(), *before.backupVersion().content());
        if (before.version().holds(*before.backupVersion().content())) return;
    }
    const std::string why = shortfall(done, error, szAppFileName, image.size());
    throw Failure(backupPath() + " could not be made the application " + szAppFileName + " with its version: " + why +
                      before.putBack(),
                  "see that " + std::string(szAppFileName) + " has room and can be written, and run it again");
}

}  // namespace vosctl
