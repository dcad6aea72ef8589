#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# make_release.sh [--dry-run] OUT: makes the release of the commit that is checked out: the archive of
# its sources in the folder OUT with its SHA-256 and a signature, and a signed tag. The key is the one
# that git signs with (user.signingkey). A dry run makes and checks the archive, and signs nothing.
set -euo pipefail

cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."
dry_run=
if [[ "${1-}" == --dry-run ]]; then
    dry_run=1
    shift
fi
out=$1

fail() {
    printf 'release: %s\n' "$*" >&2
    exit 1
}

version=$(sed -nE 's/^project\(bbpflash VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
tests/packaging/version.sh . || fail "the version is not the same everywhere"
[[ -z "$(git status --porcelain)" ]] || fail "there are changes that are not committed"
! git rev-parse --quiet --verify "refs/tags/v$version" >/dev/null || fail "v$version is there already"

# The same to the byte whoever makes it: the commit's files and times, and no compressor's choices.
name=bbpflash-$version
mkdir -p "$out"
git archive --format=tar --prefix="$name/" HEAD | xz -6 --threads=1 >"$out/$name.tar.xz"
(cd "$out" && sha256sum "$name.tar.xz" >"$name.tar.xz.sha256")
diff <(git ls-files | sed "s#^#$name/#" | sort) \
    <(tar -tf "$out/$name.tar.xz" | grep -v '/$' | sort) || fail "the archive is not complete"

if [[ -n "$dry_run" ]]; then
    echo "dry run: $out/$name.tar.xz is made; not signed, and no tag v$version"
    exit
fi
key=$(git config user.signingkey) || fail "git has no user.signingkey to sign with"
gpg --batch --yes --local-user "$key" --armor --detach-sign "$out/$name.tar.xz"
# The notes of the release are its section of the changes.
awk -v heading="## [$version]" 'index($0, heading) == 1 { shown = 1; print "bbpflash " substr($0, 4); next }
    shown && /^## / { exit } shown' CHANGELOG.md |
    git tag --sign --local-user="$key" --cleanup=verbatim --file=- "v$version"
echo "made $out/$name.tar.xz, its signature, and the tag v$version; push the tag: git push origin v$version"
