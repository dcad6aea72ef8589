#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# workflow.sh FOLDER: the forge's workflow in FOLDER is one, as a validator from npm reads it, which
# is seen to refuse a wrong one.
set -euo pipefail

root=$1
version=0.6.0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

npm install --silent --no-audit --no-fund --ignore-scripts --prefix "$work" \
    "@action-validator/cli@$version" "@action-validator/core@$version"
mkdir -p "$work/.github/workflows"
cp "$root"/.github/workflows/*.yml "$work/.github/workflows"
cd "$work"
validate() {
    node_modules/.bin/action-validator .github/workflows/test.yml
}
validate
sed -i 's/runs-on:/run-on:/' .github/workflows/test.yml
if validate >log 2>&1; then
    echo "a job without a machine is not noticed"
    exit 1
fi
grep -q runs-on log
