#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# static.sh BUILD [TOOLCHAIN]: the updater with the C++ library in it, for a root file system without
# that library, is built, needs nothing but the C library, and does what the one in BUILD does: it
# updates a simulated head unit or, cross-built with the CMake file TOOLCHAIN, fails in the same words
# under qemu. Prints the sizes of both, stripped.
set -euo pipefail

root=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/../..")
build=$(readlink -f "$1")
toolchain=${2-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*"
    exit 1
}

options=(-DBBP_STATIC_LIBSTDCXX=ON -DBBP_TOOLS=OFF -DBBP_SIM=OFF -DBBP_TESTS=OFF
    -DCMAKE_BUILD_TYPE=Release)
prefix=
if [[ -n "$toolchain" ]]; then
    options+=("-DCMAKE_TOOLCHAIN_FILE=$toolchain")
    prefix=arm-linux-gnueabihf-
fi
cmake -G Ninja -S "$root" -B "$work/build" "${options[@]}" >"$work/log" 2>&1 || fail "$(<"$work/log")"
cmake --build "$work/build" >"$work/log" 2>&1 || fail "$(<"$work/log")"
program=$work/build/bin/bbpflash

# The C library and the loader are what every program of the system needs.
needed() {
    "${prefix}readelf" -d "$1" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p'
}
needed "$build/bin/bbpflash" | grep -q '^libstdc++' || fail "the usual updater needs no libstdc++"
others=$(needed "$program" | grep -vE '^(libc\.so|ld-linux|libm\.so)' || true)
[[ -z "$others" ]] || fail "needs $others"

if [[ -z "$toolchain" ]]; then
    cd "$work"
    "$build/bin/bbpimage" make --version 2.0.0 image.bin
    "$build/bin/bbpsim" --pace none --burn 0,0,0 --flash flash.bin -- "$program" -s image.bin >output
    [[ "$(tail -n 2 output)" == $'100\nDONE' ]] || fail "no success: $(<output)"
    cmp image.bin flash.bin
else
    # A root file system with the loader and the C library alone.
    mkdir -p "$work/root/lib"
    cp /usr/arm-linux-gnueabihf/lib/{ld-linux-armhf.so.3,libc.so.6,libm.so.6} "$work/root/lib"
    # said FOLDER PROGRAM: what it says without a bus, and its status.
    said() {
        local status=0
        qemu-arm-static -L "$1" -0 bbpflash "$2" -i 2>&1 || status=$?
        echo "status $status"
    }
    said /usr/arm-linux-gnueabihf "$build/bin/bbpflash" >"$work/usual"
    said "$work/root" "$program" >"$work/static"
    grep -q '^status 1$' "$work/usual" || fail "$(<"$work/usual")"
    cmp "$work/usual" "$work/static"
    if [[ "$(said "$work/root" "$build/bin/bbpflash")" == *'status 1' ]]; then
        fail "there is a libstdc++ in that root"
    fi
fi

for file in "$build/bin/bbpflash" "$program"; do
    "${prefix}strip" -o "$work/stripped" "$file"
    echo "${file/$work/static}: $(stat -c %s "$work/stripped") bytes"
done
