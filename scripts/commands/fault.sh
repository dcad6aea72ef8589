# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? fault [--all | --replay ID]
#?     every call failing in every way, half a million runs; --all makes millions of them

need build
build_preset release fault_engine
build/release/tests/bin/fault_engine --jobs "$(nproc)" "$@"
