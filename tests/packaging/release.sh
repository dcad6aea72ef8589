#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# release.sh FOLDER: a release is made of the sources in FOLDER, in a repository and with a key for
# this test alone: dry, signed, and not where something is wrong.
set -euo pipefail

root=$1
work=$(mktemp -d)
trap 'gpgconf --homedir "$work/keys" --kill all; rm -rf "$work"' EXIT
export GNUPGHOME=$work/keys GIT_CONFIG_GLOBAL=$work/gitconfig GIT_CONFIG_NOSYSTEM=1
mkdir -m 700 "$GNUPGHOME"

fail() {
    echo "$*"
    exit 1
}

gpg --batch --quiet --passphrase '' --quick-generate-key 'test <test@bbpflash.example>' default sign never \
    2>"$work/log"
git config --global user.name test
git config --global user.email test@bbpflash.example
git config --global user.signingkey test@bbpflash.example
"$root/packaging/copy_sources.sh" "$work/tree"
cd "$work/tree"
git init --quiet
git add --all
git commit --quiet --message=all
version=$(sed -nE 's/^project\(bbpflash VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)

# refused MESSAGE: no release is made, for that reason.
refused() {
    if packaging/make_release.sh --dry-run "$work/none" >"$work/log" 2>&1; then
        fail "released, though: $1"
    fi
    grep -q "$1" "$work/log" || fail "not \"$1\" but: $(<"$work/log")"
}

packaging/make_release.sh --dry-run "$work/dry"
[[ -z "$(git tag)" ]] || fail "a dry run makes a tag"
packaging/make_release.sh "$work/out" 2>"$work/log" || fail "$(<"$work/log")"
cmp "$work/dry/bbpflash-$version.tar.xz" "$work/out/bbpflash-$version.tar.xz"
git verify-tag "v$version" 2>"$work/log" || fail "$(<"$work/log")"
git cat-file tag "v$version" | grep -q '^### Added' || fail "the tag does not tell what changed"
cd "$work/out"
gpg --quiet --verify "bbpflash-$version.tar.xz.asc" 2>"$work/log" || fail "$(<"$work/log")"
sha256sum --quiet --check "bbpflash-$version.tar.xz.sha256"
tar -xf "bbpflash-$version.tar.xz"
diff -r --exclude=.git "$work/tree" "bbpflash-$version"

cd "$work/tree"
refused "v$version is there already"
git tag --delete "v$version" >/dev/null
echo change >>README.md
refused "not committed"
git checkout --quiet README.md
sed -i 's/(1\.[0-9.]*)/(0.9.0)/' debian/changelog
git commit --quiet --all --message=other
refused "not the same everywhere"
