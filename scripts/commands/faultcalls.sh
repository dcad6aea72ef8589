# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? faultcalls [--replay ID | OPTION...]
#?     every system call of bbpimage, bbpsim and bbpwatch failing in every way

need build faultcalls
build_preset release bbpflash bbpimage bbpsim bbpwatch bus_client faultcalls_guard faultcalls_bend
python3 tests/faultcalls/faultcalls.py --build build/release "$@"
