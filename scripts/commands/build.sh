# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? build
#?     build the programs, and nothing else: build/release/bin

takes_nothing "$@"
need build
build_preset release bbp_programs
say "the programs are in build/release/bin"
