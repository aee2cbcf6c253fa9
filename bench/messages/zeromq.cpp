/* SPDX-License-Identifier: MIT */
/* ZeroMQ, request and reply over a Unix socket. kept: one connection; request: a connection for each request. */
#include <unistd.h>
#include <zmq.h>

#include "peer.h"

namespace {

using bench::must;

std::string address(const bench::Setting &setting) { return "ipc:///tmp/zeromq-" + setting.variant; }

class Socket final : public bench::Client {
  public:
    explicit Socket(const bench::Setting &setting)
        : context_(zmq_ctx_new()), address_(address(setting)), size_(setting.size), kept_(setting.is("kept")) {
        if (kept_) open();
    }
    ~Socket() override {
        if (kept_) zmq_close(socket_);
        zmq_ctx_term(context_);
    }

    bool request(uint8_t *payload) override {
        if (!kept_) open();
        must(zmq_send(socket_, payload, size_, 0), "zmq_send");
        must(zmq_recv(socket_, payload, size_, 0), "zmq_recv");
        if (!kept_) zmq_close(socket_);
        return true;
    }

  private:
    void open() {
        socket_ = zmq_socket(context_, ZMQ_REQ);
        must(zmq_connect(socket_, address_.c_str()), "zmq_connect");
    }

    void *context_;
    void *socket_ = nullptr;
    std::string address_;
    std::size_t size_;
    bool kept_;
};

}  // namespace

std::unique_ptr<bench::Client> bench::connect(const Setting &setting) { return std::make_unique<Socket>(setting); }

void bench::serve(const Setting &setting) {
    void *const socket = zmq_socket(zmq_ctx_new(), ZMQ_REP);
    unlink(address(setting).c_str() + sizeof "ipc://" - 1);
    must(zmq_bind(socket, address(setting).c_str()), "zmq_bind");
    ready();
    static uint8_t payload[kLargest];
    for (;;) {
        const int size = must(zmq_recv(socket, payload, sizeof payload, 0), "zmq_recv");
        answer(payload);
        must(zmq_send(socket, payload, static_cast<std::size_t>(size), 0), "zmq_send");
    }
}
