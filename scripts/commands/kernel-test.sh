# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? kernel-test
#?     run an update under a real kernel in a virtual machine; takes two minutes

takes_nothing "$@"
need build test kernel
apt-cache show linux-image-amd64 >/dev/null 2>&1 || apt update
build_preset release bbpflash bbpimage kernel_slave
tests/kernel/run.sh build/release build/kernel || die "the kernel test failed"
say "the kernel test succeeded; the guest's console: build/kernel/console.log"
