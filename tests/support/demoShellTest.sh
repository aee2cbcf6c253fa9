#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The shell of scripts/demo --shell has its prompt, a device that answers, and vosctl's completion.
#
#     demoShellTest.sh DIRECTORY-OF-THE-EXAMPLES DIRECTORY-OF-VOSCTL
set -euo pipefail
tree=$(cd "$(dirname "$0")/../.." && pwd)

# The share directory of an installation, as far as the shell reads it.
mkdir -p /tmp/share/bash-completion/completions
cp "$tree/tools/vosctl/completion/vosctl.bash" /tmp/share/bash-completion/completions/vosctl
said=$(PATH=$1:$2:$PATH VOS_PROGRAMS=$1 VOS_SHARE=/tmp/share bash --rcfile "$tree/scripts/lib/demoShell.bash" -i 2>&1 <<'END'
olt show
complete -p vosctl
echo "manual: $MANPATH"
END
) || true
for wanted in 'The OLT is running' 'vos# ' 'olt, serial ' 'complete -' 'manual: /tmp/share/man'; do
    grep -qF "$wanted" <<<"$said" || { printf 'FAILED: "%s" is not in what the shell said:\n%s\n' "$wanted" "$said"; exit 1; }
done
echo "ok: the shell is ready"
