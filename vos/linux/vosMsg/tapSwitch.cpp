/* SPDX-License-Identifier: MIT */
/* Switches taps on and off. Any process that may send to this one can send the request, with any bytes in it. */
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>

#include "../base/file.h"
#include "../base/log.h"
#include "../base/processId.h"
#include "../base/text.h"
#include "address.h"
#include "message.h"
#include "tap.h"

namespace {

using vos::Arrival;
using vos::Caller;
using vos::Tap;
using vos::UniqueFd;

constexpr std::string_view kDirectory = "/tmp/vos/";

/* The process in which a thread switches taps; 0: none does. A child of fork() may find its parent's here. */
constinit pid_t g_switching = 0;

/* One thread of the process switches at a time: two loops may get requests for the same tap. The others sleep, because
 * a real-time thread that only tried again could keep the one that switches from running. */
class Switching {
  public:
    Switching() {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelBefore_);
        const pid_t own = vos::processId();
        pid_t holder = 0;
        while (!__atomic_compare_exchange_n(&g_switching, &holder, own, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
            if (holder != own) continue; /* the parent's: taken over */
            usleep(1000);
            holder = 0;
        }
    }
    Switching(const Switching &) = delete;
    Switching &operator=(const Switching &) = delete;
    ~Switching() {
        __atomic_store_n(&g_switching, 0, __ATOMIC_RELEASE);
        pthread_setcancelstate(cancelBefore_, nullptr);
    }

  private:
    int cancelBefore_ = PTHREAD_CANCEL_ENABLE;
};

/* The tap's path; empty when it is no name directly below the directory. */
std::string_view pathIn(const VOS_MSG_TAP_SWITCH &request) {
    const std::string_view path{request.acPath, strnlen(request.acPath, sizeof request.acPath)};
    if (path.size() == sizeof request.acPath || !vos::startsWith(path, kDirectory)) return {};
    const std::string_view name{path.data() + kDirectory.size(), path.size() - kDirectory.size()};
    if (name.empty() || name == "." || name == ".." || memchr(name.data(), '/', name.size()) != nullptr) return {};
    return path;
}

bool wellFormed(const VOS_MSG_TAP_SWITCH &request) {
    const VOS_MSG_HEAD &head = request.stHead;
    return (head.ulValue1 == VOS_MSG_TAP_ON || head.ulValue1 == VOS_MSG_TAP_OFF) && head.ulValue3 == 0 &&
           head.ulValue4 == 0 && head.ulBufLen == sizeof request.acPath && !pathIn(request).empty();
}

/* The request must come from the tap itself: nobody can have copies sent to a socket of somebody else. */
bool sentBy(const Arrival &request, std::string_view path) {
    sockaddr_un sender{};
    memcpy(&sender, request.sender, std::min<std::size_t>(request.senderLength, sizeof sender));
    return sender.sun_family == AF_UNIX &&
           path == std::string_view{sender.sun_path, strnlen(sender.sun_path, sizeof sender.sun_path)};
}

/* A program may run with its standard descriptors closed. A socket that took such a number would get what is printed.
 */
UniqueFd aboveStandard(UniqueFd fd) {
    if (!fd || fd.get() > STDERR_FILENO) return fd;
    return UniqueFd{fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1)};
}

/* The tap's file, opened without its content: nobody can put another one in its place from here on. None with errno
 * when it is no socket of this process's user. */
UniqueFd examine(std::string_view path, vos::FileId &id) {
    const vos::Path copy = vos::Path{}.append(path);
    UniqueFd file = aboveStandard(vos::openFile(copy.get(), O_PATH | O_NOFOLLOW));
    struct stat state {};
    if (!file || fstat(file.get(), &state) != 0) return {};
    id = {state.st_dev, state.st_ino};
    if (S_ISSOCK(state.st_mode) && state.st_uid == geteuid()) return file;
    errno = EPERM;
    return {};
}

