# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? test [--full]
#?     what every change must pass; --full: every test there is

# test_presets PRESET...: the tests of these builds run as one, those with the label $leave_out not.
test_presets() {
    local preset
    mkdir -p build/test
    : >build/test/CTestTestfile.cmake
    for preset in "$@"; do
        if ctest --test-dir "build/$preset" -LE "^$leave_out\$" --show-only | grep -q '^Total Tests: 0$'; then
            die "preset $preset has no tests"
        fi
        printf 'subdirs("../%s")\n' "$preset" >>build/test/CTestTestfile.cmake
    done
    say "testing $*"
    run_ctest test -LE "^$leave_out\$"
}

if [[ "${1-}" == --full ]]; then
    takes_nothing "${@:2}"
    need build test coverage armhf engines faultcalls package packaging release site
    # Not where npm is another package's.
    command -v npm >/dev/null || need npm
    leave_out=short
    presets=(release asan coverage armhf fuzz)
    for preset in "${presets[@]}"; do
        build_preset "$preset"
    done
    test_presets "${presets[@]}"
    return
fi

takes_nothing "$@"
need build lint sanitizers
leave_out=full
build_preset release bbp_programs bbp_short_tests
build_preset asan bbp_short_tests
say "left out, and run by ./dev test --full: clang-tidy, coverage, 32-bit ARM," \
    "fuzzing, the decoders, reproducibility, packages, engines, most fault runs, the rest under" \
    "the sanitizers"
test_presets release asan
