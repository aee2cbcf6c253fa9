/* SPDX-License-Identifier: MIT */
#include "runningConfiguration.h"

#include <vosMsg.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "../base/failure.h"
#include "names.h"

namespace vosctl {

namespace {

constexpr uint32_t kLargest = 4 * 1024 * 1024; /* what the library takes */

[[noreturn]] void explain(const std::string &name, int32_t code) {
    if (code == VOS_ERR_NO_HANDLER)
        throw Failure(name + " has no running configuration to tell", "ask a process that has registered a builder");
    if (code == VOS_ERROR)
        explainSilence(name, Pair::high, "the running configuration of " + name + " could not be had",
                       "run it again with --verbose");
    throw Failure(name + " refused to tell its running configuration with code " + std::to_string(code),
                  "look into the log of that process, as with \"vosctl log " + name + "\"");
}

}  // namespace

std::string runningConfiguration(const std::string &name) {
    requireReachable(name, Pair::high);
    std::vector<char> buffer(kLargest);
    uint32_t left = kLargest;
    const int32_t code = vosMsgBldrunSend(name.c_str(), buffer.data(), &left, 0, 0);
    if (code != VOS_OK) explain(name, code);
    if (left == 0)
        throw Failure("the running configuration of " + name + " fills all of the 4 MiB that it may have",
                      "it may have been cut; get it from the process another way");
    return {buffer.data(), kLargest - std::min(left, kLargest)};
}

}  // namespace vosctl
