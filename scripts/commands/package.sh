# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? package
#?     make the Debian packages: build/packages/*.deb

takes_nothing "$@"
need build package
say "making the packages; this takes some minutes"
packaging/build_debian.sh build/packages || die "the packages cannot be made"
ls -1 build/packages/*.deb
say "to install them: apt install ./build/packages/bbpflash*_$(dpkg --print-architecture).deb"
