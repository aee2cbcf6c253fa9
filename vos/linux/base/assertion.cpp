/* SPDX-License-Identifier: MIT */
#include "assertion.h"

#include <unistd.h>

#include <cstdlib>

#include "vosDebug.h"
#include "vosProcess.h"

namespace vos {

void assertionFailed(const char *expression, const char *area, Caller me, int line) {
    vosPrintf("\r\n%s(%d):Assertion failed!%s, %s, %s, line=%d.\r\n", vosProcessGetName(), getpid(), expression, area,
              me.name, line);
    abort();
}

}  // namespace vos
