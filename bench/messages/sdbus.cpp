/* SPDX-License-Identifier: MIT */
/* sd-bus, a method call with an array of bytes. peer-kept, peer-request: directly to the server, over one connection or
 * a connection for each request. daemon-kept, daemon-request: through a message bus that this program starts. */
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "peer.h"

namespace {

constexpr const char *kName = "org.vos.Bench";
constexpr const char *kMethod = "Exchange";

/* The library's calls return a negative error number. */
int succeed(int result, const char *what) {
    if (result < 0) {
        errno = -result;
        bench::die(what);
    }
    return result;
}

bool throughDaemon(const bench::Setting &setting) { return setting.variant.starts_with("daemon"); }
std::string path(const bench::Setting &setting) { return "/tmp/sdbus-" + setting.variant; }

sd_bus *openBus(const bench::Setting &setting) {
    sd_bus *bus = nullptr;
    succeed(sd_bus_new(&bus), "sd_bus_new");
    succeed(sd_bus_set_address(bus, ("unix:path=" + path(setting)).c_str()), "sd_bus_set_address");
    succeed(sd_bus_set_bus_client(bus, throughDaemon(setting)), "sd_bus_set_bus_client");
    succeed(sd_bus_start(bus), "sd_bus_start");
    return bus;
}

void append(sd_bus_message *message, const void *payload, std::size_t size) {
    succeed(sd_bus_message_append_array(message, 'y', payload, size), "sd_bus_message_append_array");
}

class Caller final : public bench::Client {
  public:
    explicit Caller(const bench::Setting &setting)
        : setting_(setting), kept_(setting.variant.ends_with("kept")), bus_(kept_ ? openBus(setting) : nullptr) {}
    ~Caller() override {
        if (kept_) sd_bus_flush_close_unref(bus_);
    }

    bool request(uint8_t *payload) override {
        sd_bus *const bus = kept_ ? bus_ : openBus(setting_);
        sd_bus_message *call = nullptr;
        sd_bus_message *reply = nullptr;
        succeed(sd_bus_message_new_method_call(bus, &call, kName, "/", kName, kMethod), "method_call");
        append(call, payload, setting_.size);
        succeed(sd_bus_call(bus, call, 0, nullptr, &reply), "sd_bus_call");
        const void *answer = nullptr;
        std::size_t size = 0;
        succeed(sd_bus_message_read_array(reply, 'y', &answer, &size), "read_array");
        if (size != setting_.size) bench::die("an answer of another length");
        memcpy(payload, answer, size);
        sd_bus_message_unref(call);
        sd_bus_message_unref(reply);
        if (!kept_) sd_bus_flush_close_unref(bus);
        return true;
    }

  private:
    const bench::Setting &setting_;
    bool kept_;
    sd_bus *bus_;
};

int exchange(sd_bus_message *call, void * /*data*/, sd_bus_error * /*error*/) {
    if (sd_bus_message_is_method_call(call, kName, kMethod) <= 0) return 0;
    const void *request = nullptr;
    std::size_t size = 0;
    succeed(sd_bus_message_read_array(call, 'y', &request, &size), "read_array");
    sd_bus_message *reply = nullptr;
    succeed(sd_bus_message_new_method_return(call, &reply), "method_return");
    void *payload = nullptr;
    succeed(sd_bus_message_append_array_space(reply, 'y', size, &payload), "append_array_space");
    memcpy(payload, request, size);
    bench::answer(payload);
    succeed(sd_bus_send(nullptr, reply, nullptr), "sd_bus_send");
    sd_bus_message_unref(reply);
    return 1;
}

int closeWhenGone(sd_bus_message *message, void * /*data*/, sd_bus_error * /*error*/) {
    if (sd_bus_message_is_signal(message, "org.freedesktop.DBus.Local", "Disconnected") > 0)
        sd_bus_close_unref(sd_bus_message_get_bus(message));
    return 0;
}

int onConnect(sd_event_source *source, int listener, uint32_t /*events*/, void * /*data*/) {
    const int fd = bench::must(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK), "accept4");
    sd_bus *bus = nullptr;
    sd_id128_t id;
    succeed(sd_id128_randomize(&id), "sd_id128_randomize");
    succeed(sd_bus_new(&bus), "sd_bus_new");
    succeed(sd_bus_set_fd(bus, fd, fd), "sd_bus_set_fd");
    succeed(sd_bus_set_server(bus, 1, id), "sd_bus_set_server");
    succeed(sd_bus_start(bus), "sd_bus_start");
    succeed(sd_bus_add_filter(bus, nullptr, closeWhenGone, nullptr), "sd_bus_add_filter");
    succeed(sd_bus_add_object(bus, nullptr, "/", exchange, nullptr), "sd_bus_add_object");
    return succeed(sd_bus_attach_event(bus, sd_event_source_get_event(source), 0), "sd_bus_attach_event");
}

void listenAt(const std::string &path, sd_event *event) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    unlink(path.c_str());
    const int fd = bench::must(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket");
    bench::must(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), "bind");
    bench::must(listen(fd, 16), "listen");
    succeed(sd_event_add_io(event, nullptr, fd, EPOLLIN, onConnect, nullptr), "sd_event_add_io");
}

/* The bus ends with this process, and runs on the same processors. */
void startDaemon(const std::string &path) {
    const std::string configuration = path + ".conf";
    FILE *const file = fopen(configuration.c_str(), "w");
    if (file == nullptr) bench::die("the configuration of the bus");
    fprintf(file,
            "<busconfig><listen>unix:path=%s</listen><policy context=\"default\">"
            "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n",
            path.c_str());
    fclose(file);
    unlink(path.c_str());
    std::array<int, 2> address;
    bench::must(pipe2(address.data(), O_CLOEXEC), "pipe2");
    if (bench::must(fork(), "fork") == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(address[1], STDOUT_FILENO);
        execlp("dbus-daemon", "dbus-daemon", "--nofork", ("--config-file=" + configuration).c_str(),
               "--print-address=1", nullptr);
        bench::die("dbus-daemon");
    }
    close(address[1]);
    char byte;
    if (read(address[0], &byte, 1) != 1) bench::die("the bus did not start");
}

void joinBus(const bench::Setting &setting, sd_event *event) {
    startDaemon(path(setting));
    sd_bus *const bus = openBus(setting);
    succeed(sd_bus_add_object(bus, nullptr, "/", exchange, nullptr), "sd_bus_add_object");
    succeed(sd_bus_request_name(bus, kName, 0), "sd_bus_request_name");
    succeed(sd_bus_attach_event(bus, event, 0), "sd_bus_attach_event");
}

}  // namespace

std::unique_ptr<bench::Client> bench::connect(const Setting &setting) { return std::make_unique<Caller>(setting); }

void bench::serve(const Setting &setting) {
    sd_event *event = nullptr;
    succeed(sd_event_new(&event), "sd_event_new");
    if (throughDaemon(setting))
        joinBus(setting, event);
    else
        listenAt(path(setting), event);
    ready();
    succeed(sd_event_loop(event), "sd_event_loop");
    die("the loop has ended");
}
