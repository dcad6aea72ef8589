# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? coverage [--tools]
#?     what the tests reach of the updater: build/coverage/html; or of the simulator and the tools

# Runs the suites of the simulator and the tools, and names each line that none of them reaches.
cover_tools() {
    local suites=(unit_common unit_sim unit_sim_host tools_stream tools_image tools_bbpimage
        tools_watch tools_bbpwatch system_update
        system_bench)
    local folder=$PWD/build/coverage-tools suite
    build_preset coverage-tools bbp_programs bus_client "${suites[@]}"
    rm -rf "$folder/raw"
    mkdir -p "$folder/raw"
    for suite in "${suites[@]}"; do
        LLVM_PROFILE_FILE="$folder/raw/%m%c.profraw" "$folder/tests/bin/$suite" \
            >"$folder/$suite.log" 2>&1 || say "$suite is red: see $folder/$suite.log"
    done
    python3 tests/coverage/tools_coverage.py --llvm-cov llvm-cov-19 \
        --llvm-profdata llvm-profdata-19 --sources "$PWD" --folder "$folder" \
        "$folder"/bin/{bbpsim,bbpimage,bbpwatch} "${suites[@]/#/$folder/tests/bin/}"
}

tools=false
if [[ "${1-}" == --tools ]]; then
    tools=true
    shift
fi
takes_nothing "$@"
need build test coverage
if $tools; then
    cover_tools || die "the goal is not reached: see above"
else
    build_preset coverage
    run_ctest coverage || die "a place of the updater is not tested, or a test failed: see above"
    say "the report is build/coverage/html/index.html"
fi
