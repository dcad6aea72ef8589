# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? lint
#?     the checks of the text, and clang-tidy on what differs from the shared branch

takes_nothing "$@"
need build lint tidy
build_preset release bbpflash
say "clang-tidy on what differs"
tests/lint/lint.sh tidy-changed || die "clang-tidy has found something: see above"
run_ctest release -L '^lint$' -LE '^full$'
