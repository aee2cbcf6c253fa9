/* SPDX-License-Identifier: MIT */
/* Files and bytes for the tests of everything on flash. */
#ifndef TESTS_VOS_FILE_FLASH_H
#define TESTS_VOS_FILE_FLASH_H

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/faults.h"

namespace vostest {

inline void putFile(const std::string &path, const std::string &content) {
    std::ofstream{path, std::ios::binary | std::ios::trunc} << content;
}

inline std::string fileContent(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.is_open()) << path;
    return {std::istreambuf_iterator<char>(in), {}};
}

inline bool present(const std::string &path) { return std::filesystem::exists(path); }

inline unsigned modeOf(const std::string &path) {
    struct stat state {};
    EXPECT_EQ(stat(path.c_str(), &state), 0) << path;
    return state.st_mode & 07777;
}

// The mode after this process has written to a file with that mode. Without CAP_FSETID in the first user namespace, the
// kernel clears the set-id bits.
inline unsigned modeAfterAWrite(unsigned mode) {
    const char *const probe = "/flash/mode-probe";
    std::ofstream(probe) << "x";
    EXPECT_EQ(chmod(probe, mode), 0);
    std::ofstream(probe, std::ios::app) << "x";
    const unsigned left = modeOf(probe);
    unlink(probe);
    return left;
}

inline const uint8_t *raw(const std::string &bytes) { return reinterpret_cast<const uint8_t *>(bytes.data()); }
inline uint32_t size32(const std::string &bytes) { return static_cast<uint32_t>(bytes.size()); }

/* The bytes of a word in this machine's order, and in network byte order. */
inline std::string nativeWord(uint32_t value) {
    std::string bytes(sizeof value, '\0');
    memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}
inline std::string networkWord(uint32_t value) {
    return nativeWord(std::endian::native == std::endian::little ? __builtin_bswap32(value) : value);
}

/* The line of a failed call. */
inline std::string failedLine(const std::string &before, int error = EIO) {
    return before + " failed errno:" + errnoText(error) + ".";
}

inline void expectLines(const std::vector<Attempt> &attempts, const std::string &call, long result,
                        const std::vector<std::string> &lines) {
    const Attempt &attempt = at(attempts, call);
    EXPECT_EQ(attempt.result, result) << call;
    EXPECT_THAT(attempt.messages, testing::ElementsAreArray(lines)) << call;
}

inline std::vector<std::string> namesOf(const std::vector<Attempt> &attempts) {
    std::vector<std::string> names;
    for (const Attempt &each : attempts) names.push_back(describe(each.point));
    return names;
}

}  // namespace vostest

#endif
