/* SPDX-License-Identifier: MIT */
/* The signal dispositions of a process that runs shell commands. */
#ifndef VOS_SYS_COMMAND_SIGNALS_H
#define VOS_SYS_COMMAND_SIGNALS_H

namespace vos {

/* Called before a command is started: the process ignores SIGQUIT and SIGINT, so that the keyboard's signals reach the
 * command only, and SIGCHLD has its default action, because a process that ignores SIGCHLD gets no exit status. */
void beginCommand();

/* Called when a command has ended or is no longer waited for. When no other thread runs a command, the dispositions of
 * before are set again, and the children that have ended meanwhile are reaped if the process ignores SIGCHLD. */
void endCommand();

}  // namespace vos

#endif
