# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? fuzz TARGET [SECONDS]
#?     fuzz one target, for ten minutes unless told otherwise

target=${1-} seconds=${2-600}
[[ -n "$target" && -d "tests/fuzz/corpus/$target" ]] ||
    die "fuzz takes one of these and a number of seconds: $(cd tests/fuzz/corpus && echo *)"
[[ "$seconds" =~ ^[0-9]+$ ]] || die "not a number of seconds: $seconds"
takes_nothing "${@:3}"
need build test
build_preset fuzz "fuzz_$target"
"build/fuzz/bin/fuzz_$target" "-max_total_time=$seconds" -max_len=1024 -timeout=10 -print_final_stats=1 \
    "-artifact_prefix=build/fuzz/findings/$target-" \
    "build/fuzz/corpus/$target" "tests/fuzz/corpus/$target"
