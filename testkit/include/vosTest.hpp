/* SPDX-License-Identifier: MIT */
/**
 * @file vosTest.hpp
 * Plays a process that the code under test talks to: under its name, with the answers, delays and faults that a test
 * wants.
 *
 *     vos::test::Peer server("server");
 *     server.expect("work").answer(1, "hello");
 *     server.expect("work").silence();
 *     ...the code under test sends its requests...
 *     const vos::test::Report report = server.finish();
 *     EXPECT_TRUE(report.ok()) << report.text();
 *
 * The sockets are those of the process: "/tmp/vos/server" and "/tmp/vos/serverHigh". They are served by a thread, so a
 * test can play several processes. An unexpected request is answered with VOS_ERROR, and is in the report. Run such
 * tests in vos-sandbox: then no process of the machine is in the way.
 *
 * Header only; C++17; it uses exceptions and threads.
 */
#ifndef VOS_TEST_HPP
#define VOS_TEST_HPP

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vosMsg.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "vosTestCapture.hpp"
#include "vosTestScript.hpp"

namespace vos::test {

/** A request that came, and what was done. */
struct Request {
    uint32_t type = 0;
    bool high = false;
    bool answerWanted = true;
    bool expected = false;
    std::string payload;
    std::string from; /**< path of the requester's socket; empty: it has none */
    std::string fate; /**< in words: "answered", "not answered", "unexpected, answered with VOS_ERROR" */
};

/** What has come until now. */
struct Report {
    std::vector<Request> requests;
    std::vector<std::string> problems; /**< unexpected requests, and expectations that were not met */

    bool ok() const { return problems.empty(); }
    /** For people: the problems, then every request. */
    std::string text() const {
        std::string all;
        for (const std::string &problem : problems) all += problem + "\n";
        for (const Request &each : requests)
            all += std::string("  ") + (each.high ? "high" : "normal") + ", " + std::to_string(each.payload.size()) +
                   " bytes \"" + each.payload.substr(0, 60) + "\": " + each.fate + "\n";
        return all;
    }
};

/** The two sockets under a name. */
class Mailbox {
  public:
    explicit Mailbox(const std::string &name) {
        const std::string path = socketPathOf(name);
        if (path.size() == strlen("/tmp/vos/")) throw std::invalid_argument("a peer needs a name");
        mkdir("/tmp/vos", 0777);
        fds_[0] = open(path, paths_[0]);
        try {
            fds_[1] = open(path + "High", paths_[1]);
        } catch (...) {
            leave();
            throw;
        }
    }
    Mailbox(const Mailbox &) = delete;
    Mailbox &operator=(const Mailbox &) = delete;
    ~Mailbox() { leave(); }

    int normal() const { return fds_[0]; }
    int high() const { return fds_[1]; }
    /** Closes the sockets and leaves their paths, as a killed process does. */
    void die() {
        for (int &fd : fds_)
            if (fd >= 0) close(std::exchange(fd, -1));
    }
    bool dead() const { return fds_[0] < 0; }

  private:
    struct Path {
        std::string name;
        ino_t inode = 0;
    };

    static sockaddr_un addressOf(const std::string &path) {
        sockaddr_un address{};
        if (path.size() >= sizeof address.sun_path)
            throw std::invalid_argument(path + " is too long for the path of a socket");
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path.c_str(), path.size());
        return address;
    }
    static std::system_error problem(const std::string &what) { return {errno, std::generic_category(), what}; }

