# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? coverage
#?     what the tests reach of the updater: build/coverage/html

takes_nothing "$@"
need build test coverage
build_preset coverage
run_ctest coverage || die "a place of the updater is not tested, or a test failed: see above"
say "the report is build/coverage/html/index.html"
