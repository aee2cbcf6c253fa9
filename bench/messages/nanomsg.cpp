/* SPDX-License-Identifier: MIT */
/* nanomsg, request and reply over a Unix socket. kept: one connection; request: a connection for each request. */
#include <nanomsg/nn.h>
#include <nanomsg/reqrep.h>
#include <unistd.h>

#include "peer.h"

namespace {

using bench::must;

std::string address(const bench::Setting &setting) { return "ipc:///tmp/nanomsg-" + setting.variant; }

class Socket final : public bench::Client {
  public:
    explicit Socket(const bench::Setting &setting)
        : address_(address(setting)), size_(setting.size), kept_(setting.is("kept")) {
        if (kept_) open();
    }
    ~Socket() override {
        if (kept_) nn_close(socket_);
    }

    bool request(uint8_t *payload) override {
        if (!kept_) open();
        must(nn_send(socket_, payload, size_, 0), "nn_send");
        must(nn_recv(socket_, payload, size_, 0), "nn_recv");
        if (!kept_) nn_close(socket_);
        return true;
    }

  private:
    void open() {
        socket_ = must(nn_socket(AF_SP, NN_REQ), "nn_socket");
        must(nn_connect(socket_, address_.c_str()), "nn_connect");
    }

    int socket_ = -1;
    std::string address_;
    std::size_t size_;
    bool kept_;
};

}  // namespace

std::unique_ptr<bench::Client> bench::connect(const Setting &setting) { return std::make_unique<Socket>(setting); }

void bench::serve(const Setting &setting) {
    const int socket = must(nn_socket(AF_SP, NN_REP), "nn_socket");
    unlink(address(setting).c_str() + sizeof "ipc://" - 1);
    must(nn_bind(socket, address(setting).c_str()), "nn_bind");
    ready();
    static uint8_t payload[kLargest];
    for (;;) {
        const int size = must(nn_recv(socket, payload, sizeof payload, 0), "nn_recv");
        answer(payload);
        must(nn_send(socket, payload, static_cast<std::size_t>(size), 0), "nn_send");
    }
}
