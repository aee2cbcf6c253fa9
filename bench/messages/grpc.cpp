/* SPDX-License-Identifier: MIT */
/* gRPC over a Unix socket, its synchronous interface. kept: one channel; request: a channel for each request. */
#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include "grpc.grpc.pb.h"
#include "peer.h"

namespace {

std::string path(const bench::Setting &setting) { return "/tmp/grpc-" + setting.variant; }

std::unique_ptr<bench::Exchange::Stub> openStub(const std::string &path) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1); /* else the channels share one connection */
    return bench::Exchange::NewStub(
        grpc::CreateCustomChannel("unix:" + path, grpc::InsecureChannelCredentials(), arguments));
}

class Caller final : public bench::Client {
  public:
    explicit Caller(const bench::Setting &setting)
        : path_(path(setting)), size_(setting.size), kept_(setting.is("kept") ? openStub(path_) : nullptr) {}

    bool request(uint8_t *payload) override {
        const std::unique_ptr<bench::Exchange::Stub> own = kept_ ? nullptr : openStub(path_);
        bench::Payload call;
        bench::Payload reply;
        grpc::ClientContext context;
        call.set_data(payload, size_);
        const grpc::Status status = (kept_ ? kept_ : own)->Do(&context, call, &reply);
        if (!status.ok() || reply.data().size() != size_) bench::die(status.error_message().c_str());
        memcpy(payload, reply.data().data(), size_);
        return true;
    }

  private:
    std::string path_;
    std::size_t size_;
    std::unique_ptr<bench::Exchange::Stub> kept_;
};

class Service final : public bench::Exchange::Service {
    grpc::Status Do(grpc::ServerContext * /*context*/, const bench::Payload *call, bench::Payload *reply) override {
        *reply->mutable_data() = call->data();
        bench::answer(reply->mutable_data()->data());
        return grpc::Status::OK;
    }
};

}  // namespace

std::unique_ptr<bench::Client> bench::connect(const Setting &setting) { return std::make_unique<Caller>(setting); }

void bench::serve(const Setting &setting) {
    Service service;
    unlink(path(setting).c_str());
    grpc::ServerBuilder builder;
    builder.AddListeningPort("unix:" + path(setting), grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server) die("the server does not start");
    ready();
    server->Wait();
    die("the server has ended");
}
