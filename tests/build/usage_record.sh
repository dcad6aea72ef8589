#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage_record.sh PROGRAM OBJCOPY STRIP READELF: the program carries its usage text and a record of
# its name and build date, readable and unloaded, and keeps both when it is stripped.
set -euo pipefail

program=$1 objcopy=$2 strip=$3 readelf=$4
root=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/../..")
text=$root/src/driver/bbpflash.use
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*"
    exit 1
}

# The section's bytes: the text, a NUL, the name and the date, a NUL.
"$objcopy" --dump-section "QNX_usage=$work/section" "$program" "$work/copy"
head -c "$(stat -c %s "$text")" "$work/section" | cmp - "$text"
tail -c "+$(($(stat -c %s "$text") + 1))" "$work/section" | tr '\0' '@' >"$work/record"
pattern='^@NAME=bbpflash DATE=[0-9]{4}/[0-9]{2}/[0-9]{2}-[0-9]{2}:[0-9]{2}:[0-9]{2}-UTC @$'
[[ "$(tr '\n' ' ' <"$work/record")" =~ $pattern ]] || fail "second record: $(cat "$work/record")"

# It is not loaded with the program (no flag A), and it survives strip.
"$readelf" -SW "$program" | grep QNX_usage >"$work/header"
[[ ! "$(sed 's/.*PROGBITS//' "$work/header")" =~ A ]] || fail "loaded: $(cat "$work/header")"
"$strip" -o "$work/stripped" "$program"
"$objcopy" --dump-section "QNX_usage=$work/stripped_section" "$work/stripped" "$work/copy"
cmp "$work/section" "$work/stripped_section"

# A person reads it with readelf -p.
"$readelf" -p QNX_usage "$program" >"$work/shown"
grep -q "HD Radio" "$work/shown" || fail "readelf -p shows no title"
grep -q "NAME=bbpflash" "$work/shown" || fail "readelf -p shows no name"

# The date is the source's where one is given.
SOURCE_DATE_EPOCH=86400 "$root/cmake/write_usage_record.sh" "$text" bbpflash 1.2.3 \
    "$work/dated" "$work/info"
grep -qax 'DATE=1970/01/02-00:00:00-UTC' "$work/dated" || fail "SOURCE_DATE_EPOCH is not used"
grep -qx 'DATE=1970/01/02-00:00:00-UTC' "$work/info" || fail "SOURCE_DATE_EPOCH is not used in both"

# Lines that people and programs know by heart, spelling included.
while IFS= read -r line; do
    grep -qFx -e "$line" "$text" || fail "no line \"$line\""
done <<'LINES'
Syntax:
bbpflash -v filename.bin
  -v verbosity  Debug message verbosity level (default = 0 / none).
                Each additional 'v' adds to the verbosity level.
  -f force pgm  Force the programming cycle to occur even if the
                versions match (default = false).
  -i info only  Get the verion information and then exit without
                programming (default = false).
  -s show stat  Be quiet except for % output (unless verbosity).
    bbpflash filename.bin
    bbpflash -vvvvvv filename.bin
LINES
head -n 1 "$text" | grep -q '^%C ' || fail "the title does not begin with the command's name"
grep -qw retreived "$text" || fail "no \"retreived\""
grep -qw utilty "$text" || fail "no \"utilty\""
