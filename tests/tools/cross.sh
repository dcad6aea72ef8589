#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# cross.sh VERSION COMMAND...: COMMAND is a bbpwatch built for another machine; it tells its version and
# what a run's output comes to.
set -euo pipefail

[[ "$("${@:2}" --version)" == "bbpwatch $1" ]] || { echo "--version: not $1" && exit 1; }

# judges STATUS OUTPUT TEXT: of that output bbpwatch writes TEXT and ends with STATUS.
judges() {
    local status=0 said
    said=$(printf '%b' "$2" | "${command[@]}") || status=$?
    [[ $status == "$1" && "$said" == *"$3"* ]] || { echo "$2: status $status, $said" && exit 1; }
}

command=("${@:2}")
judges 0 '1\n80\n85\n90\n95\n99\n100\nDONE\n' 'updated and verified'
judges 76 '100\n' 'bbpwatch'
