/* SPDX-License-Identifier: MIT */
/* Images and file packages: their layout, and what the library's answers about them mean. */
#ifndef VOSCTL_IMAGE_FILE_H
#define VOSCTL_IMAGE_FILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "../base/failure.h"
#include "../terminal/report.h"

namespace vosctl {

constexpr std::size_t kImageHeaderBytes = 16;
constexpr uint32_t kBoot = 1;
constexpr uint32_t kApplication = 2;
constexpr uint32_t kPackage = 3;

struct ImageHeader {
    uint32_t type = 0;
    uint32_t compatA = 0;
    uint32_t compatB = 0;
    uint32_t crc = 0;
    std::string_view payload;
};

/* "boot", "application" or "package". */
const char *imageTypeName(uint32_t type);

/* Finds the header of an image. Throws a Failure when the bytes are no image. */
ImageHeader imageHeaderOf(std::string_view image, const std::string &file);

std::string makeImage(uint32_t type, uint32_t compatA, uint32_t compatB, std::string_view payload);

struct Compatibility {
    uint32_t a = 0;
    uint32_t b = 0;
};

/* Of the installed application. Throws a Failure when there is none. */
Compatibility installedCompatibility();

/* The words on the command line, or else those of the installed application. */
Compatibility compatibilityOf(const std::string &a, const std::string &b);

struct Refusal {
    std::string reason; /* what the code means */
    std::string nextStep;
};

/* What a code of the library about an image means. */
Refusal refusalOf(int32_t code, uint32_t type, const ImageHeader &header);

struct PackageEntry {
    bool remove = false;
    uint32_t kind = 0; /* 0 file, 1 directory, 2 OEM records */
    uint32_t mode = 0;
    std::string path;
    std::string data;
};

/* A package that the library's check lets pass, and that it would give up while it applies it. */
class FaultyPackage : public Failure {
  public:
    FaultyPackage(int32_t code, const std::string &what) : Failure(what, "make the package again"), code_(code) {}
    [[nodiscard]] int32_t code() const noexcept { return code_; } /* with which the library would */

  private:
    int32_t code_;
};

/* Throws a FaultyPackage that names the entry that is wrong. */
std::vector<PackageEntry> packageEntriesOf(std::string_view payload, const std::string &file);
std::string packagePayload(const std::vector<PackageEntry> &entries);

/* Whether the library lets packages touch a path. */
bool packagePathPermitted(const std::string &path);

/* Shared by image install and package apply: asks, installs, and reports. */
struct Installation {
    std::string file;
    std::string version;
    bool yes = false;
    bool packageOnly = false;
};
int installImage(Output &out, const Installation &wanted);

}  // namespace vosctl

#endif
