#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Each part is built without what the others need, and the project builds within another one.
set -euo pipefail

root=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# configure FOLDER OPTION...: the project, on a machine without GoogleTest and libpcap.
configure() {
    PKG_CONFIG_LIBDIR=$work/none cmake -S "$root" -B "$work/$1" -G Ninja \
        -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON "${@:2}" >"$work/log" 2>&1
}

# has FOLDER TARGET...: what is built there by default has these files, and no other programs.
has() {
    local found
    found=$(ninja -C "$work/$1" -n | grep -oE 'Linking CXX (executable|static library) .*' |
        grep -oE '(bin|tools/stream)/[^/ ]+$' | sort | xargs)
    [[ "$found" == "${*:2}" ]] || { echo "$1 builds: $found, not: ${*:2}" && exit 1; }
}

configure updater -DBBP_TOOLS=OFF -DBBP_SIM=OFF -DBBP_TESTS=OFF || { cat "$work/log" && exit 1; }
has updater bin/bbpflash
configure tools -DBBP_SIM=OFF -DBBP_TESTS=OFF || { cat "$work/log" && exit 1; }
has tools bin/bbpflash bin/bbpimage bin/bbpwatch tools/stream/libbbpflash_stream.a
configure small -DBBP_SIM=OFF -DBBP_TESTS=OFF -DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON ||
    { cat "$work/log" && exit 1; }
has small bin/bbpflash bin/bbpwatch tools/stream/libbbpflash_stream.a
# The packages were really kept from it.
! configure tests -DBBP_SIM=OFF || { echo "tests need no GoogleTest?" && exit 1; }
! configure sim -DBBP_TESTS=OFF || { echo "bbpsim needs no libpcap?" && exit 1; }

mkdir "$work/other"
cat >"$work/other/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(other LANGUAGES CXX)
add_subdirectory($root bbpflash EXCLUDE_FROM_ALL)
add_executable(other other.cpp)
target_link_libraries(other PRIVATE bbpflash_stream)
END
cat >"$work/other/other.cpp" <<'END'
#include "tools/stream/bbpflash_stream.h"
int main() {
    bbpflash_stream* stream = bbpflash_stream_create(BBPFLASH_MODE_STATUS, nullptr, nullptr);
    bbpflash_stream_feed(stream, "100\nDONE\n", 9);
    const bbpflash_verdict verdict = bbpflash_stream_finish(stream, 0);
    bbpflash_stream_destroy(stream);
    return verdict;
}
END
(cmake -S "$work/other" -B "$work/other/build" -G Ninja && cmake --build "$work/other/build") \
    >"$work/log" 2>&1 || { cat "$work/log" && exit 1; }
"$work/other/build/other"