    static int open(const std::string &path, Path &made) {
        const sockaddr_un address = addressOf(path);
        const auto *const generic = reinterpret_cast<const sockaddr *>(&address);
        const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd < 0) throw problem("socket");
        const bool taken = connect(fd, generic, sizeof address) == 0; /* a process receives there */
        close(fd);
        if (taken) throw std::runtime_error(path + " belongs to a running process");
        struct stat state {};
        if (lstat(path.c_str(), &state) == 0 && S_ISSOCK(state.st_mode)) unlink(path.c_str());
        const int bound = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (bound < 0) throw problem("socket");
        if (bind(bound, generic, sizeof address) != 0 || lstat(path.c_str(), &state) != 0) {
            const std::system_error reason = problem(path);
            close(bound);
            throw reason;
        }
        made = {path, state.st_ino};
        return bound;
    }
    /* Removes the paths if they are still those that were made here, and if the process has not died. */
    void leave() {
        for (std::size_t i = 0; i < 2; ++i) {
            struct stat state {};
            if (fds_[i] >= 0 && lstat(paths_[i].name.c_str(), &state) == 0 && state.st_ino == paths_[i].inode)
                unlink(paths_[i].name.c_str());
        }
        die();
    }

    Path paths_[2];
    int fds_[2] = {-1, -1};
};

/** Plays a script, without a thread of its own. */
class Player {
  public:
    explicit Player(const std::string &name, Script script = {}) : mailbox_(name), script_(std::move(script)) {}

    /** Waits for one message and plays what belongs to it. False when `stop` became readable, or the process has died.
     *  The other functions may be called by other threads meanwhile. */
    bool serve(int stop) {
        if (mailbox_.dead()) return false;
        pollfd watched[] = {{stop, POLLIN, 0}, {mailbox_.high(), POLLIN, 0}, {mailbox_.normal(), POLLIN, 0}};
        while (poll(watched, 3, -1) == -1)
            if (errno != EINTR) return false;
        if (watched[0].revents != 0) return false;
        const bool high = watched[1].revents != 0;
        return receive(high ? mailbox_.high() : mailbox_.normal(), high, stop);
    }

    void add(Step step) {
        const std::lock_guard<std::mutex> lock(mutex_);
        script_.steps.push_back(std::move(step));
    }

