/* SPDX-License-Identifier: MIT */
/* Changes the debug output of another process: its flag words, and where its standard output goes. */
#include <fcntl.h>
#include <unistd.h>

#include "../base/file.h"
#include "../base/log.h"
#include "../base/text.h"
#include "../base/uniqueFd.h"
#include "address.h"
#include "message.h"

constinit uint32_t g_vosDebugSmdFlags = 0x805;

namespace {

using vos::Caller;

constexpr uint32_t kTimeoutMs = 3000;

/* Standard output as it was before the first redirection. */
constinit int32_t g_vosStdoutSaveFd = -1;

/* The socket is not bound, so that nobody can answer. */
int32_t sendControl(Caller me, const char *name, uint32_t type, uint32_t value1, uint32_t value2) {
    if (name == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    VOS_MSG_HEAD head{};
    head.ulType = type;
    head.ulValue1 = value1;
    head.ulValue2 = value2;
    vos::UniqueFd socket{vosMsgLocalSocket(kTimeoutMs)};
    if (!socket) return vos::failed(me, VOS_ERROR, "%s:vosMsgLocalSocket failed.");
    vos::trace(me, "%s:create socket %d.", socket.get());
    const vos::LocalAddress to{vos::normalPath(name).view()};
    int32_t result = VOS_OK;
    if (vos::sendStream(vos::kControl, socket.get(), &head, sizeof head, to.get(), to.length()) < 0)
        result = vos::failed(me, VOS_ERROR, "%s:vosMsgSendStream failed.");
    socket.reset();
    return vos::ended(me, result);
}

vos::UniqueFd openTerminal(uint32_t terminal) {
    vos::Text<32> path;
    if (terminal == 0)
        path.append("/dev/console");
    else
        path.append("/dev/pts/").appendDecimal(terminal - 1);
    /* O_NOCTTY: the end of a controlling terminal would end the process. */
    return vos::openFile(path.get(), O_WRONLY | O_NOCTTY);
}

/* The copy is inherited by the programs that this process starts; the terminal's own descriptor is not. Where both are
 * the same, because descriptor 1 was closed, dup2() would change nothing. */
bool becomesStandardOutput(int terminal) {
    if (terminal == STDOUT_FILENO) return fcntl(STDOUT_FILENO, F_SETFD, 0) != -1;
    return dup2(terminal, STDOUT_FILENO) != -1;
}

int32_t redirectTo(uint32_t terminal) {
    if (g_vosStdoutSaveFd == -1) g_vosStdoutSaveFd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    if (g_vosStdoutSaveFd == -1) return VOS_ERROR;
    vos::UniqueFd opened = openTerminal(terminal);
    if (!opened || !becomesStandardOutput(opened.get())) return VOS_ERROR;
    (void)opened.release(); /* stays open: each redirection keeps its descriptor */
    return VOS_OK;
}

}  // namespace

int32_t vosMsgDebugVos(const char *pDestName, uint32_t ulFlags) {
    const Caller me;
    return sendControl(me, pDestName, VOS_MSG_VOS_DEBUG, ulFlags, 0);
}

int32_t vosMsgDebugSmd(const char *pDestName, uint32_t ulFlags) {
    const Caller me;
    return sendControl(me, pDestName, VOS_MSG_SMD_DEBUG, ulFlags, 0);
}

int32_t vosMsgDebugMsgSend(const char *pDestName, uint32_t ulType, uint32_t ulValue1, uint32_t ulValue2) {
    const Caller me;
    return sendControl(me, pDestName, ulType, ulValue1, ulValue2);
}

uint32_t vosMsgDebugSmdGet(void) { return __atomic_load_n(&g_vosDebugSmdFlags, __ATOMIC_RELAXED); }

int32_t vosMsgDebugSmdSet(uint32_t ulFlags) {
    __atomic_store_n(&g_vosDebugSmdFlags, ulFlags, __ATOMIC_RELAXED);
    return VOS_OK;
}

int32_t vosMsgDebugStdRedirect(uint32_t ulAction, uint32_t ulTty) {
    if (ulAction == VOS_MSG_STDOUT_TERMINAL) return redirectTo(ulTty);
    if (ulAction != VOS_MSG_STDOUT_RESTORE) return VOS_ERR_PARAM;
    return dup2(g_vosStdoutSaveFd, STDOUT_FILENO) == -1 ? VOS_ERROR : VOS_OK;
}
