/* SPDX-License-Identifier: MIT */
/**
 * @file vosTestCapture.hpp
 * A capture that "vosctl capture -w FILE NAME" has written becomes the script of a played process:
 *
 *     vos::test::Peer server("server", vos::test::scriptOfFile("server.pcapng", "server"));
 *
 * Each request that the process received is expected once more, with the same bytes, through the same socket and in the
 * same order, and gets the answers that it got. A request that was not answered is not answered. Control messages, such
 * as those of "vosctl debug", are left out. When the capture is of the requesters and not of the process itself, their
 * requests and the answers that reached them are taken.
 *
 * An answer comes before the next request is taken, also where the recorded process answered later than that.
 *
 * Header only; C++17; it uses exceptions. Nothing here calls libvos.
 */
#ifndef VOS_TEST_CAPTURE_HPP
#define VOS_TEST_CAPTURE_HPP

#include <chrono>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

#include "vosTestCopies.hpp"
#include "vosTestScript.hpp"

namespace vos::test {

/** Whether the answers of a capture are as late as they were. */
enum class Delays { leftOut, kept };

/** Whether these are the bytes of a capture; if not, they may be a script. */
inline bool isCapture(std::string_view bytes) { return bytes.substr(0, 4) == "\n\r\r\n"; }

/** The file under a name in /tmp/vos: a directory before the name does not count. */
inline std::string socketPathOf(const std::string &process) {
    return "/tmp/vos/" + process.substr(process.rfind('/') + 1);
}

namespace detail {

/** Control messages go to every process, and none answers them. */
inline bool isControl(uint32_t type) {
    return type == VOS_MSG_VOS_DEBUG || type == VOS_MSG_SMD_DEBUG || type == VOS_MSG_STDOUT_REDIRECT ||
           type == VOS_MSG_TAP;
}

/** The datagram of an answer to a request of this type. */
inline std::string answerTo(uint32_t type, const Act &act, const std::string &payload) {
    VOS_MSG_HEAD head{};
    head.ulType = type;
    head.ulRetCode = static_cast<uint32_t>(act.code);
    head.ulValue1 = 255;
    head.ulBufLen = act.announced.value_or(static_cast<uint32_t>(payload.size()));
    return std::string(reinterpret_cast<const char *>(&head), sizeof head) + payload;
}

/** Makes steps of copies, either of those of the played process or of those of its requesters. */
class Recording {
  public:
    Recording(std::string file, const std::string &process, Delays delays, std::vector<Copy> copies)
        : file_(std::move(file)), path_(socketPathOf(process)), delays_(delays), copies_(std::move(copies)) {
        /* The copies of several threads and processes may overtake each other on their way to the file. */
        std::stable_sort(copies_.begin(), copies_.end(),
                         [](const Copy &a, const Copy &b) { return a.head.ullMonotonicNs < b.head.ullMonotonicNs; });
        ofProcess_ = std::any_of(copies_.begin(), copies_.end(), [this](const Copy &each) {
            return each.head.ucWhat == VOS_MSG_TAP_RECEIVED && isPlayed(each.own());
        });
        for (const Copy &each : copies_)
            if (each.reportsMessage()) add(each);
    }

    Script script() {
        const std::string name = path_.substr(path_.rfind('/') + 1);
        if (script_.steps.empty())
            throw CaptureError(file_ + " holds no request to " + name + others(), "name a process that was captured");
        requireNoLoss();
        return std::move(script_);
    }

  private:
    /* The last request from a requester's path. A thread waits for one answer at a time, so an answer is its. */
    struct Last {
        std::optional<std::size_t> step; /* nothing: it went to another process */
        uint32_t type = 0;
        uint64_t ns = 0; /* when it came, or when its last answer went */
    };

    bool isPlayed(const std::string &path) const { return path == path_ || path == path_ + "High"; }

    void add(const Copy &copy) {
        const std::string requester = ofProcess_ ? copy.peer() : copy.own();
        const std::string receiver = ofProcess_ ? copy.own() : copy.peer();
        const bool in = (copy.head.ucWhat == VOS_MSG_TAP_RECEIVED) == ofProcess_; /* towards the played process */
        Last &last = last_[{copy.head.ulProcessId, requester}];
        if (copy.head.ucStage == VOS_MSG_TAP_ANSWER) {
            if (!in && last.step) addAnswer(copy, last);
        } else if (in && copy.head.iResult >= 0) {
            last = {};
            if (isPlayed(receiver))
                addRequest(copy, last, receiver != path_);
            else
                others_.insert(receiver);
        }
    }

    void addRequest(const Copy &copy, Last &last, bool high) {
        requireWhole(copy);
        const auto head = copy.messageHead();
        if (!head || isControl(head->ulType)) return; /* without a header it is no message */
        Step step;
        step.match.kind = Match::Kind::text;
        step.match.lane = high ? Match::Lane::high : Match::Lane::normal;
        step.match.type = head->ulType;
        step.match.payload = copy.payload();
        last = {script_.steps.size(), head->ulType, copy.head.ullMonotonicNs};
        script_.steps.push_back(std::move(step));
        processes_.insert(copy.head.ulProcessId);
    }

