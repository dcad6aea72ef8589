#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./dev knows what it lists, lists what it knows, and refuses what it does not know before it builds.
set -euo pipefail

cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../.."
failures=0

# refuses STATUS WORD...: ./dev ends with that status and has neither installed nor built.
refuses() {
    local expected=$1 status=0 said
    shift
    said=$(./dev "$@" 2>&1) || status=$?
    if ((status != expected)) || [[ "$said" == *"=="* ]]; then
        printf './dev %s: status %s, said: %s\n' "$*" "$status" "$said"
        failures=$((failures + 1))
    fi
}

help=$(./dev help)
refuses 2 nonsense
refuses 2 ../common
for script in scripts/commands/*.sh; do
    name=$(basename "$script" .sh)
    if ! grep -qE "^  $name( |\$)" <<<"$help"; then
        echo "./dev help does not list $name"
        failures=$((failures + 1))
    fi
    # What a program of the project refuses, it refuses once it is built.
    grep -q takes_nothing "$script" && refuses 1 "$name" nonsense
done
refuses 1 test --full nonsense
refuses 1 fuzz stream 1 nonsense

((failures == 0))
