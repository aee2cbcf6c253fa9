/* SPDX-License-Identifier: MIT */
/* The requests of administrators. */
#include <algorithm>
#include <sstream>
#include <thread>
#include <vector>

#include "olt.hpp"

namespace olt {

namespace {

using Answer = vos::answer<std::string>;

Answer show(State &state, const std::string & /*rest*/) {
    const auto up = std::count_if(state.ports.begin(), state.ports.end(), [](const Port &port) { return port.up; });
    std::ostringstream text;
    text << state.name << ", serial " << vos::serial_number().view() << ", hardware " << vos::hardware_version() << ": "
         << up << " of " << state.ports.size() << " ports up, " << state.packets << " packets, door "
         << (state.doorOpen ? "open" : "closed");
    return {VOS_OK, text.str()};
}

Answer config(State &state, const std::string & /*rest*/) { return {VOS_OK, state.config()}; }

Answer set(State &state, const std::string &rest) {
    if (!state.apply(rest)) return {VOS_ERR_PARAM, "not understood: " + rest.substr(0, 60)};
    return {VOS_OK, "done"};
}

Answer save(State &state, const std::string & /*rest*/) {
    const auto saved = state.save();
    return {saved.code(), saved ? "saved" : "not saved"};
}

const char *reasonOf(int32_t code) {
    switch (code) {
        case VOS_ERR_IMAGE_TYPE:
            return "it is of another kind";
        case VOS_ERR_IMAGE_COMPAT:
            return "it is for another device";
        case VOS_ERR_IMAGE_CRC:
            return "its checksum is wrong";
        default:
            return "it cannot be read or written";
    }
}

Answer tellInstalled(vos::result<void> installed, const std::string &what) {
    if (installed) return {VOS_OK, what + " is installed"};
    return {installed.code(), std::string{"the image is refused: "} + reasonOf(installed.code())};
}

/* The whole file; empty when it cannot be read. */
std::vector<uint8_t> contentOf(const std::string &file) {
    std::vector<uint8_t> content(vos::file::size(file).value_or(0));
    const auto read = vos::file::read(file, content);
    if (!read || read->size() != content.size()) content.clear();
    return content;
}

/* "FILE VERSION": the image is checked, the installed application is backed up, the image and its version are
 * installed. */
Answer upgrade(State & /*state*/, const std::string &rest) {
    std::istringstream words{rest};
    std::string file, version;
    words >> file >> version;
    const auto image = contentOf(file);
    if (version.empty() || image.empty()) return {VOS_ERR_PARAM, "upgrade needs a file and a version"};
    auto installed = vos::image::install(image);
    if (installed) installed = vos::image::set_version(version);
    return tellInstalled(installed, version);
}

/* "FILE": the image is checked and written over the boot loader. */
Answer bootLoader(State & /*state*/, const std::string &rest) {
    const auto image = contentOf(rest);
    if (image.empty()) return {VOS_ERR_PARAM, "bootloader needs a file"};
    return tellInstalled(vos::image::write_boot_loader(image), "the boot loader");
}

Answer backup(State & /*state*/, const std::string & /*rest*/) {
    const auto found = vos::image::backup();
    if (!found) return {found.code(), found.words()};
    if (!found->exists) return {VOS_OK, "there is no backup"};
    return {VOS_OK, "the backup is version " + std::string{found->version.view().substr(0, 100)}};
}

/* Measures the light of each port, and nobody else is served meanwhile. */
Answer selfTest(State &state, const std::string & /*rest*/) {
    for (std::size_t i = 0; i < state.ports.size(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds{50});
    return {VOS_OK, std::to_string(state.ports.size()) + " ports tested"};
}

/* A mistake, to be found: the OLT asks a session of mgmtd, which asks the OLT, which waits. */
Answer audit(State & /*state*/, const std::string & /*rest*/) {
    const auto answer =
        vos::call<Text>(vos::thread_of(mgmtd, sessions), Text{"show"}, patience - std::chrono::seconds{1});
    return {answer.code(), answer ? "audited" : "the audit got no answer"};
}

Answer reboot(State & /*state*/, const std::string & /*rest*/) {
    vosReboot(VOS_REBOOT_NOW);
    return {VOS_OK, "rebooting"};
}

constexpr struct {
    std::string_view word;
    Answer (*carryOut)(State &state, const std::string &rest);
} requests[] = {
    {"show", show},         {"config", config},         {"set", set},       {"save", save},
    {"upgrade", upgrade},   {"bootloader", bootLoader}, {"backup", backup}, {"reboot", reboot},
    {"selftest", selfTest}, {"audit", audit},
};

}  // namespace

vos::answer<std::string> carryOut(State &state, std::string_view line) {
    const auto word = line.substr(0, line.find(' '));
    const auto begin = line.find_first_not_of(' ', word.size());
    const std::string rest{begin == std::string_view::npos ? std::string_view{} : line.substr(begin)};
    for (const auto &request : requests)
        if (request.word == word) return request.carryOut(state, rest);
    return {VOS_ERR_PARAM, "no such request: " + std::string{line.substr(0, 60)}};
}

}  // namespace olt
