/* SPDX-License-Identifier: MIT */
/* The readers and writers of the partitions with a null body, which no exported call passes. Exits with the number of
 * wrong results; the log lines are compared as a whole. */
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "vosDebug.h"
#include "vosSysConfig/partition.h"

namespace {

constexpr const char *kLines[] = {"readBootConfigData:paramters error.", "writeBootConfigData:paramters error.",
                                  "readFlashAppData:paramters error.", "writeFlashAppData:paramters error."};
constexpr const char *kOutput = "/tmp/output";

int wrong = 0;

void expect(bool right, const char *what) {
    if (right) return;
    fprintf(stderr, "%s\n", what);
    ++wrong;
}

}  // namespace

int main() {
    expect(freopen(kOutput, "w", stdout) != nullptr, "standard output");
    expect(vos::readBootConfigData(nullptr) == VOS_ERR_PARAM, "readBootConfigData");
    expect(vos::writeBootConfigData(nullptr) == VOS_ERROR, "writeBootConfigData");
    expect(vos::readFlashAppData(nullptr) == VOS_ERR_PARAM, "readFlashAppData");
    expect(vos::writeFlashAppData(nullptr) == VOS_ERROR, "writeFlashAppData");
    fflush(stdout);

    std::array<char, 4096> text{};
    FILE *const output = fopen(kOutput, "r");
    expect(output != nullptr && fread(text.data(), 1, text.size() - 1, output) > 0, "no lines");
    const char *from = text.data();
    for (const char *const line : kLines) {
        const char *const found = strstr(from, line);
        expect(found != nullptr, line);
        if (found != nullptr) from = found + strlen(line);
    }
    expect(strchr(from, '\r') == nullptr && access("/app/factory", F_OK) != 0, "more than four lines, or a file");
    return wrong;
}
