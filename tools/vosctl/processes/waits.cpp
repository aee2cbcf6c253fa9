/* SPDX-License-Identifier: MIT */
#include "waits.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <map>

#include "blockedThreads.h"
#include "copies.h"
#include "messages.h"
#include "socketDirectory.h"

namespace vosctl {

namespace {

using Phase = Wait::Phase;

bool inDirectory(const std::string &path) { return path.starts_with(std::string(kSocketDirectory) + "/"); }

/* The library makes the socket when a request begins. The file's time is that of the clock, which may have been set
 * since; a time in the future tells nothing. */
std::optional<std::chrono::nanoseconds> ageOf(const std::string &path) {
    struct stat status {};
    timespec now{};
    if (stat(path.c_str(), &status) == -1 || clock_gettime(CLOCK_REALTIME, &now) == -1) return {};
    const auto age = std::chrono::seconds{now.tv_sec - status.st_mtim.tv_sec} +
                     std::chrono::nanoseconds{now.tv_nsec - status.st_mtim.tv_nsec};
    if (age.count() < 0) return {};
    return age;
}

class Reader {
  public:
    Waits read() {
        for (const SocketEntry &entry : entries_)
            if (entry.kind != SocketEntry::Kind::requester) nameOf(entry);
        result_.diagnosed = kernel_.diagnosed;
        for (const KernelSocket &socket : kernel_.sockets) bySocket_[socket.inode] = &socket;
        for (const auto &[inode, owner] : socketOwners()) owners_.try_emplace(inode, owner);
        for (const KernelSocket &socket : kernel_.sockets)
            if (inDirectory(socket.path) && isRequester(fileOf(socket.path))) add(socket);
        std::stable_sort(result_.waits.begin(), result_.waits.end(),
                         [](const Wait &left, const Wait &right) { return left.elapsed > right.elapsed; });
        findCircles();
        return std::move(result_);
    }

  private:
    /* The name of a process is the one under which its main channel receives; the shortest when there are several. */
    void nameOf(const SocketEntry &entry) {
        if (entry.owners.empty()) return;
        std::string &name = names_[entry.owners.front().pid];
        if (name.empty() || entry.name.size() < name.size()) name = entry.name;
    }

    void add(const KernelSocket &socket) {
        const auto peer = bySocket_.find(socket.peer);
        if (socket.peer == 0 || peer == bySocket_.end() || !inDirectory(peer->second->path)) return;
        const auto owner = owners_.find(socket.inode);
        const Threads *const threads = owner == owners_.end() ? nullptr : &threadsOfProcess(owner->second.pid);
        Wait wait;
        if (!phaseOf(socket, threads, wait)) return;
        wait.path = peer->second->path;
        wait.requester = socket.path;
        wait.elapsed = ageOf(socket.path);
        wait.from = partyOf(socket, requesterPid(socket.path));
        wait.to = partyOf(*peer->second, 0);
        result_.waits.push_back(std::move(wait));
    }

    /* False when it is seen that nobody waits on the socket. */
    static bool phaseOf(const KernelSocket &socket, const Threads *threads, Wait &wait) {
        const BlockedThread *blocked = nullptr;
        if (threads != nullptr) {
            const auto found = threads->bySocket.find(socket.inode);
            if (found != threads->bySocket.end()) blocked = &found->second;
            if (blocked == nullptr && threads->seen && !threads->polling) return false;
        }
        if (blocked != nullptr) wait.thread = blocked->thread;
        if (socket.nextBytes > 0)
            wait.phase = Phase::answered;
        else if (socket.unreadBytes > 0)
            wait.phase = Phase::queued;
        else
            wait.phase = blocked != nullptr && blocked->in == Blocked::sending ? Phase::sending : Phase::served;
        return true;
    }

    const Threads &threadsOfProcess(int pid) {
        const auto [found, isNew] = threads_.try_emplace(pid);
        if (isNew) found->second = threadsOf(pid);
        return found->second;
    }

    /* A socket whose process cannot be seen is a party of its own, known by its file or by the process id in it. */
    std::size_t partyOf(const KernelSocket &socket, uint32_t pidInName) {
        Party party;
        const auto owner = owners_.find(socket.inode);
        if (owner != owners_.end()) {
            party.pid = owner->second.pid;
            party.program = owner->second.program;
            party.threads = threadsOfProcess(party.pid).count;
            const auto name = names_.find(party.pid);
            if (name != names_.end()) party.name = name->second;
        } else if (pidInName == 0) {
            const std::string file = fileOf(socket.path);
            const auto entry = std::find_if(entries_.begin(), entries_.end(),
                                            [&](const SocketEntry &each) { return each.file == file; });
            party.name = entry == entries_.end() ? file : entry->name;
        }
        const std::string key = party.pid != 0   ? std::to_string(party.pid)
                                : pidInName != 0 ? "?" + std::to_string(pidInName)
                                                 : "/" + party.name;
        const auto [place, isNew] = places_.try_emplace(key, result_.parties.size());
        if (isNew) result_.parties.push_back(std::move(party));
        return place->second;
    }

    /* Walks from each party along what it waits for; a party that comes again on the way closes a circle. Every party
     * is left behind once, so that the work is bounded by the number of waits. */
    void findCircles() {
        std::vector<State> states(result_.parties.size(), State::unseen);
        for (std::size_t party = 0; party < states.size(); ++party)
            if (states[party] == State::unseen) walk(party, states);
    }

    enum class State { unseen, onTheWay, done };
    struct Step {
        std::size_t party;
        std::size_t next = 0; /* wait that is looked at next */
    };
    void walk(std::size_t begin, std::vector<State> &states) {
        std::vector<Step> way{{begin}};
        std::vector<std::size_t> taken; /* the waits between the steps */
        states[begin] = State::onTheWay;
        while (!way.empty()) {
            Step &step = way.back();
            while (step.next < result_.waits.size() && result_.waits[step.next].from != step.party) ++step.next;
            if (step.next == result_.waits.size()) {
                states[step.party] = State::done;
                way.pop_back();
                if (!taken.empty()) taken.pop_back();
                continue;
            }
            const std::size_t wait = step.next++;
            const std::size_t to = result_.waits[wait].to;
            if (states[to] == State::onTheWay) {
                const auto first =
                    std::find_if(way.begin(), way.end(), [&](const Step &each) { return each.party == to; });
                std::vector<std::size_t> circle(taken.begin() + (first - way.begin()), taken.end());
                circle.push_back(wait);
                addCircle(std::move(circle));
            } else if (states[to] == State::unseen) {
                states[to] = State::onTheWay;
                taken.push_back(wait);
                way.push_back({to});
            }
        }
    }

    void addCircle(std::vector<std::size_t> waits) {
        const bool certain = std::all_of(waits.begin(), waits.end(), [&](std::size_t each) {
            const Wait &wait = result_.waits[each];
            return wait.thread != 0 && wait.phase != Phase::answered && result_.parties[wait.from].threads == 1;
        });
        result_.circles.push_back({std::move(waits), certain});
    }

    std::vector<SocketEntry> entries_ = readSocketDirectory();
    KernelSockets kernel_ = kernelSockets();
    std::map<uint32_t, const KernelSocket *> bySocket_;
    std::map<uint32_t, Owner> owners_; /* the opener of each socket */
    std::map<int, std::string> names_;
    std::map<int, Threads> threads_;
    std::map<std::string, std::size_t> places_;
    Waits result_;
};

}  // namespace

Waits readWaits() { return Reader{}.read(); }

}  // namespace vosctl
