/* SPDX-License-Identifier: MIT */
#include "deviceTree.h"

#include <vosFile.h>
#include <vosSysConfig.h>

#include <array>
#include <filesystem>

#include "../base/failure.h"

namespace vosctl {

namespace {

std::string tree; /* without a slash at its end; empty: the machine's own */

/* The paths that the library exports, and the texts to which useDeviceTree() makes them point. */
struct ExportedPath {
    const char **variable;
    std::string text;
};
std::array<ExportedPath, 6> exported{{{&szVosCfgFileName, {}},
                                      {&szVosSyslogFileName, {}},
                                      {&szAppFileName, {}},
                                      {&szBootLoaderFileName, {}},
                                      {&szFactoryData, {}},
                                      {&szSysData, {}}}};

}  // namespace

std::string devicePath(const std::string &path) { return tree + path; }

void useDeviceTree(const std::string &root) {
    if (root.empty()) return;
    std::error_code failed;
    if (!std::filesystem::is_directory(root, failed))
        throw Failure("the device tree " + root + " is not a directory", "name the directory that holds flash and app");
    tree = root;
    while (!tree.empty() && tree.back() == '/') tree.pop_back();
    /* No journal: it belongs to this machine, and the device would not find an entry under the path that a file has
     * here. */
    if (!tree.empty()) szVosJournalDir = nullptr;
    for (ExportedPath &each : exported) {
        each.text = devicePath(*each.variable);
        *each.variable = each.text.c_str();
    }
}

}  // namespace vosctl
