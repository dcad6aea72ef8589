# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? demo
#?     update a simulated head unit with the real program, in real time

takes_nothing "$@"
need build
build_preset release bbpflash bbpsim bbpimage
scripts/demo.sh build/release/bin build/demo
