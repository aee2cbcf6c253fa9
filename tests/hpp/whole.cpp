/* SPDX-License-Identifier: MIT */
/* Uses every part of vos.hpp, for compilers, versions of the language and options that the other tests are not built
 * with. It is compiled, not run. */
#include <vos.hpp>

#include <mutex>
#include <vector>

using namespace std::chrono_literals;

struct Record {
    int32_t number;
};

int32_t processes() {
    vos::process::prepare_device("name");
    const auto named = vos::process::init("name");
    const auto created = vos::process::create("/bin/true", 1);
    const auto with_arguments = vos::process::create("/bin/true", 1, std::string{"a b"});
    const auto with_files = vos::process::create("/bin/true", 1, 0, 1, 2);
    return named.code() + created.value_or(0) + with_arguments.value_or(0) + with_files.value_or(0) +
           vos::process::destroy(vos::process::id()).code() + vos::process::schedule(0, 1).code() +
           vos::process::scheduling_of(0)->priority + static_cast<int32_t>(vos::process::name_of(1)->view().size());
}

int32_t requests() {
    Record record{1};
    unsigned char room[64];
    return vos::exchange("other", record, vos::forever).value() + vos::call<Record>("other", 5, 3s)->code +
           vos::call(vos::high("other"), std::vector<int>{1, 2}, room, 1ms)->code +
           vos::call(vos::thread_of(std::string{"other"}, 2), "text", 1h).value() +
           vos::post("other", std::string_view{"text"}, vos::no_wait).code() +
           vos::post("other", std::array<int, 2>{1, 2}, 1ns).code();
}

template <class Channel>
int32_t loop(Channel &channel) {
    int32_t count = 0;
    const auto opened = channel.open("name");
    const auto periodic = channel.every(1s, [&] { ++count; });
    const auto once =
        channel.after(1ms, [&](std::chrono::milliseconds late) { count += static_cast<int>(late.count()); });
    const auto watched = channel.watch(0, [&](int fd) { count += fd; });
    const auto owned = channel.watch(vos::unique_fd{1}, [&] { ++count; });
    const auto end = vos::on_termination(channel, [&] { channel.stop(); });
    if (auto request = channel.receive(3s)) static_cast<void>(request->answer(count, request->payload()));
    const auto served = channel.run([&](vos::request &request) {
        vos::request kept = std::move(request);
        static_cast<void>(kept.answer(count, kept.as<Record>().value()));
    });
    return opened.code() + served.code() + (periodic && once && watched && owned && end ? 1 : 0);
}

int32_t channels() {
    vos::channel channel;
    vos::second_channel second;
    vos::thread_channel<100> thread;
    const auto opened = thread.open("name", 1);
    const auto got = thread.receive();
    return loop(channel) + loop(second) + opened.code() + channel.open_netlink("name").code() + got.code() +
           channel.run().code();
}

int32_t handlers() {
    uint32_t sum = 0;
    unsigned char room[100];
    std::array<vos::handler, 8> all{
        vos::on_packet([&](const vos::packet &packet) { sum += packet.data[0]; }).value(),
        vos::on_port_link(0, [&](uint32_t port, uint32_t up) { sum += port + up; }).value(),
        vos::on_port_link(1, [&] { ++sum; }).value(),
        vos::on_vlan_link([&](uint32_t a, uint32_t b, uint32_t c) { sum += a + b + c; }).value(),
        vos::on_mac([&](uint32_t a, uint32_t, uint32_t, const void *) { sum += a; }).value(),
        vos::on_running_config([&](vos::config_writer &out) { out.print("%u", sum) << "text"; }).value(),
        vos::on_object([&](vos::object_access &access) { return access.answer(sum); }).value(),
        vos::on_object_description([](std::string_view, uint32_t, vos::object_description &out) {
            out.count = 1;
            return 0;
        }).value(),
    };
    return static_cast<int32_t>(sum + vos::running_config("other", room)->size()) +
           vos::describe("other", "object", 1)->code + (all[0].active() ? 1 : 0);
}

int32_t services() {
    vos::mutex mutex;
    const std::lock_guard<vos::mutex> guard{mutex};
    vos::semaphore semaphore{1};
    vos::wait_object wait;
    auto timer = vos::interval_timer::every(1s, [] {});
    timer = vos::interval_timer::once(1s, [] {});
    const auto scope = vos::vrf_scope::enter(1);
    const auto shared = vos::shared_memory<Record>::create("/tmp", 1);
    const auto read_only = vos::shared_memory<const Record>::attach("/tmp", 1);
    vos::log(vos::level::error)("%d %s", 1, "text");
    vos::print("text");
    return semaphore.take(1ms).code() + wait.take().code() + (*shared)->number + (*read_only)->number + scope.code() +
           vos::set_debug_flags_of("other", vos::debug_flags()).code() + (mutex.try_lock_for(1s) ? 1 : 0);
}

int32_t stores() {
    unsigned char room[100];
    const auto image = vos::file::read("/tmp/image", room).value();
    return vos::config::save("text").code() + static_cast<int32_t>(vos::config::load()->text().size()) +
           vos::syslog::save("text").code() + vos::syslog::load(room).code() +
           vos::image::check(vos::image::type::application, image).code() + vos::image::install(image).code() +
           vos::image::write_boot_loader(image).code() + (vos::image::backup()->exists ? 1 : 0) +
           vos::items::set(vos::items::systemMac, {1, 2, 3, 4, 5, 6}).code() +
           vos::items::get(vos::items::systemMac).value()[0] + vos::items::set(vos::items::ipAddress, 1).code();
}

bool texts() {
    const vos::text<8> one{"one"}, two{"two"};
    const vos::text<16> longer{"one"};
    return one == longer && one != two && one == std::string{"one"} && "one" == one && two != std::string_view{"one"};
}

int32_t host() {
    const auto address = vos::ipv4_address("127.0.0.1", 80).value();
    const auto connected = vos::connected_socket(SOCK_STREAM, address, 3s);
    const auto ran = vos::shell::run("true", vos::shell::terminal::interactive);
    const vos::uptime_clock::time_point now = vos::uptime_clock::now() + 1s;
    return connected.code() + ran.value_or(1) + vos::shell::start("true").code() +
           static_cast<int32_t>((vos::uptime_clock::now() - now).count() + vos::uptime()->count()) +
           vos::set_system_time(std::chrono::system_clock::now()).code() + vos::set_time_zone("UTC0").code() +
           vos::host::name().code() + vos::host::set_name("name").code() +
           static_cast<int32_t>(vos::host::memory_total() + vos::host::memory_free() + vos::host::measure_idle());
}

int main() {
    return processes() + requests() + channels() + handlers() + services() + stores() + host() + (texts() ? 1 : 0);
}
