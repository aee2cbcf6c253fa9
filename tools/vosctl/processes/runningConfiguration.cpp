/* SPDX-License-Identifier: MIT */
#include "runningConfiguration.h"

#include <vosMsg.h>

#include "../base/failure.h"
#include "exchange.h"
#include "names.h"

namespace vosctl {

namespace {

constexpr uint32_t kLargest = 4 * 1024 * 1024; /* the largest size that the library accepts */

[[noreturn]] void explain(const std::string &name, int32_t code) {
    if (code == VOS_ERR_NO_HANDLER)
        throw Failure(name + " has no running configuration to report", "ask a process that has registered a builder");
    throw Failure(name + " refused to report its running configuration with code " + std::to_string(code),
                  "look into the log of that process, as with \"vosctl log " + name + "\"");
}

}  // namespace

std::string runningConfiguration(const std::string &name, uint32_t timeoutMs) {
    VOS_MSG_HEAD head{};
    head.ulType = VOS_MSG_TYPE_BLDRUN;
    head.ulBufLen = kLargest;
    const auto reply = Requester{name, Pair::high, timeoutMs}.ask(head, "", kLargest);
    if (!reply)
        explainSilence(name, Pair::high, noAnswerFrom(name, timeoutMs),
                       "see with \"vosctl ps\" whether it is busy, or give it more --timeout");
    if (reply->head.ulRetCode != VOS_OK) explain(name, static_cast<int32_t>(reply->head.ulRetCode));
    if (reply->head.ulBufLen >= kLargest || reply->payload.size() < reply->head.ulBufLen)
        throw Failure("the running configuration of " + name + " may have been cut, and nothing was changed",
                      "get it from the process another way");
    return reply->payload.substr(0, reply->head.ulBufLen);
}

}  // namespace vosctl
