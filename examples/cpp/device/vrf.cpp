/* SPDX-License-Identifier: MIT */
/* Switches to a VRF and back: prints the index of its loopback interface, and binds an address that is configured
 * there.
 *
 *     vrf NUMBER [ADDRESS]
 */
#include <netinet/in.h>

#include <cstdio>
#include <cstdlib>
#include <vos.hpp>

namespace {

bool canBind(const char *text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = vosInetAddr(text);
    const vos::unique_fd fd{vosSocket(AF_INET, SOCK_DGRAM, 0)};
    return vosBind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: vrf NUMBER [ADDRESS]\n");
        return 2;
    }
    if (!vos::process::init("vrf")) return 1;
    const char *const address = argc > 2 ? argv[2] : nullptr;
    auto scope = vos::vrf_scope::enter(static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)));
    if (!scope) return 1;
    const uint32_t index = vos::interface_index("lo").value_or(0);
    const bool inside = address == nullptr || canBind(address);
    if (!scope->leave()) return 1;
    const bool outside = address != nullptr && canBind(address);
    std::printf("\nVRF %s: its lo has index %u", argv[1], index);
    if (address != nullptr)
        std::printf("; %s %s there, and %s outside", address, inside ? "is" : "is not", outside ? "is" : "is not");
    std::printf("\n");
    return inside && !outside ? 0 : 1;
}
