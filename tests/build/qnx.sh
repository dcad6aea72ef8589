#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The core compiles for QNX, as far as that can be seen without QNX: with the declarations that it
# documents (qnx/platform), once with this machine's library, and for 32 and 64 bits with one that
# gives no more than it must (qnx/library). Each error is counted; the status says whether there are
# any. An argument names another folder than this checkout's src.
set -euo pipefail

here=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")")
src=$(readlink -f "${1-$here/../../src}")
bare=(-nostdinc -nostdinc++ -I "$here/qnx/library")
flags=(-std=c++11 -pedantic-errors -Wall -Wextra -Wconversion -Wshadow -Werror -fmax-errors=0
    -D__QNX__ -D__QNXNTO__ -I "$src" -I "$here/qnx/platform" -fsyntax-only)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
errors=0

# compile SOURCE HOW FLAG...
compile() {
    local count
    if g++ "${flags[@]}" "${@:3}" "$1" 2>"$log"; then
        return
    fi
    cat "$log"
    count=$(grep -c 'error:' "$log" || true)
    printf '%s, %s: %s errors\n' "${1#"$src"/}" "$2" "$count"
    errors=$((errors + count))
}

sources() {
    printf '%s\n' "$here/qnx/numbers.cpp"
    find "$src" \( -name '*.cpp' -o -name '*.h' \) -not -path '*/platform/linux/*' | sort
}

while read -r source; do
    compile "$source" "this machine's library" -isystem "$here/qnx/host"
    compile "$source" "32 bits" -m32 "${bare[@]}"
    compile "$source" "64 bits" -m64 "${bare[@]}"
done < <(sources)

printf '%s errors\n' "$errors"
((errors == 0))
