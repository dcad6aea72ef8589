#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# lintian.sh PACKAGES: Debian's checker has no error and no warning for the packages in that folder but
# what is overridden with a reason. Its hints are shown and no more: it takes the constants of optimised
# code for misspelt words. It is seen to complain about a package whose papers were taken out.
set -euo pipefail

packages=$(readlink -f "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
check() {
    lintian --allow-root --display-info --pedantic --fail-on error,warning "$1"
}

check "$packages"/*.changes
dpkg-deb --raw-extract "$packages"/bbpflash_*.deb "$work/updater"
rm -r "$work/updater/usr/share/man" "$work/updater/usr/share/doc"
dpkg-deb --build "$work/updater" "$work/bbpflash.deb" >/dev/null
if check "$work/bbpflash.deb" >"$work/log"; then
    echo "a package without papers is not noticed"
    exit 1
fi
grep -q no-copyright-file "$work/log"
