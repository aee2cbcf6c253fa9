/* SPDX-License-Identifier: MIT */
#include "imageFile.h"

#include <vosFile.h>

#include <algorithm>

#include "../base/words.h"
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

constexpr std::size_t kEntryBytes = 32;

}  // namespace

const char *imageTypeName(uint32_t type) {
    constexpr const char *kNames[] = {"unknown", "boot", "application", "package"};
    return kNames[type <= kPackage ? type : 0];
}

/* A boot loader begins with anything, so where both ends look like a header the one whose CRC-32 matches counts. */
ImageHeader imageHeaderOf(std::string_view image, const std::string &file) {
    const std::string next = "name an image, or make one with \"vosctl image make\"";
    if (image.size() < kImageHeaderBytes)
        throw Failure(file + " is no image: it has " + std::to_string(image.size()) + " bytes, a header alone has 16",
                      next);
    const std::size_t tail = image.size() - kImageHeaderBytes;
    const ImageHeader front = headerAt(image, 0, image.substr(kImageHeaderBytes));
    const ImageHeader back = headerAt(image, tail, image.substr(0, tail));
    const bool first = front.type == kApplication || front.type == kPackage;
    const bool last = back.type == kBoot;
    if (!first && !last) throw Failure(file + " is no image: neither end of it is an image header", next);
    return first && (!last || matches(front) || !matches(back)) ? front : back;
}

std::string makeImage(uint32_t type, uint32_t compatA, uint32_t compatB, std::string_view payload) {
    const std::string header =
        networkBytes(type) + networkBytes(compatA) + networkBytes(compatB) + networkBytes(crc32Of(payload));
    return type == kBoot ? std::string(payload) + header : header + std::string(payload);
}

Compatibility installedCompatibility() {
    std::string header(kImageHeaderBytes, '\0');
    const int32_t count = vosFileRead(szAppFileName, header.data(), lengthOf(header));
    if (count != static_cast<int32_t>(header.size()))
        throw Failure(std::string("there is no application image at ") + szAppFileName + " to compare with",
                      "a device without one accepts no image; put the first one there by hand, made with --compat");
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
    installedCompatibility(); /* its absence is the usual reason */
    return {"the device could not do it (code " + std::to_string(code) + ")",
            "run it again with --verbose to see the library's reason"};
}

bool packagePathPermitted(const std::string &path) {
    return path.starts_with("/app/preZEB.sh") || path.starts_with("/app/oem");
}

std::string packagePayload(const std::vector<PackageEntry> &entries) {
    std::string body;
    for (const PackageEntry &entry : entries) {
        const std::string name = entry.kind == 2 ? std::string() : entry.path + '\0';
        body += networkBytes(VOS_PACKAGE_MAGIC) + networkBytes(entry.remove ? 1 : 0) + networkBytes(entry.kind) +
                networkBytes(lengthOf(name)) + networkBytes(lengthOf(entry.data)) + networkBytes(entry.mode) +
                std::string(8, '\0') + name + entry.data;
    }
    return networkBytes(VOS_PACKAGE_MAGIC) + networkBytes(lengthOf(body)) +
           networkBytes(static_cast<uint32_t>(entries.size())) + networkBytes(0) + body;
}

std::vector<PackageEntry> packageEntriesOf(std::string_view payload, const std::string &file) {
    if (payload.size() < 16 || networkWord(payload, 0) != VOS_PACKAGE_MAGIC)
        throw FaultyPackage(VOS_ERR_PACKAGE_MAGIC, file + " holds no package: its magic word is missing");
    if (networkWord(payload, 4) != payload.size() - 16)
        throw FaultyPackage(VOS_ERR_PACKAGE_LENGTH, file + " is not as long as the package's length word says");
    std::vector<PackageEntry> entries;
    std::string_view rest = payload.substr(16);
    const uint32_t count = networkWord(payload, 8);
    for (uint32_t index = 1; index <= count; ++index) {
        const std::string where = "entry " + std::to_string(index) + " of " + file;
        if (rest.size() < kEntryBytes || networkWord(rest, 0) != VOS_PACKAGE_MAGIC)
            throw FaultyPackage(VOS_ERR_PACKAGE_MAGIC, where + " does not begin with the magic word");
        const uint64_t name = networkWord(rest, 12);
        const uint64_t data = networkWord(rest, 16);
        if (kEntryBytes + name + data > rest.size()) throw FaultyPackage(VOS_ERROR, where + " ends beyond the package");
        PackageEntry entry{networkWord(rest, 4) != 0, networkWord(rest, 8), networkWord(rest, 20),
                           std::string(rest.substr(kEntryBytes, name)),
                           std::string(rest.substr(kEntryBytes + name, data))};
        if (entry.kind < 2 && (name == 0 || entry.path.back() != '\0'))
            throw FaultyPackage(VOS_ERROR, where + " has no path");
        entry.path.erase(std::min(entry.path.find('\0'), entry.path.size()));
        entries.push_back(std::move(entry));
        rest.remove_prefix(kEntryBytes + name + data);
    }
    return entries;
}

}  // namespace vosctl
