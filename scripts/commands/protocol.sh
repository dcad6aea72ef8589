# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? protocol
#?     make the listings and pictures of docs/protocol.md again

takes_nothing "$@"
need build test
build_preset release
mkdir -p build/docs
build/release/tests/bin/wire_capture build/docs
python3 docs/make_protocol.py build/docs
