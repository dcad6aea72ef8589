#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The simulator's threads under ThreadSanitizer: the tests of its parts, and a run in which several
# processes use the nodes, some of them still when the command ends.
#
#     threads.sh BUILD_FOLDER BUS_CLIENT
set -euo pipefail
source_folder=$(cd "$(dirname "$0")/../.." && pwd)
build=$1
bus_client=$2

cmake -S "$source_folder" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS_DEBUG='-O1 -g1' -DCMAKE_CXX_FLAGS=-fsanitize=thread \
    -DBBP_PRESET=threads -DBBP_TOOLS=OFF -DBBP_WERROR=OFF
cmake --build "$build" --parallel 2 --target bbpsim unit_sim_host

export TSAN_OPTIONS=exitcode=66

"$build/tests/bin/unit_sim_host"

# The loops are left behind and end by themselves, with the nodes gone.
for _ in 1 2 3; do
    # shellcheck disable=SC2016  # the command's shell expands it
    timeout 120 "$build/bin/bbpsim" --pace none --burn 0.2,0.2,0.2 --log-file "$build/log" -- \
        sh -c '"$0" burn >/dev/null
            for level in 0 1; do echo $level >/dev/gpio/HD_DAB2Reset; done
            (timeout 3 sh -c "while :; do printf 1 >/dev/gpio/HD_DAB2Reset; done") &
            (timeout 3 sh -c "while :; do \"\$0\"; done" "$0" >/dev/null 2>&1) &
            (timeout 3 sh -c "while :; do \"\$0\"; done" "$0" >/dev/null 2>&1) &
            sleep 1' "$bus_client"
done
