/* SPDX-License-Identifier: MIT */
/* What a tool does to a running process: switch its trace, ask for its configuration, ask it while it is busy. */
#include <cstdio>
#include <vector>
#include <vos.hpp>

using namespace std::chrono_literals;

namespace {

constexpr int32_t all_work = 5;

/* One request to the server; its answer's code, which is how often it has worked, or -1. */
int32_t ask(vos::target server) { return vos::call(server, "who?", 3s).value_or(-1); }

bool trace() {
    if (!vos::set_debug_flags_of("server", VOS_DEBUG_ERROR | VOS_DEBUG_TRACE)) return false;
    if (ask("server") < 0 || !vos::set_debug_flags_of("server", VOS_DEBUG_ERROR)) return false;
    return ask("server") >= 0; /* this one is not traced any more */
}

bool config() {
    std::vector<char> room(4096);
    const auto text = vos::running_config("server", room);
    if (text) std::printf("%.*s", static_cast<int>(text->size()), text->data());
    return text.has_value();
}

bool busy() {
    const int32_t before = ask("server");
    for (int i = 0; i < all_work; ++i)
        if (!vos::post("server", "work", 3s)) return false;
    const int32_t high = ask(vos::high("server")) - before;
    const int32_t normal = ask("server") - before;
    std::printf("control: the high socket answered after %d of %d pieces of work, the normal one after %d\n", high,
                all_work, normal);
    return high >= 0 && high < all_work && normal == all_work;
}

bool stop() { return vos::post("server", "stop", 3s).has_value(); }

}  // namespace

int main(int argc, char **argv) {
    const std::string_view what = argc == 2 ? argv[1] : "";
    if (!vos::process::init("control")) return 1;
    if (what == "trace") return trace() ? 0 : 1;
    if (what == "config") return config() ? 0 : 1;
    if (what == "busy") return busy() ? 0 : 1;
    if (what == "stop") return stop() ? 0 : 1;
    std::fprintf(stderr, "usage: control trace|config|busy|stop\n");
    return 2;
}
