/* SPDX-License-Identifier: MIT */
/* The application of the device and its backup: their state, installing an application, and restoring the backup. */
#ifndef VOSCTL_APPLICATION_H
#define VOSCTL_APPLICATION_H

#include <optional>
#include <string>

#include "deviceFile.h"

namespace vosctl {

constexpr std::size_t kLongestVersion = 511; /* the library reads 512 bytes of a version file, the NUL included */

std::string versionPath();
std::string backupPath();
std::string backupVersionPath();

/* The text of a version file's bytes, without the NUL at its end. */
std::string versionText(const std::string &bytes);

/* The four files as they were when the object was made. */
class ApplicationFiles {
  public:
    ApplicationFiles();

    [[nodiscard]] const DeviceFile &application() const { return application_; }
    [[nodiscard]] const DeviceFile &version() const { return version_; }
    [[nodiscard]] const DeviceFile &backup() const { return backup_; }
    [[nodiscard]] const DeviceFile &backupVersion() const { return backupVersion_; }

    /* Whether an installation copies the application to the backup first: it must be whole and have a version. */
    [[nodiscard]] bool willBeKept() const;

    /* Restores all four files. Returns the end of a sentence that says which application is installed now. */
    [[nodiscard]] std::string putBack() const;

  private:
    DeviceFile application_;
    DeviceFile version_;
    DeviceFile backup_;
    DeviceFile backupVersion_;
};

/* An image, its name for messages, and its version. */
struct NewApplication {
    const std::string &image;
    std::string file;
    std::string version;
};

/* Throws a Failure when the image, the backup and their versions do not fit or cannot be written. */
void requireInstallable(const ApplicationFiles &before, const NewApplication &wanted);

/* Makes the backup, writes the image and its version, and reads them back. When one of them is wrong, the earlier files
 * are restored, and a Failure says which application is installed now. Signals are blocked meanwhile. */
void installApplication(const ApplicationFiles &before, const NewApplication &wanted);

/* Copies the backup and its version to the application. The backup stays. It fails as installApplication() does. */
void restoreApplication(const ApplicationFiles &before);

}  // namespace vosctl

#endif