/* A socket that is connected to the examined file, or none with errno. */
UniqueFd connectTo(int file) {
    UniqueFd socket = aboveStandard(UniqueFd{::socket(AF_UNIX, vos::kDatagram, 0)});
    if (!socket) return {};
    const auto wide = static_cast<int32_t>(vos::kSendBuffer);
    (void)setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &wide, sizeof wide); /* with less, more copies are lost */
    vos::Text<32> path;
    path.append("/proc/self/fd/").appendDecimal(file);
    const vos::LocalAddress address{path.view()};
    if (connect(socket.get(), address.get(), address.length()) != 0) return {};
    return socket;
}

/* A tap that is on under the path; it has been entered. Null when there is none. */
Tap *enterTap(std::string_view path) {
    if (!vos::ownsTaps()) return nullptr;
    for (Tap &tap : vos::g_taps) {
        if (!tap.enter()) continue;
        if (tap.path() == path) return &tap;
        tap.leave();
    }
    return nullptr;
}

/* Tells the tap why it is not on. It waits no more than a copy does. */
void refuse(const Arrival &request, int error) {
    VOS_MSG_TAP_HEAD head = vos::newTapHead(VOS_MSG_TAP_REFUSED, vos::TapMoment::now());
    vos::nameProcess(head);
    head.iResult = VOS_ERROR;
    head.iErrno = error;
    (void)sendto(request.socket, &head, sizeof head, MSG_DONTWAIT | MSG_NOSIGNAL, request.sender,
                 vos::answerLength(request.senderLength));
}

bool startFreeTap(vos::TapSocket &socket, std::string_view path, uint32_t limit) {
    vos::takeTaps();
    for (Tap &tap : vos::g_taps)
        if (tap.start(socket, path, limit)) return true;
    return false;
}

/* Changes a tap that is on under the path. Not when its socket is another one than the file that is there now, or does
 * not receive any more: that tap is stopped. */
bool renew(std::string_view path, const vos::FileId &file, uint32_t limit) {
    Tap *const tap = enterTap(path);
    if (tap == nullptr) return false;
    tap->changeLimit(limit);
    const bool same = tap->file() == file && tap->report(VOS_MSG_TAP_STARTED);
    if (!same) tap->stop();
    tap->leave();
    return same;
}

int32_t refused(Caller me, const Arrival &request, const vos::Path &path) {
    const int error = errno;
    refuse(request, error);
    errno = error;
    return vos::failedErrno(me, VOS_ERROR, "%s:tap %s failed errno:%d(%s).", vos::outside(path.get()));
}

int32_t switchOn(Caller me, const Arrival &request, std::string_view path, uint32_t limit) {
    const vos::Path shown = vos::Path{}.append(path);
    if (!sentBy(request, path))
        return vos::failed(me, VOS_ERROR, "%s:tap %s was not asked for by itself.", vos::outside(shown.get()));
    vos::TapSocket socket{};
    const UniqueFd file = examine(path, socket.file);
    if (!file) return refused(me, request, shown);
    if (renew(path, socket.file, limit)) return VOS_OK;
    socket.connected = connectTo(file.get());
    if (!socket.connected) return refused(me, request, shown);
    if (startFreeTap(socket, path, limit)) return VOS_OK;
    errno = EBUSY;
    return refused(me, request, shown);
}

int32_t switchOff(std::string_view path) {
    Tap *const tap = enterTap(path);
    if (tap == nullptr) return VOS_OK;
    tap->stop();
    tap->leave();
    return VOS_OK;
}

}  // namespace

int32_t vos::switchTap(Caller me, const Arrival &arrival) {
    trace(me, "%s:receive VOS_MSG_TAP.");
    VOS_MSG_TAP_SWITCH request{};
    if (arrival.message.size() != sizeof request)
        return failed(me, VOS_ERROR, "%s:tap request of %lu bytes is malformed.", arrival.message.size());
    memcpy(&request, arrival.message.data(), sizeof request);
    if (!wellFormed(request)) return failed(me, VOS_ERROR, "%s:tap request is malformed.");
    const Switching switching;
    if (request.stHead.ulValue1 == VOS_MSG_TAP_OFF) return switchOff(pathIn(request));
    return switchOn(me, arrival, pathIn(request), request.stHead.ulValue2);
}
