# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? help
#?     this text

takes_nothing "$@"
printf 'usage: ./dev COMMAND\n\n'
# A command with what it takes, then what it does, beside it where there is room.
awk '/^#\? [^ ]/ { command = substr($0, 4) }
     /^#\?  / {
         if (length(command) > 12) { print "  " command; command = "" }
         printf "  %-12s  %s\n", command, substr($0, 8); command = "" }' scripts/commands/*.sh
printf '\n%s\n' 'Each command first installs the Debian packages that it needs and that are missing, as root or
through sudo. Everything that is built is below build/.'
