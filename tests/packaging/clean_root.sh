#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# clean_root.sh PACKAGES: in a Debian root with nothing but the essential, the Debian packages of the
# folder PACKAGES install, update a simulated head unit for a user without rights, and leave nothing
# behind when they are purged. Prints the session.
set -euo pipefail

here=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")")
packages=$(readlink -f "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir -p "$work/files"
find "$packages" -maxdepth 1 -name '*.deb' -not -name '*-dbgsym_*' -exec cp -t "$work/files" {} +
cp "$here/../../debian/tests/update" "$work/files"
cat >"$work/files/session" <<'SESSION'
set -eu
cd /opt/bbpflash

# state: which packages are there, and which files outside of what the package manager keeps.
state() {
    dpkg-query -W -f '${Package} ${db:Status-Abbrev}\n'
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /tmp -o -path /var/cache \
        -o -path /var/lib/apt -o -path /var/lib/dpkg -o -path /var/log -o -path /opt \) -prune \
        -o -print | sort
}

# type COMMAND...: shows it and runs it.
type() {
    echo "# $*"
    "$@"
}

state >/tmp/before
export DEBIAN_FRONTEND=noninteractive
type apt-get -qq install -y --no-install-recommends ./*.deb >/tmp/log 2>&1 || { cat /tmp/log; exit 1; }
grep -E '^#|^Setting up .*bbpflash' /tmp/log
cd /tmp
type runuser -u nobody -- bbpimage make --version 2.0.0 /tmp/image.bin
type runuser -u nobody -- bbpsim --flash /tmp/flash.bin -- bbpwatch /tmp/image.bin
type cmp image.bin flash.bin
type runuser -u nobody -- sh /opt/bbpflash/update
echo "# apt-get purge 'bbpflash*' libbbpflash-stream-dev && apt-get autoremove --purge"
apt-get -qq purge -y 'bbpflash*' libbbpflash-stream-dev >/tmp/log
apt-get -qq autoremove --purge -y >>/tmp/log
rm -f image.bin flash.bin
state >/tmp/after
echo "# what is different from before the installation"
diff /tmp/before /tmp/after
echo "nothing"
SESSION

mmdebstrap --quiet --variant=minbase \
    --customize-hook="mkdir -p \"\$1/opt/bbpflash\" && cp -t \"\$1/opt/bbpflash\" $work/files/*" \
    --customize-hook="chroot \"\$1\" apt-get -qq update" \
    --customize-hook="chroot \"\$1\" sh /opt/bbpflash/session >$work/session 2>&1" \
    bookworm /dev/null >"$work/log" 2>&1 || {
    cat "$work/log" "$work/session"
    exit 1
}
cat "$work/session"
