#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# write_usage_record.sh TEXT NAME VERSION USAGE INFO: the sections with which the program NAME tells
# about itself, as files. USAGE is for the platform's `use`: the usage text of the file TEXT, and a
# second record with the name and the build's date, each ended by a NUL. INFO is for `use -i`, which
# looks there for one line for each property. SOURCE_DATE_EPOCH stands for the date where it is set.
set -eu

text=$1 name=$2 version=$3
seconds=${SOURCE_DATE_EPOCH:-$(date +%s)}
date=$(date -u -d "@$seconds" +%Y/%m/%d-%H:%M:%S-UTC)
{
    cat "$text"
    printf '\0NAME=%s\nDATE=%s\n\0' "$name" "$date"
} >"$4"
printf 'NAME=%s\nDESCRIPTION=%s\nDATE=%s\nVERSION=%s\n' \
    "$name" "$(sed -n '1s/^%C - //p' "$text")" "$date" "$version" >"$5"
