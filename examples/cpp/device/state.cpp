/* SPDX-License-Identifier: MIT */
/* The configuration of the OLT: in memory, as text, on flash. */
#include <sstream>

#include "olt.hpp"

namespace olt {

std::string State::config() const {
    std::ostringstream text;
    text << "name " << name << '\n';
    for (std::size_t i = 0; i < ports.size(); ++i)
        text << "port " << i + 1 << (ports[i].enabled ? " enable " : " disable ") << ports[i].description << '\n';
    return text.str();
}

bool State::apply(const std::string &line) {
    std::istringstream words{line};
    std::string what, state, described, more;
    words >> what;
    if (what == "name" && words >> described && !(words >> more)) {
        name = described;
        return true;
    }
    uint32_t number = 0;
    if (what != "port" || !(words >> number >> state >> described) || words >> more) return false;
    Port *const found = port(number);
    if (found == nullptr || (state != "enable" && state != "disable") || described.size() > 31) return false;
    found->enabled = state == "enable";
    found->description = described;
    return true;
}

bool State::load() {
    const auto saved = vos::config::load();
    if (!saved) return false;
    std::istringstream lines{std::string{saved->text()}};
    for (std::string line; std::getline(lines, line);)
        if (!apply(line)) vosPrintf("\r\noltd: not understood: %.60s", line.c_str());
    return true;
}

vos::result<void> State::save() const { return vos::config::save(std::string_view{config()}); }

}  // namespace olt
