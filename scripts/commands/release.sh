# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? release [--dry-run]
#?     make the sources' archive, sign it and tag it: build/release-files

arguments=()
if [[ "${1-}" == --dry-run ]]; then
    arguments+=("$1")
    shift
fi
takes_nothing "$@"
need release
packaging/make_release.sh "${arguments[@]}" build/release-files || die "no release was made"
