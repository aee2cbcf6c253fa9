/* SPDX-License-Identifier: MIT */
#include "terminal.h"

#include <csignal>
#include <initializer_list>

#include "vosSys.h"

int32_t vosTerminalCtrlClear(void) {
    for (const int number : {SIGQUIT, SIGINT, SIGCHLD, SIGPIPE}) signal(number, SIG_IGN);
    vos::Terminal terminal;
    terminal.settings().c_lflag &= ~static_cast<tcflag_t>(ISIG);
    terminal.settings().c_cc[VSTART] = 0;
    terminal.settings().c_cc[VSTOP] = 0;
    terminal.apply();
    return VOS_OK;
}
