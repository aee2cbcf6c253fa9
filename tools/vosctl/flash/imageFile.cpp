/* SPDX-License-Identifier: MIT */
#include "imageFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vosFile.h>

#include "../base/failure.h"
#include "../base/fd.h"
#include "../base/words.h"
#include "../terminal/payload.h"
#include "deviceFile.h"
#include "store.h"

namespace vosctl {

namespace {

ImageHeader headerAt(std::string_view image, std::size_t offset, std::string_view payload) {
    return {networkWord(image, offset), networkWord(image, offset + 4), networkWord(image, offset + 8),
            networkWord(image, offset + 12), payload};
}

bool matches(const ImageHeader &header) { return crc32Of(header.payload) == header.crc; }

std::string wordsOf(uint32_t a, uint32_t b) { return hexWord(a) + " and " + hexWord(b); }

Refusal misfit(const ImageHeader &header) {
    const Compatibility installed = installedCompatibility();
    return {"its compatibility words are " + wordsOf(header.compatA, header.compatB) +
                ", those of the installed application " + wordsOf(installed.a, installed.b),
            "take an image made for this device"};
}

Refusal damaged(const ImageHeader &header) {
    return {"its payload does not match its CRC-32: the header says " + hexWord(header.crc) + ", the payload has " +
                hexWord(crc32Of(header.payload)),
            "the file is damaged or cut; fetch it again"};
}

constexpr const char *kNameAnImage = "name an image, or make one with \"vosctl image make\"";

Failure noImage(const std::string &file) {
    return {file + " is no image: neither end of it is an image header", kNameAnImage};
}

void requireEnds(const std::string &file) {
    const Fd opened{open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    struct stat status {};
    if (file == "-" || !opened || fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    if (status.st_size < static_cast<off_t>(kImageHeaderBytes)) return;
    std::string front(4, '\0');
    std::string back(4, '\0');
    if (pread(opened.get(), front.data(), 4, 0) != 4) return;
    if (pread(opened.get(), back.data(), 4, status.st_size - static_cast<off_t>(kImageHeaderBytes)) != 4) return;
    const uint32_t first = networkWord(front, 0);
    if (first != kApplication && first != kPackage && networkWord(back, 0) != kBoot) throw noImage(file);
}

}  // namespace

const char *imageTypeName(uint32_t type) {
    constexpr const char *kNames[] = {"unknown", "boot", "application", "package"};
    return kNames[type <= kPackage ? type : 0];
}

/* When the size is known, both ends of the file are read first, so that a large file that is no image is not read
 * whole. */
std::string readImage(const std::string &file) {
    requireEnds(file);
    return readWhole(file);
}

/* A boot loader begins with anything, so where both ends look like a header the one whose CRC-32 matches counts. */
ImageHeader imageHeaderOf(std::string_view image, const std::string &file) {
    if (image.size() < kImageHeaderBytes)
        throw Failure(file + " is no image: it has " + std::to_string(image.size()) + " bytes, a header alone has 16",
                      kNameAnImage);
    const std::size_t tail = image.size() - kImageHeaderBytes;
    const ImageHeader front = headerAt(image, 0, image.substr(kImageHeaderBytes));
    const ImageHeader back = headerAt(image, tail, image.substr(0, tail));
    const bool first = front.type == kApplication || front.type == kPackage;
    const bool last = back.type == kBoot;
    if (!first && !last) throw noImage(file);
    return first && (!last || matches(front) || !matches(back)) ? front : back;
}

bool isWholeApplication(std::string_view image) {
    if (image.size() < kImageHeaderBytes) return false;
    const ImageHeader header = headerAt(image, 0, image.substr(kImageHeaderBytes));
    return header.type == kApplication && matches(header);
}

std::string makeImage(uint32_t type, uint32_t compatA, uint32_t compatB, std::string_view payload) {
    const std::string header =
        networkBytes(type) + networkBytes(compatA) + networkBytes(compatB) + networkBytes(crc32Of(payload));
    return type == kBoot ? std::string(payload) + header : header + std::string(payload);
}

Compatibility installedCompatibility() {
    requireRegularFile(szAppFileName);
    std::string header(kImageHeaderBytes, '\0');
    const int32_t count = vosFileRead(szAppFileName, header.data(), lengthOf(header));
    if (count != static_cast<int32_t>(header.size())) {
        throw Failure(
            std::string("there is no application image at ") + szAppFileName + " to compare with",
            "put the backup back with \"vosctl image restore\", or the first image there by hand, made with --compat");
    }
    return {networkWord(header, 4), networkWord(header, 8)};
}

Compatibility compatibilityOf(const std::string &a, const std::string &b) {
    if (a.empty()) return installedCompatibility();
    return {wordOf(a).value_or(0), wordOf(b).value_or(0)};
}

Refusal refusalOf(int32_t code, uint32_t type, const ImageHeader &header) {
    switch (code) {
        case VOS_ERR_IMAGE_TYPE:
            return {
                std::string("it is an image of type ") + imageTypeName(header.type) + ", not " + imageTypeName(type),
                "take an image of the other type"};
        case VOS_ERR_IMAGE_COMPAT:
            return misfit(header);
        case VOS_ERR_IMAGE_CRC:
            return damaged(header);
        case VOS_ERR_PACKAGE_MAGIC:
            return {"the package or one of its entries does not begin with the magic word", "make the package again"};
        case VOS_ERR_PACKAGE_LENGTH:
            return {"the package's length word does not match its length", "make the package again"};
        case VOS_ERR_ENTRY_KIND:
            return {"the package holds an entry of a kind that the device does not know", "make the package again"};
        case VOS_ERR_MEMORY:
            return {"there is not enough memory", "end other programs and try again"};
        default:
            break;
    }
    installedCompatibility(); /* throws when there is no application, which is the usual reason */
    return {"the device could not do it (code " + std::to_string(code) + ")",
            "run it again with --verbose to see the library's reason"};
}

}  // namespace vosctl
