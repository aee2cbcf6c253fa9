/* SPDX-License-Identifier: MIT */
/* Images and file packages: their layout, and the meaning of the library's result codes for them. */
#ifndef VOSCTL_IMAGE_FILE_H
#define VOSCTL_IMAGE_FILE_H

#include <cstdint>
#include <string>
#include <string_view>

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

/* Reads an image file. Its two ends are examined before the whole file is read. Throws a Failure when it is no image.
 */
std::string readImage(const std::string &file);

/* Finds the header of an image. Throws a Failure when the bytes are no image. */
ImageHeader imageHeaderOf(std::string_view image, const std::string &file);

/* Whether the bytes are an application image whose CRC-32 matches. */
bool isWholeApplication(std::string_view image);

std::string makeImage(uint32_t type, uint32_t compatA, uint32_t compatB, std::string_view payload);

struct Compatibility {
    uint32_t a = 0;
    uint32_t b = 0;
};

/* The words of the installed application. Throws a Failure when there is none. */
Compatibility installedCompatibility();

/* The words on the command line, or else those of the installed application. */
Compatibility compatibilityOf(const std::string &a, const std::string &b);

struct Refusal {
    std::string reason; /* what the code means */
    std::string nextStep;
};

/* The meaning of a result code that the library returns for an image. */
Refusal refusalOf(int32_t code, uint32_t type, const ImageHeader &header);

}  // namespace vosctl

#endif