    void addAnswer(const Copy &copy, Last &last) {
        if (copy.head.iResult < 0 && copy.message.empty()) return; /* none came */
        requireWhole(copy);
        std::vector<Act> &acts = script_.steps[*last.step].acts;
        const auto delay = std::chrono::round<std::chrono::milliseconds>(
            std::chrono::nanoseconds(std::min<uint64_t>(copy.head.ullMonotonicNs - last.ns, kLongestDelayNs)));
        last.ns = copy.head.ullMonotonicNs;
        if (delays_ == Delays::kept && delay.count() > 0) {
            Act wait;
            wait.kind = Act::Kind::wait;
            wait.delay = delay;
            acts.push_back(std::move(wait));
        }
        acts.push_back(answer(copy, last.type));
    }

    /* One that the player can make from its code and payload is written so; any other is sent byte by byte. */
    static Act answer(const Copy &copy, uint32_t type) {
        Act act;
        const auto head = copy.messageHead();
        if (head) {
            act.code = static_cast<int32_t>(head->ulRetCode);
            act.payload = copy.payload();
            if (head->ulBufLen != act.payload.size()) act.announced = head->ulBufLen;
        }
        if (head && answerTo(type, act, act.payload) == copy.message) return act;
        Act raw;
        raw.kind = Act::Kind::raw;
        raw.payload = copy.message;
        return raw;
    }

    void requireWhole(const Copy &copy) const {
        if (copy.head.ulWholeLen == copy.message.size()) return;
        throw CaptureError(
            file_ + " holds only a part of a message of " + std::to_string(copy.head.ulWholeLen) + " bytes",
            "capture with the whole payload");
    }

    void requireNoLoss() const {
        uint64_t lost = 0;
        for (const uint32_t process : processes_) lost += lostBy(process);
        if (lost == 0) return;
        throw CaptureError(
            file_ + " is not complete: " + std::to_string(lost) + " copies were lost when it was captured",
            "capture again, with fewer names");
    }

    /* A count goes on from copy to copy, those that tell of the tap included. */
    uint64_t lostBy(uint32_t process) const {
        LossCount count;
        uint64_t lost = 0;
        for (const Copy &each : copies_)
            if (each.head.ulProcessId == process) lost += count.more(each.head);
        return lost;
    }

    /* The processes that were sent requests, for the message. */
    std::string others() const {
        std::string names;
        for (const std::string &path : others_)
            if (path.compare(0, 9, "/tmp/vos/") == 0)
                names += (names.empty() ? "; it holds some to " : ", ") + path.substr(9);
        return names;
    }

    static constexpr uint64_t kLongestDelayNs = 86'400'000'000'000; /* a day, as in a script */

    std::string file_;
    std::string path_;
    Delays delays_;
    std::vector<Copy> copies_;
    bool ofProcess_ = false;
    Script script_;
    std::map<std::pair<uint32_t, std::string>, Last> last_; /* by process and requester's path */
    std::set<uint32_t> processes_;                          /* whose copies the script is made of */
    std::set<std::string> others_;
};

}  // namespace detail

/** Makes a script of a capture's bytes. `file` is its name in messages. Throws CaptureError when it is none, is damaged
 *  or cut, holds only parts of messages, has lost copies, or holds no request to this process. */
inline Script scriptOfCapture(std::string_view bytes, const std::string &file, const std::string &process,
                              Delays delays = Delays::leftOut) {
    CaptureReader reader(file, [bytes](char *into, std::size_t size) mutable {
        const std::size_t count = bytes.copy(into, size);
        bytes.remove_prefix(count);
        return count;
    });
    std::vector<Copy> copies;
    while (const auto datagram = reader.next()) {
        auto copy = copyOf(*datagram);
        if (!copy)
            throw CaptureError(file + " holds a packet that is no whole copy of a message",
                               "take the file as \"vosctl capture\" has written it");
        copies.push_back(std::move(*copy));
    }
    if (reader.cut()) throw CaptureError(file + " is cut off in its last block", "capture again");
    return detail::Recording(file, process, delays, std::move(copies)).script();
}

/** Reads a capture, or a script as vosTestScript.hpp describes it; that has its own delays. Throws CaptureError,
 *  ScriptError, or std::system_error when the file cannot be read. */
inline Script scriptOfFile(const std::string &file, const std::string &process, Delays delays = Delays::leftOut) {
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) throw std::system_error(errno, std::generic_category(), file);
    return isCapture(bytes) ? scriptOfCapture(bytes, file, process, delays) : Script::parse(bytes, file);
}

}  // namespace vos::test

#endif
