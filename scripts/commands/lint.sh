# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? lint
#?     only the checks of the sources

takes_nothing "$@"
need build test
build_preset release
run_ctest release -L '^lint$'
