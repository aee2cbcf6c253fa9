/* SPDX-License-Identifier: MIT */
#include "messages.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "names.h"
#include "socketDirectory.h"

namespace vosctl {

namespace {

constexpr std::size_t kMostRequests = 65536; /* paths of requesters that are remembered */

Side sideOf(const VOS_MSG_TAP_HEAD &head) {
    return {head.ullWallNs, head.ullMonotonicNs, head.ulProcessId, head.ulThreadId, head.iResult, head.iErrno};
}

/* What the copies of both sides have in common. A message to or from a requester is known by the requester's path; of
 * others there is the receiver's path and the message itself. */
std::string keyOf(const Message &message) {
    const char kind = message.isAnswer() ? 'a' : 'q';
    const std::string &requester = message.isAnswer() ? message.to : message.from;
    if (!requester.empty()) return kind + requester;
    const std::string type = message.head ? std::to_string(message.head->ulType) : "";
    return kind + ("?" + message.to) + "?" + type + "?" + std::to_string(message.bytes);
}

Message messageOf(const Copy &copy) {
    Message message;
    const bool isSent = copy.head.ucWhat == VOS_MSG_TAP_SENT;
    (isSent ? message.sent : message.received) = sideOf(copy.head);
    message.from = isSent ? copy.own() : copy.peer();
    message.to = isSent ? copy.peer() : copy.own();
    message.stage = copy.head.ucStage;
    const bool atServer = isSent == message.isAnswer();
    if (atServer) message.socket = copy.head.ucSocket;
    message.head = copy.messageHead();
    const uint32_t headLength = copy.head.ulHeadAt + static_cast<uint32_t>(sizeof(VOS_MSG_HEAD));
    message.bytes = copy.head.ulWholeLen - std::min(copy.head.ulWholeLen, headLength);
    message.payload = copy.payload();
    return message;
}

/* The copy of the other side adds what the first one does not tell. */
void join(Message &message, Message &&other) {
    if (other.sent) message.stage = other.stage; /* the sender knows whether it waits */
    if (other.sent) message.sent = other.sent;
    if (other.received) message.received = other.received;
    if (message.from.empty()) message.from = std::move(other.from);
    if (message.to.empty()) message.to = std::move(other.to);
    if (message.socket == 0) message.socket = other.socket;
    if (!message.head) message.head = other.head;
    message.bytes = std::max(message.bytes, other.bytes);
    if (other.payload.size() > message.payload.size()) message.payload = std::move(other.payload);
}

/* Copies come a little out of order. A moment far in the future is one of another clock, and not to be waited for. */
bool isRecent(uint64_t moment, uint64_t now) {
    constexpr uint64_t kDisorderNs = 1'000'000'000;
    return moment > now ? moment - now < kDisorderNs : now - moment < Messages::kPatienceNs;
}

std::optional<uint64_t> between(const std::optional<Side> &begin, const std::optional<Side> &end) {
    if (!begin || !end || end->monotonicNs < begin->monotonicNs) return {};
    return end->monotonicNs - begin->monotonicNs;
}

}  // namespace

uint32_t requesterPid(const std::string &path) {
    const std::string file = fileOf(path);
    uint32_t pid = 0;
    if (!isRequester(file)) return 0;
    constexpr std::size_t kBegin = sizeof "clientp" - 1;
    std::from_chars(file.data() + kBegin, file.data() + file.size(), pid);
    return pid;
}

int32_t Message::error() const {
    if (sent && sent->result < 0) return sent->error;
    return received && received->result < 0 ? received->error : 0;
}

void Messages::add(const Copy &copy) {
    learn(copy);
    count(copy);
    if (!copy.reportsMessage()) return;
    Message message = messageOf(copy);
    /* What was not sent has not arrived, and what has not arrived was not sent. */
    const bool failed = copy.head.iResult < 0;
    std::string key = keyOf(message);
    if (!failed) {
        auto &open = open_[key];
        if (const Shared found = partner(open, copy)) {
            join(*found, std::move(message));
            std::erase(open, found);
            if (open.empty()) open_.erase(key);
            return;
        }
    }
    const Shared shared = std::make_shared<Message>(std::move(message));
    if (!failed) open_[key].push_back(shared);
    if (!shared->isAnswer() && !shared->from.empty() && !failed) remember(shared);
    forgetOld(copy.head.ullMonotonicNs);
    waiting_.push_back({shared, failed ? "" : std::move(key)});
}

/* A requester's path is used again and again. A received message belongs to the last that was sent before it, and a
 * sent one to the first that was received after it. */
Messages::Shared Messages::partner(std::deque<Shared> &open, const Copy &copy) const {
    Shared found;
    for (const Shared &each : open) {
        if (copy.head.ucWhat == VOS_MSG_TAP_RECEIVED) {
            if (each->sent && !each->received && each->sent->monotonicNs <= copy.head.ullMonotonicNs) found = each;
        } else if (found == nullptr && each->received && !each->sent &&
                   each->received->monotonicNs >= copy.head.ullMonotonicNs) {
            found = each;
        }
    }
    return found;
}

bool Messages::mayBeJoined(const Message &message) const {
    if (message.error() != 0 || (message.sent && message.received)) return false;
    const std::string &requester = message.isAnswer() ? message.to : message.from;
    const uint32_t pid = requesterPid(requester);
    const bool otherIsRequester = message.isAnswer() ? message.sent.has_value() : message.received.has_value();
    return !otherIsRequester || pid == 0 || watched_.contains(pid);
}

std::optional<Message> Messages::next(uint64_t monotonicNs) {
    if (waiting_.empty()) return {};
    const Waiting first = waiting_.front();
    const bool atTheEnd = monotonicNs == UINT64_MAX; /* then nothing waits, whatever moment a copy tells */
    if (!atTheEnd && isRecent(first.message->first().monotonicNs, monotonicNs) && mayBeJoined(*first.message))
        return {};
    waiting_.pop_front();
    const auto open = open_.find(first.key);
    if (open != open_.end()) {
        std::erase(open->second, first.message);
        if (open->second.empty()) open_.erase(open);
    }
    if (first.message->isAnswer()) complete(*first.message);
    Message message = *first.message;
    first.message->payload.clear(); /* a request is remembered until its answer comes */
    const auto name = [&](const std::optional<Side> &side, const std::string &path) {
        return side ? nameOf(side->pid) : nameOf(path);
    };
    message.fromName = name(message.sent, message.from);
    message.toName = name(message.received, message.to);
    return message;
}

/* Nobody answers most of the messages of some requesters. */
void Messages::remember(const Shared &request) {
    constexpr std::size_t kMost = 16;
    auto &requests = requests_[request->from];
    requests.push_back(request);
    if (requests.size() > kMost) requests.pop_front();
}

/* The last request of that requester before the answer is the one that was answered. */
void Messages::complete(Message &answer) {
    const auto found = requests_.find(answer.to);
    if (found == requests_.end()) return;
    auto &requests = found->second;
    Shared request;
    while (!requests.empty() && requests.front()->first().monotonicNs <= answer.first().monotonicNs) {
        request = requests.front();
        requests.pop_front();
    }
    if (requests.empty()) requests_.erase(found);
    if (!request) return;
    answer.queued = between(request->sent, request->received);
    answer.served = between(request->received, answer.sent);
    answer.total = between(request->sent, answer.received);
    if (answer.from.empty()) answer.from = request->to;
    if (answer.socket == 0) answer.socket = request->socket;
    if (!answer.sent && request->received) answer.fromName = nameOf(request->received->pid);
}

void Messages::learn(const Copy &copy) {
    const uint32_t pid = copy.head.ulProcessId;
    const std::string own = copy.own();
    if (copy.head.ucWhat == VOS_MSG_TAP_STARTED || copy.reportsMessage()) watched_.insert(pid);
    if (copy.head.ucWhat == VOS_MSG_TAP_STOPPED) watched_.erase(pid);
    const bool isMain = copy.head.ucWhat == VOS_MSG_TAP_STARTED || copy.head.ucSocket == VOS_MSG_TAP_NORMAL;
    if (isMain && !own.empty()) names_[pid] = fileOf(own);
    if (!own.empty() && copy.head.ucSocket != VOS_MSG_TAP_REQUESTER && names_.contains(pid))
        channels_[own] = names_[pid];
}

void Messages::learn(uint32_t pid, const std::string &name) { names_.try_emplace(pid, name); }

void Messages::count(const Copy &copy) {
    const uint64_t more = lost_[copy.head.ulProcessId].more(copy.head);
    if (more > 0) losses_[nameOf(copy.head.ulProcessId)] += more;
}

std::map<std::string, uint64_t> Messages::takeLosses() { return std::exchange(losses_, {}); }

std::string Messages::nameOf(uint32_t pid) const {
    const auto found = names_.find(pid);
    return found != names_.end() ? found->second : "pid " + std::to_string(pid);
}

std::string Messages::nameOf(const std::string &path) const {
    if (path.empty()) return "";
    const auto channel = channels_.find(path);
    if (channel != channels_.end()) return channel->second;
    if (const uint32_t pid = requesterPid(path); pid != 0) return nameOf(pid);
    std::string file = fileOf(path);
    if (file.size() > std::string_view(kHighEnd).size() && file.ends_with(kHighEnd))
        file.resize(file.size() - std::string_view(kHighEnd).size());
    return file;
}

/* Requests without an answer would be remembered for ever. */
void Messages::forgetOld(uint64_t monotonicNs) {
    if (requests_.size() <= kMostRequests) return;
    constexpr uint64_t kOldNs = 600'000'000'000;
    std::erase_if(requests_, [&](const auto &each) {
        return each.second.empty() || each.second.back()->first().monotonicNs + kOldNs < monotonicNs;
    });
    if (requests_.size() > kMostRequests) requests_.clear();
}

}  // namespace vosctl
