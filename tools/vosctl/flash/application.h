/* SPDX-License-Identifier: MIT */
/* The application of the device and its backup: what is there, installing another one, and going back. */
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

    /* An application that is whole and has a version is kept as the backup before another one takes its place. */
    [[nodiscard]] bool willBeKept() const;

    /* Makes all four what they were. Returns what is there now, for the end of a sentence. */
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

/* Throws a Failure when the image, the backup and their versions have no room or cannot be written. */
void requireInstallable(const ApplicationFiles &before, const NewApplication &wanted);

/* Keeps the backup, writes the image and its version, and reads back. When something does not arrive, all is put back,
 * and a Failure says what is there now. Signals are held meanwhile. */
void installApplication(const ApplicationFiles &before, const NewApplication &wanted);

/* Makes the backup the application again, with its version. The backup stays. As installApplication(). */
void restoreApplication(const ApplicationFiles &before);

}  // namespace vosctl

#endif
