/* SPDX-License-Identifier: MIT */
/* A client: one request to a process by its name, and the answer. */
#include <cstdio>
#include <vos.hpp>

using namespace std::chrono_literals;

int main(int argc, char **argv) {
    const char *const name = argc > 1 ? argv[1] : "server";
    if (!vos::process::init("client")) return 1;
    char room[64];
    const auto answer = vos::call(name, "who?", room, 3s);
    if (!answer) {
        std::printf("\nclient: %s does not answer\n", name);
        return 1;
    }
    const auto text = answer->value.text(); /* its length is that of the answer */
    std::printf("client: %s says \"%.*s\" and has worked %d times\n", name, static_cast<int>(text.size()), text.data(),
                answer->code);
    return 0;
}
