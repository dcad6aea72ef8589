#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# version.sh FOLDER [BUILD]: the version is CMake's, wherever it is told again: in the papers and
# packages of the sources in FOLDER, and by the programs in BUILD.
set -euo pipefail

root=$1 build=${2-}
version=$(sed -nE 's/^project\(bbpflash VERSION ([0-9.]+).*/\1/p' "$root/CMakeLists.txt")
[[ "$version" =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]] || { echo "no version in CMakeLists.txt" && exit 1; }
failures=0

# same WHAT FOUND: what was found there is the version.
same() {
    if [[ "$2" != "$version" ]]; then
        echo "$1 says \"$2\" and not $version"
        failures=$((failures + 1))
    fi
}

same CHANGELOG.md "$(sed -nE 's/^## \[([0-9.]+)\].*/\1/p' "$root/CHANGELOG.md" | head -n 1)"
for page in "$root"/docs/man/*.1; do
    same "$page" "$(sed -nE 's/^\.TH [A-Z]+ 1 "" "bbpflash (.*)" "User Commands"$/\1/p' "$page")"
done
same debian/changelog "$(sed -nE '1s/^bbpflash \((.*)\) .*/\1/p' "$root/debian/changelog")"
if [[ -n "$build" ]]; then
    for program in bbpimage bbpsim bbpwatch; do
        same "$program --version" "$("$build/bin/$program" --version | sed "s/^$program //")"
    done
fi
((failures == 0))
