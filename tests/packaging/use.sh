#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# use.sh FOLDER PROGRAM VERSION OBJCOPY STRIP: `use` shows the usage text and the properties that
# PROGRAM carries, exactly, stripped or not, and says what is wrong with anything else.
set -euo pipefail

root=$1 program=$2 version=$3 objcopy=$4 strip=$5
use=$root/packaging/use/use
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*"
    exit 1
}

# The text, with the name that the program goes by.
"$strip" -o "$work/updater" "$program"
"$use" "$work/updater" >"$work/shown"
sed 's/%C/updater/' "$root/src/driver/bbpflash.use" | cmp - "$work/shown"
PATH=$(dirname "$program"):$PATH "$use" bbpflash >"$work/shown"
sed 's/%C/bbpflash/' "$root/src/driver/bbpflash.use" | cmp - "$work/shown"

# The properties are the section that the platform's tools read, of the same build as the usage's.
"$use" -i "$work/updater" >"$work/shown"
"$objcopy" --dump-section "QNX_info=$work/info" --dump-section "QNX_usage=$work/usage" \
    "$work/updater" "$work/copy"
cmp "$work/info" "$work/shown"
grep -qx NAME=bbpflash "$work/info" || fail "no name: $(cat "$work/info")"
grep -qx "VERSION=$version" "$work/info" || fail "no version: $(cat "$work/info")"
grep -q "^DESCRIPTION=firmware updater " "$work/info" || fail "no description: $(cat "$work/info")"
grep -qaFx "$(grep DATE= "$work/info")" "$work/usage" || fail "two dates: $(cat "$work/info")"

# The longest name that it begins like is not it; both orders of bytes and both sizes of words.
for format in elf32-little elf32-big elf64-little elf64-big; do
    printf 'two\nlines of %%C\0more\0' >"$work/text"
    objcopy -I binary -O "$format" --rename-section .data=QNX_usages "$work/text" "$work/other"
    if "$use" "$work/other" 2>"$work/shown"; then
        fail "takes QNX_usages for QNX_usage"
    fi
    objcopy -I binary -O "$format" --rename-section .data=QNX_usage "$work/text" "$work/other"
    [[ "$("$use" "$work/other")" == $'two\nlines of other' ]] || fail "$format: $("$use" "$work/other")"
done

# refuses MESSAGE ARGUMENT...: one line, and the status 1.
refuses() {
    local message=$1 status=0
    shift
    "$use" "$@" >"$work/shown" 2>&1 || status=$?
    [[ $status == 1 && "$(<"$work/shown")" == "use: $message"* ]] ||
        fail "use $*: status $status, $(<"$work/shown")"
}
refuses 'which program'
refuses 'nowhere is not found' nowhere
refuses "$use is no ELF program" "$use"
refuses "$work/other has no QNX_info" -i "$work/other"
