#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Built twice, in two folders whose paths differ in length, the program is the same to the byte.
set -euo pipefail

root=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export SOURCE_DATE_EPOCH=1700000000

for folder in one second/deeper; do
    mkdir -p "$work/$folder"
    cp -r "$root"/{CMakeLists.txt,CMakePresets.json,cmake,src} "$work/$folder"
    (cd "$work/$folder" && cmake --preset release -DBBP_TOOLS=OFF -DBBP_SIM=OFF -DBBP_TESTS=OFF &&
        cmake --build --preset release) >"$work/log" 2>&1 || { cat "$work/log" && exit 1; }
done
cmp "$work/one/build/release/bin/bbpflash" "$work/second/deeper/build/release/bin/bbpflash"
