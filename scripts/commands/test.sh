# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? test [--full]
#?     what every change must pass; --full: every test there is

# The presets of CMakePresets.json that are built; the tests of all of them run as one.
presets=(release asan clang coverage armhf fuzz)
selection=(-LE '^full$')
lists=(build test coverage armhf)
if [[ "${1-}" == --full ]]; then
    selection=()
    lists+=(engines faultcalls packaging)
    shift
fi
takes_nothing "$@"

need "${lists[@]}"
mkdir -p build/test
: >build/test/CTestTestfile.cmake
for preset in "${presets[@]}"; do
    build_preset "$preset"
    if ctest --test-dir "build/$preset" --show-only | grep -q '^Total Tests: 0$'; then
        die "preset $preset has no tests"
    fi
    printf 'subdirs("../%s")\n' "$preset" >>build/test/CTestTestfile.cmake
done
say "testing ${presets[*]}"
run_ctest test "${selection[@]}"
