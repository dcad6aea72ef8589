# SPDX-License-Identifier: Apache-2.0
SUMMARY = "Firmware updater for an HD Radio baseband processor"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

# Where your copy of the sources is.
BBPFLASH_GIT ?= "git://bbpflash.example/bbpflash.git;protocol=https;branch=main"
SRC_URI = "${BBPFLASH_GIT};tag=v${PV}"
S = "${WORKDIR}/git"

inherit cmake pkgconfig

EXTRA_OECMAKE = "-DBBP_TESTS=OFF -DBBP_WERROR=OFF"
PACKAGECONFIG ??= "tools"
PACKAGECONFIG:append:class-native = " sim"
PACKAGECONFIG[tools] = "-DBBP_TOOLS=ON,-DBBP_TOOLS=OFF,cli11 nlohmann-json openssl"
PACKAGECONFIG[sim] = "-DBBP_SIM=ON,-DBBP_SIM=OFF,cli11 nlohmann-json openssl libpcap"

PACKAGES =+ "${PN}-sim ${PN}-tools ${PN}-completions"
FILES:${PN}-completions = "${datadir}/bash-completion ${datadir}/zsh"
FILES:${PN}-sim = "${bindir}/bbpsim ${libdir}/wireshark ${datadir}/libsigrokdecode"
FILES:${PN}-tools = "${bindir}/bbpimage ${bindir}/bbpwatch ${datadir}/bbpflash"
FILES:${PN} += "${nonarch_base_libdir}/udev ${nonarch_libdir}/udev"
RDEPENDS:${PN}-tools = "${PN}"
RDEPENDS:${PN}-sim = "umockdev"

BBCLASSEXTEND = "native"
