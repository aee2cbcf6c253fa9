/* SPDX-License-Identifier: MIT */
/* Names of processes, and the socket paths behind them. */
#ifndef VOSCTL_NAMES_H
#define VOSCTL_NAMES_H

#include <string>

namespace vosctl {

inline constexpr const char *kSocketDirectory = "/tmp/vos";
inline constexpr const char *kHighEnd = "High"; /* ends the path of a high-priority socket */

enum class Pair { normal, high };

/* The path of a name's socket. Only the part after the name's last slash counts. */
std::string socketPath(const std::string &name, Pair which = Pair::normal);

/* Whether a process receives on a socket path, found out by connecting to it. A connected socket, such as a
 * requester's, accepts messages only from its peer. */
enum class Reach { reachable, full, connected, stale, missing, tooLong, notASocket, forbidden, failed };
Reach reachOf(const std::string &path);

/* Throws a Failure that says what is wrong, unless a process receives under the name. */
void requireReachable(const std::string &name, Pair which = Pair::normal);

/* The same after a failed request: says why it failed, as far as that can be seen from outside. */
[[noreturn]] void explainSilence(const std::string &name, Pair which, const std::string &otherwise,
                                 const std::string &nextStep);

}  // namespace vosctl

#endif
