# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? mutants [--every N] [NAME...]
#? mutants --tools [NAME...]
#?     break the updater, or the simulator and the tools, on purpose; see the tests notice
#? mutants generated [--every N] [--first K] [FILE...]
#?     the same with every small change of its sources, against unit and run tests alone

need build python
if [[ "${1-}" == generated ]]; then
    tests/mutation/generated.py "${@:2}"
elif [[ "${1-}" == --tools ]]; then
    tests/mutation/tool_mutants.py "${@:2}"
else
    tests/mutation/mutants.py "$@"
fi
