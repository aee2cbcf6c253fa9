/* SPDX-License-Identifier: MIT */
/* Finds the processes that have a socket open. */
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

#include "kernelSockets.h"

namespace vosctl {

namespace {

namespace fs = std::filesystem;

template <class Number>
std::optional<Number> numberOf(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) return {};
    return number;
}

std::string contentOf(const fs::path &path) {
    std::ifstream file{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

std::string programOf(const fs::path &process) {
    std::string program = contentOf(process / "cmdline");
    program.resize(std::min(program.size(), program.find('\0')));
    if (program.empty()) {
        program = contentOf(process / "comm");
        while (!program.empty() && program.back() == '\n') program.pop_back();
    }
    return program.substr(program.rfind('/') + 1);
}

/* The 22nd word of the line. The 2nd is the name in parentheses, which may have blanks and parentheses in it. */
uint64_t startOf(const fs::path &process) {
    std::string line = contentOf(process / "stat");
    line.erase(0, line.rfind(')') + 1);
    std::size_t begin = 0;
    for (int word = 3; word <= 22 && begin != std::string::npos; ++word) begin = line.find(' ', begin + (word > 3));
    if (begin == std::string::npos) return 0;
    const std::size_t end = line.find(' ', begin + 1);
    return numberOf<uint64_t>(std::string_view(line).substr(begin + 1, end - begin - 1)).value_or(0);
}

std::optional<uint32_t> inodeOf(const fs::path &descriptor) {
    std::error_code failed;
    const std::string target = fs::read_symlink(descriptor, failed).string();
    constexpr std::string_view kBegin = "socket:[";
    if (failed || !target.starts_with(kBegin) || !target.ends_with(']')) return {};
    return numberOf<uint32_t>(std::string_view(target).substr(kBegin.size(), target.size() - kBegin.size() - 1));
}

/* Processes start and end while /proc is read, so what cannot be read is left out. */
void addSocketsOf(std::vector<std::pair<uint32_t, Owner>> &owners, int pid, const fs::path &process) {
    std::optional<Owner> owner;
    std::error_code failed;
    for (fs::directory_iterator each{process / "fd", failed}, end; !failed && each != end; each.increment(failed)) {
        const auto inode = inodeOf(each->path());
        if (!inode) continue;
        if (!owner) owner = Owner{pid, startOf(process), programOf(process)};
        owners.emplace_back(*inode, *owner);
    }
}

}  // namespace

std::vector<std::pair<uint32_t, Owner>> socketOwners() {
    std::vector<std::pair<uint32_t, Owner>> owners;
    std::error_code failed;
    for (fs::directory_iterator each{"/proc", failed}, end; !failed && each != end; each.increment(failed))
        if (const auto pid = numberOf<int>(each->path().filename().string())) addSocketsOf(owners, *pid, each->path());
    std::sort(owners.begin(), owners.end(), [](const auto &left, const auto &right) {
        return std::tuple{left.first, left.second.started, left.second.pid} <
               std::tuple{right.first, right.second.started, right.second.pid};
    });
    owners.erase(std::unique(owners.begin(), owners.end(),
                             [](const auto &left, const auto &right) {
                                 return left.first == right.first && left.second.pid == right.second.pid;
                             }),
                 owners.end());
    return owners;
}

}  // namespace vosctl
