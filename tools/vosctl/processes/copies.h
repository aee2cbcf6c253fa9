/* SPDX-License-Identifier: MIT */
/* Copies of messages, as processes send them to a tap. */
#ifndef VOSCTL_COPIES_H
#define VOSCTL_COPIES_H

#include <vosTestCopies.hpp>

#include <string>
#include <string_view>

namespace vosctl {

using vos::test::Copy;
using vos::test::copyOf;
using vos::test::LossCount;

/* The last part of a path. */
inline std::string fileOf(std::string_view path) { return std::string(path.substr(path.rfind('/') + 1)); }

}  // namespace vosctl

#endif