    /** Whether nothing more must come. */
    bool complete() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return !busy_ && unmet() == script_.steps.size();
    }

    bool dead() const { return mailbox_.dead(); }

    std::size_t served() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return requests_.size();
    }
    Request request(std::size_t index) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return requests_.at(index);
    }

    Report report() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        Report report{requests_, {}};
        for (const Request &each : requests_)
            if (!each.expected) report.problems.push_back("unexpected: \"" + each.payload.substr(0, 60) + "\"");
        const std::size_t step = unmet();
        if (step < script_.steps.size()) report.problems.push_back("did not come: " + describe(step));
        return report;
    }

  private:
    struct Sender {
        sockaddr_un address{};
        socklen_t length = sizeof address;
        int fd = -1;
    };

    std::string describe(std::size_t index) const {
        const Step &step = script_.steps[index];
        std::string text =
            step.line != 0 ? "line " + std::to_string(step.line) : "expectation " + std::to_string(index + 1);
        if (step.match.kind != Match::Kind::any) text += ", \"" + step.match.payload.substr(0, 60) + "\"";
        if (step.times > 1) text += ", " + std::to_string(step.times - (index == at_ ? met_ : 0)) + " times";
        return text;
    }

    /* The first step that must still come, or the number of steps. */
    std::size_t unmet() const {
        std::size_t step = at_;
        while (step < script_.steps.size() && script_.steps[step].times == 0) ++step;
        return step;
    }

    bool receive(int fd, bool high, int stop) {
        Sender sender;
        sender.fd = fd;
        buffer_.resize(VOS_MSG_BUFFER_LEN);
        const ssize_t count = recvfrom(fd, buffer_.data(), buffer_.size(), 0,
                                       reinterpret_cast<sockaddr *>(&sender.address), &sender.length);
        if (count < 0) return errno == EAGAIN || errno == EINTR;
        VOS_MSG_HEAD head{};
        if (static_cast<std::size_t>(count) < sizeof head) return true; /* no message; a process drops it, too */
        memcpy(&head, buffer_.data(), sizeof head);
        Request request;
        request.type = head.ulType;
        request.high = high;
        request.answerWanted = head.ulNoReturn != VOS_MSG_NO_ANSWER;
        request.payload.assign(buffer_.data() + sizeof head, static_cast<std::size_t>(count) - sizeof head);
        request.from = pathOf(sender);
        const std::vector<Act> acts = choose(request);
        play(acts, request, head, sender, stop);
        const std::lock_guard<std::mutex> lock(mutex_);
        busy_ = false;
        requests_.push_back(std::move(request));
        return !mailbox_.dead();
    }

    static std::string pathOf(const Sender &sender) {
        const std::size_t begin = offsetof(sockaddr_un, sun_path);
        if (sender.length <= begin) return "";
        return {sender.address.sun_path,
                strnlen(sender.address.sun_path, std::min(sender.length - begin, sizeof sender.address.sun_path))};
    }

    /* What belongs to a request. Steps that may come any number of times are passed over. */
    std::vector<Act> choose(Request &request) {
        const std::lock_guard<std::mutex> lock(mutex_);
        busy_ = true;
        for (std::size_t step = at_; step < script_.steps.size(); ++step) {
            const Step &each = script_.steps[step];
            if (each.match.fits(request.type, request.high, request.payload)) {
                if (step != at_) met_ = 0;
                at_ = step;
                request.expected = true;
                if (++met_ == each.times) {
                    ++at_;
                    met_ = 0;
                }
                return each.acts;
            }
            if (each.times != 0) break;
        }
        request.expected = detail::isControl(request.type);
        if (request.expected) return {};
        Act refusal;
        refusal.code = VOS_ERROR;
        return {refusal};
    }

    void play(const std::vector<Act> &acts, Request &request, const VOS_MSG_HEAD &head, const Sender &sender,
              int stop) {
        request.fate = "not answered";
        for (const Act &act : acts) {
            if (act.kind == Act::Kind::wait) {
                pause(act.delay, stop);
            } else if (act.kind == Act::Kind::die) {
                mailbox_.die();
                request.fate += ", died";
                return;
            } else {
                request.fate = send(act, request, head, sender);
            }
        }
        if (!request.expected) request.fate = "unexpected, " + request.fate;
    }

    /* A signal does not shorten a delay; `stop` ends it. */
    static void pause(std::chrono::milliseconds delay, int stop) {
        using Clock = std::chrono::steady_clock;
        constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24);
        const Clock::time_point end = Clock::now() + std::clamp(delay, std::chrono::milliseconds(0), kLongest);
        for (int ready = -1; ready < 0;) {
            const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
            pollfd watched{stop, POLLIN, 0};
            ready = poll(&watched, 1, std::max(0, static_cast<int>(rest.count())));
            if (ready < 0 && errno != EINTR) return;
        }
    }

    static std::string send(const Act &act, const Request &request, const VOS_MSG_HEAD &head, const Sender &sender) {
        if (!request.answerWanted) return "no answer wanted";
        const std::string datagram = act.kind == Act::Kind::raw
                                         ? act.payload
                                         : detail::answerTo(head.ulType, act, act.echo ? request.payload : act.payload);
        const ssize_t sent = sendto(sender.fd, datagram.data(), datagram.size(), MSG_NOSIGNAL,
                                    reinterpret_cast<const sockaddr *>(&sender.address), sender.length);
        if (sent < 0) return std::string("the answer cannot be sent: ") + std::generic_category().message(errno);
        return act.kind == Act::Kind::raw ? "answered with " + std::to_string(sent) + " bytes as they are"
                                          : "answered with " + std::to_string(act.code);
    }

    Mailbox mailbox_;
    mutable std::mutex mutex_; /* of what follows */
    Script script_;
    std::size_t at_ = 0; /* the step that is expected */
    uint32_t met_ = 0;   /* how often it has come */
    bool busy_ = false;  /* its actions are not over */
    std::vector<Request> requests_;
    std::string buffer_; /* of the serving thread */
};

