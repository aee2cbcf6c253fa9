/* SPDX-License-Identifier: MIT */
/* nng, request and reply over a Unix socket. kept: one connection; request: a connection for each request. */
#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>
#include <unistd.h>

#include "peer.h"

namespace {

std::string address(const bench::Setting &setting) { return "ipc:///tmp/nng-" + setting.variant; }

void succeed(int result, const char *what) {
    if (result != 0) bench::die((std::string(what) + " says " + nng_strerror(result)).c_str());
}

class Socket final : public bench::Client {
  public:
    explicit Socket(const bench::Setting &setting)
        : address_(address(setting)), size_(setting.size), kept_(setting.is("kept")) {
        if (kept_) open();
    }
    ~Socket() override {
        if (kept_) nng_close(socket_);
    }

    bool request(uint8_t *payload) override {
        if (!kept_) open();
        std::size_t size = size_;
        succeed(nng_send(socket_, payload, size, 0), "nng_send");
        succeed(nng_recv(socket_, payload, &size, 0), "nng_recv");
        if (!kept_) nng_close(socket_);
        return true;
    }

  private:
    void open() {
        succeed(nng_req0_open(&socket_), "nng_req0_open");
        succeed(nng_dial(socket_, address_.c_str(), nullptr, 0), "nng_dial");
    }

    nng_socket socket_{};
    std::string address_;
    std::size_t size_;
    bool kept_;
};

}  // namespace

std::unique_ptr<bench::Client> bench::connect(const Setting &setting) { return std::make_unique<Socket>(setting); }

void bench::serve(const Setting &setting) {
    nng_socket socket;
    succeed(nng_rep0_open(&socket), "nng_rep0_open");
    unlink(address(setting).c_str() + sizeof "ipc://" - 1);
    succeed(nng_listen(socket, address(setting).c_str(), nullptr, 0), "nng_listen");
    ready();
    static uint8_t payload[kLargest];
    for (;;) {
        std::size_t size = sizeof payload;
        succeed(nng_recv(socket, payload, &size, 0), "nng_recv");
        answer(payload);
        succeed(nng_send(socket, payload, size, 0), "nng_send");
    }
}
