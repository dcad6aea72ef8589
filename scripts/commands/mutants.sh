# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? mutants [NAME...]
#?     break the updater on purpose, in many ways, and see the tests notice
#? mutants generated [--every N] [--first K] [FILE...]
#?     the same with every small change of its sources, against unit and run tests alone

need build python
if [[ "${1-}" == generated ]]; then
    tests/mutation/generated.py "${@:2}"
else
    tests/mutation/mutants.py "$@"
fi