/** Plays a process in a thread for as long as the object lives. */
class Peer {
  public:
    /** Collects what belongs to a request; it is in force at the end of the statement. */
    class Expectation {
      public:
        Expectation(Player &player, Match match) : player_(player) { step_.match = std::move(match); }
        Expectation(const Expectation &) = delete;
        Expectation &operator=(const Expectation &) = delete;
        ~Expectation() { player_.add(std::move(step_)); }

        Expectation &answer(int32_t code, std::string payload = "") {
            Act act;
            act.code = code;
            act.payload = std::move(payload);
            return add(std::move(act));
        }
        /** The payload is the request's. */
        Expectation &echo(int32_t code = 0) {
            Act act;
            act.code = code;
            act.echo = true;
            return add(std::move(act));
        }
        /** An answer whose header announces another length than it has. */
        Expectation &answerAnnouncing(uint32_t length, int32_t code, std::string payload) {
            Act act;
            act.code = code;
            act.payload = std::move(payload);
            act.announced = length;
            return add(std::move(act));
        }
        /** The bytes are sent as they are, without a header. */
        Expectation &raw(std::string datagram) {
            Act act;
            act.kind = Act::Kind::raw;
            act.payload = std::move(datagram);
            return add(std::move(act));
        }
        Expectation &after(std::chrono::milliseconds delay) {
            Act act;
            act.kind = Act::Kind::wait;
            act.delay = delay;
            return add(std::move(act));
        }
        /** Nothing is answered; that is so without this call, too. */
        Expectation &silence() { return *this; }
        /** The sockets are closed and their paths stay, as when a process is killed. */
        Expectation &die() {
            Act act;
            act.kind = Act::Kind::die;
            return add(std::move(act));
        }
        Expectation &times(uint32_t count) {
            step_.times = count;
            return *this;
        }
        /** Any number of times, also never. */
        Expectation &repeatedly() { return times(0); }
        Expectation &onHigh() {
            step_.match.lane = Match::Lane::high;
            return *this;
        }
        Expectation &onNormal() {
            step_.match.lane = Match::Lane::normal;
            return *this;
        }

      private:
        Expectation &add(Act act) {
            step_.acts.push_back(std::move(act));
            return *this;
        }
        Player &player_;
        Step step_;
    };

    /** Throws when the name belongs to a running process, or a socket cannot be made. */
    explicit Peer(const std::string &name, Script script = {})
        : player_(name, std::move(script)), stop_(eventfd(0, EFD_CLOEXEC)) {
        if (stop_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
        thread_ = std::thread([this] { run(); });
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer() {
        stop();
        close(stop_);
    }

    /** The next request: any one, this text, or one that begins with it. */
    Expectation expect() { return {player_, Match{}}; }
    Expectation expect(std::string text) { return {player_, matching(Match::Kind::text, std::move(text))}; }
    Expectation expectPrefix(std::string text) { return {player_, matching(Match::Kind::prefix, std::move(text))}; }

    /** Waits until all that must come has come; then the process is gone, and this is what came. */
    Report finish(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, timeout, [this] { return ended_ || player_.complete(); });
        lock.unlock();
        stop();
        return player_.report();
    }

    /** What has come until now. */
    Report report() const { return player_.report(); }

  private:
    static Match matching(Match::Kind kind, std::string text) {
        Match match;
        match.kind = kind;
        match.payload = std::move(text);
        return match;
    }

    void run() {
        bool going = true;
        while (going) {
            going = player_.serve(stop_);
            const std::lock_guard<std::mutex> lock(mutex_);
            ended_ = !going;
            changed_.notify_all();
        }
    }

    void stop() {
        if (!thread_.joinable()) return;
        const uint64_t one = 1;
        if (write(stop_, &one, sizeof one) != sizeof one) std::terminate();
        thread_.join();
    }

    Player player_;
    int stop_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool ended_ = false;
    std::thread thread_;
};

}  // namespace vos::test

#endif
