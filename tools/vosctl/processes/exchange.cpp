/* SPDX-License-Identifier: MIT */
#include "exchange.h"

#include <poll.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <vector>

#include "../base/failure.h"
#include "../terminal/report.h"

namespace vosctl {

namespace {

constexpr int kSilentMs = 1000;        /* a longer wait is explained on the terminal */
constexpr uint32_t kRequestMark = 254; /* the first argument of an application's request */

struct Address {
    explicit Address(const std::string &path) { vosMsgLocalAddrInit(path.c_str(), &address, &length); }
    [[nodiscard]] const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address); }
    sockaddr_un address{};
    uint32_t length = 0;
};

Failure systemFailure(const std::string &what) {
    return {what + ": " + strerror(errno), "look for the cause with \"vosctl doctor\""};
}

void requireFitting(const std::string &payload) {
    if (payload.size() <= kLargestPayload) return;
    throw Failure(
        "the message has " + std::to_string(payload.size()) + " bytes and " + std::to_string(kLargestPayload) + " fit",
        "send less at a time");
}

VOS_MSG_HEAD applicationHead(const std::string &payload, bool answerWanted) {
    VOS_MSG_HEAD head{};
    head.ulType = VOS_MSG_TYPE_SELF;
    head.ulNoReturn = answerWanted ? 0 : 1;
    head.ulValue1 = kRequestMark;
    head.ulBufLen = static_cast<uint32_t>(payload.size());
    return head;
}

void sayWhatIsAwaited(const std::string &name, int timeoutMs) {
    if (isatty(STDERR_FILENO) != 1) return;
    const std::string limit = timeoutMs < 0 ? "without end" : "at most " + std::to_string(timeoutMs) + " ms";
    fprintf(stderr, "Waiting for the answer of %s, %s; Ctrl-C ends it, --timeout limits it.\n", printable(name).c_str(),
            limit.c_str());
}

}  // namespace

Requester::Requester(std::string name, Pair which, uint32_t timeoutMs)
    : name_(std::move(name)), which_(which), timeoutMs_(timeoutMs) {
    requireReachable(name_, which_);
    socket_ = Fd{vosMsgLocalSocket(timeoutMs_)};
    if (!socket_) throw systemFailure("a socket cannot be created");
    bindSocket();
    try {
        connectSocket();
    } catch (const Failure &) {
        unlink(path_.c_str());
        throw;
    }
}

Requester::~Requester() { unlink(path_.c_str()); }

void Requester::bindSocket() {
    std::array<char, sizeof(sockaddr_un::sun_path)> path{};
    vosMsgGetLocalFile(path.data(), path.size());
    path_ = path.data();
    unlink(path_.c_str());
    const Address own{path_};
    if (bind(socket_.get(), own.get(), own.length) == -1) throw systemFailure(path_ + " cannot be made");
    vosMsgSocketOptmize(socket_.get(), 0);
}

void Requester::connectSocket() {
    const std::string path = socketPath(name_, which_);
    const Address to{path};
    if (connect(socket_.get(), to.get(), to.length) == -1) {
        const Failure failure = systemFailure(path + " cannot be reached");
        explainSilence(name_, which_, failure.what(), failure.nextStep());
    }
}

void Requester::send(const std::string &payload, bool answerWanted) {
    requireFitting(payload);
    send(applicationHead(payload, answerWanted), payload);
}

void Requester::send(const VOS_MSG_HEAD &head, const std::string &payload) {
    std::vector<char> datagram(sizeof head + payload.size());
    memcpy(datagram.data(), &head, sizeof head);
    memcpy(datagram.data() + sizeof head, payload.data(), payload.size());
    if (vosMsgSendStream(socket_.get(), datagram.data(), static_cast<uint32_t>(datagram.size()), nullptr, 0) < 0) {
        const Failure failure = systemFailure("the message could not be sent to " + name_);
        explainSilence(name_, which_, failure.what(), failure.nextStep());
    }
}

std::optional<Answer> Requester::ask(const std::string &payload) {
    requireFitting(payload);
    auto reply = ask(applicationHead(payload, true), payload, VOS_MSG_BUFFER_LEN);
    if (!reply) return {};
    reply->payload.resize(std::min<std::size_t>(reply->head.ulBufLen, reply->payload.size()));
    return Answer{static_cast<int32_t>(reply->head.ulRetCode), std::move(reply->payload), reply->roundTrip};
}

std::optional<Reply> Requester::ask(const VOS_MSG_HEAD &head, const std::string &payload, std::size_t largest) {
    const auto begin = std::chrono::steady_clock::now();
    send(head, payload);
    if (!awaitAnswer()) return {};
    std::vector<char> datagram(sizeof head + largest);
    const ssize_t length = recv(socket_.get(), datagram.data(), datagram.size(), 0);
    const auto roundTrip = std::chrono::steady_clock::now() - begin;
    if (length < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return {};
    if (length < 0) throw systemFailure("the answer of " + name_ + " could not be received");
    if (static_cast<std::size_t>(length) < sizeof head)
        throw Failure(name_ + " answered with " + std::to_string(length) + " bytes, which are no message",
                      "see what the process is");
    Reply reply{{}, {datagram.data() + sizeof head, static_cast<std::size_t>(length) - sizeof head}, roundTrip};
    memcpy(&reply.head, datagram.data(), sizeof reply.head);
    return reply;
}

/* True when an answer can be received, or when receiving reports a failure. */
bool Requester::awaitAnswer() const {
    const int whole = timeoutMs_ == 0 || timeoutMs_ > INT_MAX ? -1 : static_cast<int>(timeoutMs_);
    const int first = whole < 0 ? kSilentMs : std::min(whole, kSilentMs);
    pollfd answer{socket_.get(), POLLIN, 0};
    if (poll(&answer, 1, first) != 0) return true;
    if (first == whole) return false;
    sayWhatIsAwaited(name_, whole);
    return poll(&answer, 1, whole < 0 ? -1 : whole - first) != 0;
}

std::string noAnswerFrom(const std::string &name, uint32_t timeoutMs) {
    return "no answer from " + name + " within " + std::to_string(timeoutMs) + " ms";
}

}  // namespace vosctl
