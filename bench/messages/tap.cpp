/* SPDX-License-Identifier: MIT */
/* A tap that takes the copies of one process as fast as they come. The driver's commands come on standard input, one on
 * each line. Each is answered with one line on standard output, "COPIES LOST", when the process has executed it:
 *
 *     on LIMIT    switches the tap on; so many bytes of each payload are copied at most
 *     off         switches it off
 */
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vosMsgTap.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr const char *kPath = "/tmp/vos/benchTap";
constexpr std::size_t kBatch = 32; /* datagrams for one system call, as vosctl takes them */
constexpr std::size_t kLargest = sizeof(VOS_MSG_TAP_HEAD) + 65536;

template <class Number>
Number must(Number result, const char *what) {
    if (result >= 0) return result;
    fprintf(stderr, "tap: %s: %s\n", what, strerror(errno));
    _exit(1);
}

sockaddr_un addressOf(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

class Tap {
  public:
    explicit Tap(const std::string &process)
        : process_(addressOf("/tmp/vos/" + process)), room_(kBatch * kLargest), pieces_(kBatch), datagrams_(kBatch) {
        const sockaddr_un own = addressOf(kPath);
        unlink(kPath);
        must(bind(fd_, reinterpret_cast<const sockaddr *>(&own), sizeof own), "bind");
        for (std::size_t i = 0; i < kBatch; ++i) {
            pieces_[i] = {room_.data() + i * kLargest, kLargest};
            datagrams_[i].msg_hdr.msg_iov = &pieces_[i];
            datagrams_[i].msg_hdr.msg_iovlen = 1;
        }
    }

    void command(const char *line) {
        VOS_MSG_TAP_SWITCH request{};
        const bool on = sscanf(line, "on %" SCNu32, &request.stHead.ulValue2) == 1;
        request.stHead.ulType = VOS_MSG_TAP;
        request.stHead.ulNoReturn = 1;
        request.stHead.ulValue1 = on ? VOS_MSG_TAP_ON : VOS_MSG_TAP_OFF;
        request.stHead.ulBufLen = sizeof request.acPath;
        strcpy(request.acPath, kPath);
        if (on) copies_ = 0;
        must(sendto(fd_, &request, sizeof request, 0, reinterpret_cast<const sockaddr *>(&process_), sizeof process_),
             "sendto");
    }

    void work() {
        pollfd watched[] = {{fd_, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
        must(poll(watched, 2, -1), "poll");
        if ((watched[0].revents & POLLIN) != 0) take();
        if (watched[1].revents == 0) return;
        std::array<char, 64> line{};
        if (must(read(STDIN_FILENO, line.data(), line.size() - 1), "read") == 0) _exit(0);
        command(line.data());
    }

  private:
    void take() {
        const int count = recvmmsg(fd_, datagrams_.data(), kBatch, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < count; ++i) {
            VOS_MSG_TAP_HEAD head;
            memcpy(&head, pieces_[static_cast<std::size_t>(i)].iov_base, sizeof head);
            if (head.ucWhat == VOS_MSG_TAP_REFUSED) must(-1, "refused");
            if (head.ucWhat == VOS_MSG_TAP_STARTED || head.ucWhat == VOS_MSG_TAP_STOPPED)
                dprintf(STDOUT_FILENO, "%" PRIu64 " %" PRIu64 "\n", copies_, head.ullLost);
            else
                ++copies_;
        }
    }

    int fd_ = must(socket(AF_UNIX, SOCK_DGRAM, 0), "socket");
    sockaddr_un process_;
    uint64_t copies_ = 0;
    std::vector<char> room_;
    std::vector<iovec> pieces_;
    std::vector<mmsghdr> datagrams_;
};

}  // namespace

/* The driver gives what it gives to every peer: tap PROCESS SIZE ID. */
int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s tap PROCESS\n", argv[0]);
        return 2;
    }
    Tap tap{argv[2]};
    dprintf(STDOUT_FILENO, "ready\n");
    for (;;) tap.work();
}
