# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? bench [ARGUMENT...]
#?     measure what the updater costs beyond the bus; takes six minutes
#? bench units wire|none N...
#?     measure how many simulated head units this machine carries at the same time

if [[ "${1-}" == units ]]; then
    need build
    build_preset release bbpflash bbpsim
    python3 tests/bench/units.py --build build/release --json build/bench-units.json "${@:2}"
    return
fi
need build test armhf
targets=(bbpflash bench_bus bench_floor bench_checksum)
build_preset release "${targets[@]}" bbpsim
build_preset armhf "${targets[@]}" bench_checksum_neon
bench=(python3 tests/bench/bench.py --build build/release --armhf build/armhf)
if (($# > 0)); then
    "${bench[@]}" "$@"
    return
fi
"${bench[@]}" --real-time --json build/bench.json table
say "by the image's size"
"${bench[@]}" --json build/bench-scale.json scale
