/* SPDX-License-Identifier: MIT */
/* Events: packets and link changes of the kernel, questions of other processes, the contact of the cabinet's door, a
 * timer. */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "olt.hpp"

using namespace std::chrono_literals;

namespace olt {

namespace {

/* The object "portLinkChanges" has one index word, the port's number. */
constexpr std::string_view object = "portLinkChanges";

/* Sends a text to mgmtd, if it runs, and writes it to the log. */
void alarm(const std::string &what) {
    vosPrintf("\r\noltd: alarm: %s", what.c_str());
    /* mgmtd need not run: this request asks for no answer, and a failure is not logged. */
    const uint32_t flags = vos::debug_flags();
    vos::set_debug_flags(0);
    static_cast<void>(vos::post(mgmtd_alarms, what, 100ms));
    vos::set_debug_flags(flags);
}

void packetTrapped(State &state, const vos::packet &packet) {
    ++state.packets;
    vosPrintf("\r\noltd: packet %u of %zu bytes, first 0x%02X", state.packets, packet.data.size(),
              packet.data.empty() ? 0u : packet.data[0]);
}

/* A port's number, from 1, and 1 for up and 0 for down. */
void linkChanged(State &state, uint32_t number, uint32_t up) {
    Port *const port = state.port(number);
    if (port == nullptr) return;
    port->up = up != 0;
    ++port->changes;
    alarm("port " + std::to_string(number) + (port->up ? " up" : " down"));
}

int32_t readObject(State &state, vos::object_access &access) {
    const Port *const port = access.index_count() == 1 ? state.port(access.index(0)) : nullptr;
    if (access.name() != object || port == nullptr) return VOS_ERR_PARAM;
    return access.answer(port->changes);
}

/* Output 1 is the kind (1: a counter), output 2 the size of a value; the table holds the ports' numbers. */
int32_t describeObject(const State &state, std::string_view name, vos::object_description &out) {
    if (name != object) return VOS_ERR_PARAM;
    out.first[0] = 1;
    out.first[1] = sizeof(uint32_t);
    out.count = static_cast<uint32_t>(state.ports.size());
    for (uint32_t i = 0; i < out.count; ++i) out.table[i] = i + 1;
    return VOS_OK;
}

void doorMoved(State &state, int fd) {
    char moves[16];
    const ssize_t count = read(fd, moves, sizeof moves);
    for (ssize_t i = 0; i < count; ++i) {
        if (moves[i] != '0' && moves[i] != '1') continue;
        state.doorOpen = moves[i] == '1';
        alarm(state.doorOpen ? "door open" : "door closed");
    }
}

/* The contact is a FIFO that another program writes to. It is opened for writing, too, so that it has no end of file.
 */
vos::unique_fd openDoor() {
    unlink(door_path);
    if (mkfifo(door_path, 0600) != 0) return vos::unique_fd{};
    return vos::unique_fd{open(door_path, O_RDWR | O_NONBLOCK | O_CLOEXEC)};
}

}  // namespace

vos::result<Events> Events::start(vos::channel &channel, State &state) {
    Events events;
    std::size_t count = 0;
    int32_t code = VOS_OK;
    const auto keep = [&](vos::result<vos::registration> made) {
        if (made)
            events.all_[count++] = std::move(*made);
        else
            code = made.code();
    };
    keep(vos::on_packet([&](const vos::packet &packet) { packetTrapped(state, packet); }));
    keep(vos::on_port_link(0, [&](uint32_t number, uint32_t up) { linkChanged(state, number, up); }));
    keep(vos::on_running_config([&](vos::config_writer &out) { out << state.config(); }));
    keep(vos::on_object([&](vos::object_access &access) { return readObject(state, access); }));
    keep(vos::on_object_description([&](std::string_view name, uint32_t, vos::object_description &out) {
        return describeObject(state, name, out);
    }));
    keep(channel.every(100ms, [&] { ++state.ticks; }));
    keep(channel.watch(openDoor(), [&](int fd) { doorMoved(state, fd); }));
    if (code != VOS_OK) return vos::error{code};
    return events;
}

Events::~Events() {
    if (all_.back().active()) unlink(door_path);
}

}  // namespace olt
