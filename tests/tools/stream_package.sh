#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# stream_package.sh BUILD_FOLDER OUTPUT.md: the page's example, compiled and run against the
# installed library, found by pkg-config and by CMake.
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/prefix" >"$work/log"
# shellcheck disable=SC2016  # the marks of a block of code
sed -n '/^```c$/,/^```$/p' "$2" | sed '/^```/d' >"$work/progress.c"
[[ -s "$work/progress.c" ]] || { echo "no example in $2" && exit 1; }

# check PROGRAM: the example does what it says.
check() {
    local shown
    shown=$("$1" "printf '80\n99\n100\nDONE\n'") || { echo "$1: a success is none" && exit 1; }
    [[ "$shown" == $'pass 1, burn: 80 %\n'*updated && "$shown" != *NOT* ]] ||
        { echo "$1: $shown" && exit 1; }
    ! shown=$("$1" "printf '80\nERROR\n'; exit 1") || { echo "$1: a failure is none" && exit 1; }
    [[ "$shown" == *"NOT updated" ]] || { echo "$1: $shown" && exit 1; }
}

PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name bbpflash_stream.pc)")
export PKG_CONFIG_PATH
read -r -a flags <<<"$(pkg-config --cflags --libs bbpflash_stream)"
cc -std=gnu99 -Wall -Wextra -pedantic -Werror "$work/progress.c" "${flags[@]}" -o "$work/progress"
check "$work/progress"

printf '%s\n' 'cmake_minimum_required(VERSION 3.16)' 'project(client C CXX)' \
    'find_package(bbpflash_stream 1.0 REQUIRED)' 'add_executable(client progress.c)' \
    'target_link_libraries(client PRIVATE bbpflash::stream)' >"$work/CMakeLists.txt"
cmake -S "$work" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >"$work/log"
cmake --build "$work/build" >>"$work/log" || { cat "$work/log" && exit 1; }
check "$work/build/client"
