/* SPDX-License-Identifier: MIT */
/* The library.
 *
 *     request    vosMsgSend() and its answer
 *     high       the same over the high-priority socket
 *     post       vosMsgSend() that asks for no answer
 */
#include <sys/eventfd.h>
#include <unistd.h>

#include "peer.h"
#include "vos.h"

namespace {

/* "vos" must not be the other programs' prefix: a name is the path of its sockets. */
constexpr const char *kServer = "benchmarked";

void succeed(int32_t result, const char *what) {
    if (result != VOS_OK) bench::die(what);
}

class Sender final : public bench::Client {
  public:
    explicit Sender(const bench::Setting &setting)
        : size_(static_cast<uint32_t>(setting.size)),
          flags_(setting.is("high") ? 1 : 0),
          noReturn_(setting.is("post")) {
        succeed(vosProcessInit(("client" + std::to_string(setting.id)).c_str()), "vosProcessInit");
    }

    bool request(uint8_t *payload) override {
        uint32_t code = 0;
        succeed(vosMsgSend(kServer, payload, size_, noReturn_, &code, 3000, flags_), "vosMsgSend");
        if (noReturn_ == 0 && code != 7) bench::die("another code");
        return noReturn_ == 0;
    }

  private:
    uint32_t size_;
    uint32_t flags_;
    uint32_t noReturn_;
};

void addIdle(const bench::Setting &setting) {
    for (unsigned i = 0; i < setting.timers; ++i) {
        VOS_MSG_TIMER *timer = nullptr;
        succeed(vosTimerRegister(1, 3600000 + i, nullptr, &timer, 0), "vosTimerRegister");
    }
    for (unsigned i = 0; i < setting.sockets; ++i)
        succeed(vosMsgSockAdd(bench::must(eventfd(0, 0), "eventfd"), nullptr, nullptr), "vosMsgSockAdd");
}

}  // namespace

std::unique_ptr<bench::Client> bench::connect(const Setting &setting) { return std::make_unique<Sender>(setting); }

void bench::serve(const Setting &setting) {
    static uint8_t payload[kLargest + sizeof(VOS_MSG_HEAD)];
    VOS_MSG_PEER peer;
    succeed(vosProcessInit(kServer), "vosProcessInit");
    succeed(vosMsgInit(kServer, 1, &peer), "vosMsgInit");
    addIdle(setting);
    ready();
    for (;;) {
        int32_t size = must(vosMsgRecv(0, payload, sizeof payload, VOS_WAIT_FOREVER, &peer), "vosMsgRecv");
        if (peer.iSocketFd == g_vosFdProc) {
            size -= static_cast<int32_t>(sizeof(VOS_MSG_HEAD)); /* the count of the normal socket includes the header */
            work(setting.workUs);
        }
        answer(payload);
        succeed(vosMsgResp(0, 7, payload, static_cast<uint32_t>(size), &peer), "vosMsgResp");
    }
}
