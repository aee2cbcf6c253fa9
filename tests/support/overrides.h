/* SPDX-License-Identifier: MIT */
/* The overrides of the C library's calls, by name. */
#ifndef TESTS_SUPPORT_OVERRIDES_H
#define TESTS_SUPPORT_OVERRIDES_H

#include <string>

namespace vostest {

/* The override of a call, or null when there is none. */
void *overrideOf(const std::string &name);

/* Whether a call is on the reviewed list of those that cannot fail, or whose failure cannot be distinguished from
 * success. */
bool cannotFail(const std::string &name);

}  // namespace vostest

#endif
