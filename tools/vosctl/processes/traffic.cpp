/* SPDX-License-Identifier: MIT */
#include "traffic.h"

#include <algorithm>
#include <utility>

namespace vosctl {

namespace {

bool failed(const Message &message) {
    return message.error() != 0 || (message.isAnswer() && message.head && message.head->ulRetCode != 0);
}

}  // namespace

uint64_t Traffic::serviceBelow(unsigned perThousand) const {
    if (serviceNs.empty()) return 0;
    return serviceNs[(serviceNs.size() - 1) * perThousand / 1000];
}

std::string Traffic::asker() const {
    const auto most = std::max_element(askers.begin(), askers.end(),
                                       [](const auto &left, const auto &right) { return left.second < right.second; });
    return most == askers.end() ? "" : most->first;
}

void TrafficByName::add(const Message &message) {
    Traffic *const sender = message.fromName.empty() ? nullptr : &names_[message.fromName];
    Traffic *const receiver = message.toName.empty() ? nullptr : &names_[message.toName];
    const bool arrived = message.error() == 0;
    if (sender != nullptr && (arrived || !message.isAnswer())) {
        ++sender->messagesOut;
        sender->bytesOut += message.bytes;
    }
    if (receiver != nullptr && arrived) {
        ++receiver->messagesIn;
        receiver->bytesIn += message.bytes;
    }
    /* An error belongs to who has answered with it, or could not be reached. */
    Traffic *const blamed = message.isAnswer() ? sender : receiver;
    if (failed(message) && blamed != nullptr) ++blamed->errors;
    if (message.isAnswer() && sender != nullptr && message.served) sender->serviceNs.push_back(*message.served);
    if (!message.isAnswer() && receiver != nullptr && arrived && !message.fromName.empty())
        ++receiver->askers[message.fromName];
}

std::map<std::string, Traffic> TrafficByName::take() {
    for (auto &[name, traffic] : names_) std::sort(traffic.serviceNs.begin(), traffic.serviceNs.end());
    return std::exchange(names_, {});
}

}  // namespace vosctl
