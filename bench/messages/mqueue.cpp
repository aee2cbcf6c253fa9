/* SPDX-License-Identifier: MIT */
/* POSIX message queues: one of the server, and one of each client for the answers. A request has the name of the
 * client's queue. kept: both stay open; request: the client makes its queue for each request, and the server opens it.
 */
#include <fcntl.h>
#include <mqueue.h>

#include <array>
#include <cstdio>
#include <map>
#include <vector>

#include "peer.h"

namespace {

using bench::must;

constexpr std::size_t kName = 32;

std::string serverName(const bench::Setting &setting) { return "/bench-" + setting.variant; }

/* The kernel's limits may not allow the size. Then this prints a message and ends the program. */
mqd_t create(const std::string &name, std::size_t size) {
    mq_attr attributes{};
    attributes.mq_maxmsg = 10;
    attributes.mq_msgsize = static_cast<long>(size);
    mq_unlink(name.c_str());
    return must(mq_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600, &attributes), "mq_open");
}

class Queue final : public bench::Client {
  public:
    explicit Queue(const bench::Setting &setting)
        : server_(must(mq_open(serverName(setting).c_str(), O_WRONLY), "mq_open")),
          name_("/bench-" + setting.variant + std::to_string(setting.id)),
          message_(kName + setting.size),
          kept_(setting.is("kept")) {
        snprintf(reinterpret_cast<char *>(message_.data()), kName, "%s", name_.c_str());
        if (kept_) open();
    }
    ~Queue() override {
        if (kept_) close();
    }

    bool request(uint8_t *payload) override {
        if (!kept_) open();
        const std::size_t size = message_.size() - kName;
        memcpy(&message_[kName], payload, size);
        must(mq_send(server_, reinterpret_cast<const char *>(message_.data()), message_.size(), 0), "mq_send");
        must(mq_receive(own_, reinterpret_cast<char *>(payload), size, nullptr), "mq_receive");
        if (!kept_) close();
        return true;
    }

  private:
    void open() { own_ = create(name_, message_.size() - kName); }
    void close() {
        mq_close(own_);
        mq_unlink(name_.c_str());
    }

    mqd_t server_;
    mqd_t own_ = -1;
    std::string name_;
    std::vector<uint8_t> message_;
    bool kept_;
};

}  // namespace

std::unique_ptr<bench::Client> bench::connect(const Setting &setting) { return std::make_unique<Queue>(setting); }

void bench::serve(const Setting &setting) {
    const mqd_t own = create(serverName(setting), kName + setting.size);
    std::vector<char> message(kName + setting.size);
    std::map<std::string, mqd_t, std::less<>> open;
    ready();
    for (;;) {
        must(mq_receive(own, message.data(), message.size(), nullptr), "mq_receive");
        answer(&message[kName]);
        const auto known = open.find(std::string_view{message.data()});
        const mqd_t to = known != open.end() ? known->second : must(mq_open(message.data(), O_WRONLY), "mq_open");
        must(mq_send(to, &message[kName], setting.size, 0), "mq_send");
        if (setting.is("kept"))
            open.try_emplace(message.data(), to);
        else
            mq_close(to);
    }
}
