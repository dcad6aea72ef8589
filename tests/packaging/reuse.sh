#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# reuse.sh FOLDER: the sources say of every file who has the rights and under which licence it may
# be used, as the REUSE tool checks it; and the tool is seen to find what is wrong.
set -euo pipefail

root=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A copy without what was built: the tool knows that folder only where git does.
"$root/packaging/copy_sources.sh" "$work/tree"
cd "$work/tree"
cmp LICENSE LICENSES/Apache-2.0.txt

conforms() {
    reuse --root . lint >"$work/log" 2>&1
}

conforms || { cat "$work/log" && exit 1; }

# sees COMMAND: the tool complains after the command, which is then undone by the second one.
sees() {
    eval "$1"
    if conforms; then
        echo "not seen: $1"
        exit 1
    fi
    eval "$2"
}

sees 'mv .reuse/dep5 ../dep5' 'mv ../dep5 .reuse/dep5'
sees 'mv LICENSES/MIT.txt ..' 'mv ../MIT.txt LICENSES'
