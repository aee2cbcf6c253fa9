# shellcheck shell=bash
# SPDX-License-Identifier: MIT
# The start file of the shell of scripts/demo --shell. It starts the OLT, and sets up prompt, completion and manual.
PS1='vos# '
HISTFILE=/tmp/history
export MANPATH=$VOS_SHARE/man:/usr/share/man
# shellcheck source=/dev/null
for file in /usr/share/bash-completion/bash_completion "$VOS_SHARE/bash-completion/completions/vosctl"; do
    if [ -r "$file" ]; then . "$file"; fi
done
unset file

# In a process group of its own: Ctrl-C at the prompt does not end the OLT.
initd "$VOS_PROGRAMS" >/tmp/olt.log 2>&1 &
disown
for ((i = 0; i < 500; ++i)); do
    if olt show >/dev/null 2>&1; then break; fi
    sleep 0.02
done
unset i
if olt show >/dev/null 2>&1; then
    echo 'The OLT is running; its output is in /tmp/olt.log. "exit" ends it and this shell.'
    echo 'Try: olt show; vosctl ps; vosctl log oltd trace; vosctl doctor; man vosctl; vosctl <Tab><Tab>'
else
    echo 'The OLT does not answer. These are the last lines of /tmp/olt.log:'
    tail -n 5 /tmp/olt.log
fi
