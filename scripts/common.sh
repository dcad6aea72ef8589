# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# What the commands of ./dev share. Each is sourced after this, in the project's folder, with its
# name in $command.

say() { printf '== %s\n' "$*"; }

die() {
    printf 'dev: %s\n' "$*" >&2
    exit 1
}

# takes_nothing WORD...: refuses words that the command does not know.
takes_nothing() {
    # shellcheck disable=SC2154
    (($# == 0)) || die "$command does not take: $*"
}

as_root() {
    if ((EUID == 0)); then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "this needs root: run it as root, install sudo, or install by hand: ${missing[*]}"
    fi
}

apt() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 \
        -o Acquire::Retries=3 -qq "$@"
}

# packages LIST...: the packages of these lists of packages.txt, in one line.
packages() {
    local list
    for list in "$@"; do
        grep -q "^$list:" scripts/packages.txt || die "packages.txt has no list $list"
        sed -n "s/^$list: //p" scripts/packages.txt
    done | xargs
}

# need LIST...: installs the packages of these lists that are missing.
need() {
    local line wanted package
    line=$(packages "$@")
    read -ra wanted <<<"$line"
    if ! command -v apt-get >/dev/null; then
        say "no Debian system: these packages, by whatever name, must be there: ${wanted[*]}"
        return
    fi
    missing=()
    for package in "${wanted[@]}"; do
        # A package that was never there may be known as "not-installed".
        dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    if ((${#missing[@]} == 0)); then
        return
    fi
    say "installing ${missing[*]}"
    apt update || say "the package lists could not be refreshed; going on with those at hand"
    apt install -y --no-install-recommends "${missing[@]}" >/dev/null && return
    for package in "${missing[@]}"; do
        if ! apt-get -qq install --dry-run "$package" >/dev/null 2>&1; then
            die "the Debian package $package cannot be had from this machine's package sources"
        fi
    done
    die "installing failed: ${missing[*]}"
}

# build_preset PRESET [TARGET...]
build_preset() {
    local preset=$1
    shift
    say "building preset $preset"
    mkdir -p build
    cmake --preset "$preset" >"build/$preset.configure.log" 2>&1 ||
        { cat "build/$preset.configure.log" >&2 && die "preset $preset cannot be configured"; }
    cmake --build --preset "$preset" --parallel "$(nproc)" ${@:+--target "$@"} ||
        die "preset $preset does not build"
}

# run_ctest FOLDER [ARGUMENT...]: the tests that CMake declared below build/FOLDER.
run_ctest() {
    local folder=$1
    shift
    ctest --test-dir "build/$folder" --parallel "$(nproc)" --output-on-failure --no-tests=error \
        --no-label-summary "$@"
}
