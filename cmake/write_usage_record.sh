#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# write_usage_record.sh TEXT NAME OUT: what the usage section of the program NAME holds: the usage
# text of the file TEXT, and a second record with the name and the build's date, each ended by a
# NUL. SOURCE_DATE_EPOCH stands for the date where it is set.
set -eu

seconds=${SOURCE_DATE_EPOCH:-$(date +%s)}
{
    cat "$1"
    printf '\0NAME=%s\nDATE=%s\n\0' "$2" "$(date -u -d "@$seconds" +%Y/%m/%d-%H:%M:%S-UTC)"
} >"$3"
