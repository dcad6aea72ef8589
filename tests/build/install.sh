#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# install.sh BUILD_FOLDER: what is installed is complete, and the program keeps its usage record.
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work" --strip >"$work/log"

for file in bin/{bbpflash,bbpimage,bbpwatch,bbpsim} share/man/man1/bbp{flash,image,sim,watch}.1 \
    share/bash-completion/completions/bbp{flash,image,sim,watch} \
    share/zsh/site-functions/_bbp{flash,image,sim,watch,_options} \
    share/bbpflash/bbpwatch.schema.json share/man/man1/use.1 lib/udev/rules.d/60-bbpflash.rules; do
    [[ -s "$work/$file" ]] || { echo "not installed: $file" && exit 1; }
done
"$work/bin/use" -i "$work/bin/bbpflash" | grep -qx NAME=bbpflash
