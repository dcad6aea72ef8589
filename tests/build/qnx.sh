#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The core compiles for QNX: without our declarations, with those that QNX documents (here in qnx/).
set -euo pipefail

here=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")")
src=$here/../../src
find "$src" -name '*.cpp' -not -path '*/platform/linux/*' | while read -r source; do
    g++ -std=c++11 -pedantic-errors -Wall -Wextra -Wconversion -Werror -D__QNX__ -D__QNXNTO__ \
        -I "$src" -isystem "$here/qnx" -fsyntax-only "$source"
done
