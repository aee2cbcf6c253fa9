# SPDX-License-Identifier: MIT
# The flash is full: a new limit is refused, and the old one stays.
#
#     fullFlash.sh DIRECTORY-OF-THE-PROGRAMS
PATH=$1:$PATH
thermod &
trap 'kill $! 2>/dev/null' EXIT
until answer=$(ask thermod 'limit 30'); do sleep 0.01; done
[ "$(echo "$answer" | tail -n 1)" = -1 ] && [ "$(ask thermod limit | tail -n 1)" = 20 ] && [ ! -e /flash/limit ]
