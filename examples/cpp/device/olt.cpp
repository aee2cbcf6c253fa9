/* SPDX-License-Identifier: MIT */
/* The command of an administrator: sends a request to the OLT, through a session of mgmtd.
 *
 *     olt [-s SESSION] REQUEST...
 *     olt alarm
 */
#include "olt.hpp"

#include <cstdio>
#include <cstdlib>

namespace {

int usage() {
    std::fprintf(stderr,
                 "usage: olt [-s SESSION] show | config | set LINE | save | upgrade FILE VERSION | backup | bootloader "
                 "FILE | reboot | selftest | audit | alarm\n");
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    int32_t session = 1;
    int first = 1;
    if (argc > 2 && std::string_view{argv[1]} == "-s") {
        session = std::atoi(argv[2]);
        first = 3;
    }
    std::string line; /* the words of the request, with blanks between them */
    for (int i = first; i < argc; ++i) line += (i > first ? " " : "") + std::string{argv[i]};
    if (session < 1 || session > olt::sessions || line.empty() || line.size() >= sizeof(olt::Text)) return usage();
    if (!vos::process::init("olt")) return 1;

    const olt::Text request{line};
    const auto answer = line == "alarm" ? vos::call<olt::Text>(olt::mgmtd, request, olt::patience)
                                        : vos::call<olt::Text>(vos::thread_of(olt::mgmtd, session), request,
                                                               olt::patience + std::chrono::seconds{1});
    if (!answer) {
        std::fprintf(stderr, "\nolt: mgmtd does not answer (%d)\n", answer.code());
        return 1;
    }
    const std::string_view text = answer->value.view();
    std::printf("%.*s%s", static_cast<int>(text.size()), text.data(), !text.empty() && text.back() == '\n' ? "" : "\n");
    return answer->code == VOS_OK ? 0 : 1;
}
