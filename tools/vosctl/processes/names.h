/* SPDX-License-Identifier: MIT */
/* Names of processes, and the socket paths behind them. */
#ifndef VOSCTL_NAMES_H
#define VOSCTL_NAMES_H

#include <string>

namespace vosctl {

inline constexpr const char *kSocketDirectory = "/tmp/vos";
inline constexpr const char *kHighEnd = "High"; /* ends the path of a high-priority socket */

enum class Pair { normal, high };

/* The path of a name's socket. What stands before the name's last slash does not count. */
std::string socketPath(const std::string &name, Pair which = Pair::normal);

/* Whether somebody receives on a socket path, as the kernel tells a sender. A connected socket, such as a requester's,
 * takes messages from its partner only. */
enum class Reach { reachable, full, connected, stale, missing, tooLong, notASocket, forbidden, failed };
Reach reachOf(const std::string &path);

/* Throws a Failure that says what is wrong unless somebody receives under the name. */
void requireReachable(const std::string &name, Pair which = Pair::normal);

/* The same, when a request has failed on the way: tells why, as far as it can be seen from outside. */
[[noreturn]] void explainSilence(const std::string &name, Pair which, const std::string &otherwise,
                                 const std::string &nextStep);

}  // namespace vosctl

#endif
