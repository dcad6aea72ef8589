#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# copy_sources.sh OUT: copies these sources into the folder OUT, which is made, without what was built.
set -euo pipefail

root=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/..")
mkdir -p "$1"
tar -C "$root" --exclude=./build --exclude=./.git --exclude=__pycache__ -cf - . | tar -C "$1" -xf -
