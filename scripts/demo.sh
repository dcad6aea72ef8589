#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# demo.sh PROGRAMS FOLDER: a real update of a simulated head unit, step by step. PROGRAMS is the folder
# of the built programs; FOLDER is made anew.
set -euo pipefail
PATH=$(readlink -f "$1"):$PATH
demo_folder=$2 demo_old="HD 2.10.4" new="HD 2.11.0"
image=$demo_folder/image.bin
shown=

say() { printf '== %s\n' "$*"; }

die() {
    printf 'demo: %s\n' "$*" >&2
    exit 1
}

# show COMMAND...: runs it inside the simulated head unit, shows both, and keeps the output in $shown.
show() {
    printf '$ %s\n' "$*"
    bbpsim --installed "$demo_old" --flash "$demo_folder/flash.bin" --pace wire -- "$@" |
        tee "$demo_folder/output" | one_line_of_numbers || die "the demo failed: $*"
    shown=$(<"$demo_folder/output")
}

# The progress of status mode, one number a line, as one growing line.
one_line_of_numbers() {
    local line separator=
    while IFS= read -r line; do
        if [[ "$line" =~ ^[0-9]+$ ]]; then
            printf '%s%s' "$separator" "$line"
            separator=' '
        else
            printf '%s%s\n' "${separator:+$'\n'}" "$line"
            separator=
        fi
    done
}

# expect TEXT: what was shown last contains it.
expect() {
    [[ "$shown" == *"$1"* ]] || die "the demo failed: \"$1\" was expected"
}

rm -rf "$demo_folder"
mkdir -p "$demo_folder"

say "an image of 1 MiB, labelled \"$new\""
bbpimage make --version "$new" "$image"
bbpimage info "$image"

say "the simulated head unit before the update"
show bbpflash -i
expect "Installed firmware version is \"$demo_old\""

say "the update, at the pace of a real bus and a real chip: 47 seconds"
show bbpflash -s "$image"
expect $'99\n100\nDONE'

say "the simulated head unit after the update"
show bbpflash -i
expect "Installed firmware version is \"$new\""
cmp "$image" "$demo_folder/flash.bin" || die "the demo failed: the chip's flash is not the image"
say "the chip's flash and the image are the same, byte for byte"

say "the same update once more finds nothing to do"
show bbpflash "$image"
expect "Installed version matches BIN file label"
say "the demo succeeded"
