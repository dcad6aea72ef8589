#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# build_debian.sh OUT: makes the Debian packages of these sources in the folder OUT, from a copy there
# in OUT/source, so that the sources stay as they are. The build of the tests is left out.
set -euo pipefail

root=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/..")
out=$1
rm -rf "$out"
"$root/packaging/copy_sources.sh" "$out/source"
out=$(readlink -f "$out")

cd "$out/source"
export DEB_BUILD_PROFILES="nocheck ${DEB_BUILD_PROFILES-}"
DEB_BUILD_OPTIONS="nocheck parallel=$(nproc) ${DEB_BUILD_OPTIONS-}"
export DEB_BUILD_OPTIONS
dpkg-buildpackage --build=binary --unsigned-changes --unsigned-buildinfo >"$out/build.log" 2>&1 || {
    tail -n 40 "$out/build.log" >&2
    exit 1
}
