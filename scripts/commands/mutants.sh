# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? mutants [NAME...]
#?     break the updater on purpose, in many ways, and see the tests notice

need build python
tests/mutation/mutants.py "$@"
