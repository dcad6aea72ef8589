#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# run.sh BUILD WORK: boots Debian's kernel in a virtual machine without any hardware of the host's,
# and lets guest.sh update the simulated chip there with BUILD's programs. WORK keeps what is
# downloaded and made.
set -euo pipefail

here=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")")
build=$(readlink -f "$1")
mkdir -p "$2"
work=$(readlink -f "$2")

# What a package of this name, which only points to another, depends on.
depends() {
    apt-cache depends --important "$1" 2>/dev/null | sed -n 's/^ *Depends: //p'
}

# The kernel and what modules are built with, unpacked below $root without being installed.
unpack_kernel() {
    local image headers package
    image=$(depends linux-image-amd64 | grep '^linux-image-' | head -n 1)
    [[ -n "$image" ]] || { echo "apt knows no linux-image-amd64" >&2 && exit 1; }
    release=${image#linux-image-}
    root=$work/$release
    [[ -e "$root/complete" ]] && return
    headers=linux-headers-$release
    mkdir -p "$work/packages"
    # shellcheck disable=SC2046
    (cd "$work/packages" && apt-get -qq download "$image" "$headers" \
        $(depends "$headers" | grep -E -- '-common$|^linux-kbuild') 2>&1 |
        { grep -v unsandboxed || true; })
    for package in "$work"/packages/*.deb; do
        dpkg -x "$package" "$root"
    done
    sed -i "s|include /usr|include $root/usr|" "$root/usr/src/$headers/Makefile"
    rm -r "$work/packages"
    touch "$root/complete"
}

build_bridge() {
    rm -rf "$work/bridge"
    cp -r "$here/bridge" "$work/bridge"
    make -s -C "$root/usr/src/linux-headers-$release" M="$work/bridge" modules \
        >"$work/bridge.log" 2>&1 ||
        { cat "$work/bridge.log" >&2 && exit 1; }
}

# The guest's files, and the libraries of its programs.
make_initramfs() {
    local files=$work/initramfs modules=$root/lib/modules/$release/kernel program
    rm -rf "$files"
    mkdir -p "$files"/{bin,dev,proc,sys,modules}
    cp "$(command -v busybox)" "$files/bin/busybox"
    cp "$here/guest.sh" "$files/init"
    chmod +x "$files/init"
    cp "$modules"/drivers/i2c/i2c-dev.ko "$modules"/fs/fuse/{fuse,cuse}.ko \
        "$work/bridge/bbp_bridge.ko" "$files/modules"
    "$build/bin/bbpimage" make --version "HD 2.11.0" "$files/image.bin" >/dev/null
    for program in "$build/bin/bbpflash" "$build/tests/bin/kernel_slave" "$(command -v flock)"; do
        cp "$program" "$files/bin"
        ldd "$program" | grep -o '/[^ ]*' | while read -r library; do
            cp --parents -L "$library" "$files"
        done
    done
    (cd "$files" && find . | cpio --quiet -o -H newc) >"$work/initramfs.cpio"
}

unpack_kernel
echo "kernel $release"
build_bridge
make_initramfs
seconds=900  # it takes one minute on a machine that is not busy
# no_timer_check: on a busy host the guest's timer may tick too late for the kernel's test of it.
timeout "$seconds" qemu-system-x86_64 -machine q35,accel=tcg -smp 1 -m 512 -nographic -no-reboot \
    -nic none -kernel "$root/boot/vmlinuz-$release" -initrd "$work/initramfs.cpio" \
    -append "console=ttyS0 quiet panic=-1 no_timer_check" </dev/null |
    tr -d '\r' | tee "$work/console.log" | grep -aE '^(ok|not ok):' || true
if grep -aq '^not ok' "$work/console.log" ||
    ! grep -aq '^the guest has come to its end' "$work/console.log"; then
    grep -aq '^the guest has come to its end' "$work/console.log" ||
        echo "the guest has not come to its end, for which it has $seconds s" >&2
    echo "the kernel test failed; the console's output is $work/console.log" >&2
    exit 1
fi
