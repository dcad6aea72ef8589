#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# debian_reproducible.sh PACKAGES: the packages in that folder are made again elsewhere, in a folder
# whose path has another length, and are the same to the byte.
set -euo pipefail

packages=$(readlink -f "$1")
root=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$root/packaging/build_debian.sh" "$work/some/other/folder"
count=0
for package in "$packages"/*.deb; do
    cmp "$package" "$work/some/other/folder/${package##*/}"
    count=$((count + 1))
done
echo "$count packages are the same"
((count >= 5))
