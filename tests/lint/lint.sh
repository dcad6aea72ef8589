#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# lint.sh CHECK [FOLDER]: one check of the sources in FOLDER, by default this checkout. Prints what
# it finds wrong; the status says whether that was nothing.
# lint.sh --list text|compiling: the checks of the text, or those that compile.
set -euo pipefail

text_checks=(conditionals format length licence links paths relied_on scripts)
compiling_checks=(headers naming-tests sources tidy-common tidy-sim tidy-src tidy-tools)

here=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")")
check=$1
if [[ "$check" == --list ]]; then
    [[ "$2" == text ]] && echo "${text_checks[@]}" || echo "${compiling_checks[@]}"
    exit
fi
root=$(readlink -f "${2-$here/../..}")
cd "$root"
findings=0

# complain TEXT...: something is wrong.
complain() {
    printf '%s\n' "$*"
    findings=$((findings + 1))
}

# files FOLDER PATTERN...: the files below FOLDER whose name matches, but for what was built.
files() {
    local folder=$1 pattern names=()
    shift
    for pattern in "$@"; do
        names+=(-o -name "$pattern")
    done
    find "$folder" \( -path ./build -o -path ./.git -o -name __pycache__ \) -prune -o -type f \
        \( "${names[@]:1}" \) -print | sort
}

scripts() {
    files . '*' | while read -r file; do
        if [[ "$file" == *.sh || "$(head -c 64 "$file" | tr -d '\0' | head -n 1)" =~ ^#!.*sh$ ]]; then
            printf '%s\n' "$file"
        fi
    done
}

# The layout of the code is what .clang-format makes of it.
check_format() {
    local sources
    mapfile -t sources < <(files . '*.h' '*.cpp' '*.c')
    clang-format --dry-run --Werror "${sources[@]}" || complain "clang-format -i would change these"
}

# A file is read in one sitting. A class stays whole, whatever its length.
check_length() {
    local file lines
    while read -r file; do
        lines=$(wc -l <"$file")
        ((lines <= 300)) || complain "$file: $lines lines, more than 300"
    done < <(files . dev CMakeLists.txt '*.cmake' '*.cpp' '*.h' '*.lua' '*.py' '*.sh' |
        grep -vE '^\./src/(chip/HdChip|lm/HcLogical)\.cpp$')
}

# Every file names its licence, but for those with no place for a comment.
check_licence() {
    local file
    while read -r file; do
        head -n 5 "$file" | grep -q 'SPDX-License-Identifier: Apache-2.0' ||
            complain "$file: no SPDX-License-Identifier"
    done < <(files . '*' | grep -vE '^\./LICENSE(S/|$)|\.(json|use|png|pcap|vcd|bin)$|/corpus/|/data/|^\./debian/(changelog|source/format)$')
}

# A header includes what it needs itself, with either compiler.
check_headers() {
    local header compiler
    while read -r header; do
        for compiler in g++ clang++; do
            echo "#include \"${header#src/}\"" | "$compiler" -std=c++11 -pedantic-errors -Wall \
                -Wextra -Werror -I src -fsyntax-only -x c++ - || complain "$header: $compiler"
        done
    done < <(files src '*.h')
}

# A source of the core needs nothing but src and the language.
check_sources() {
    local source
    while read -r source; do
        g++ -std=c++11 -pedantic-errors -I src -fsyntax-only "$source" || complain "$source"
    done < <(files src '*.cpp')
}

# One program for all systems: outside src/platform no conditional but a header's guard, which is
# named after its path.
check_conditionals() {
    local file found guard
    while read -r file; do
        found=$(grep -oE '^\s*#\s*(if|ifdef|ifndef|elif|else|endif)\b.*' "$file" || true)
        guard=
        if [[ "$file" == *.h ]]; then
            guard=$(tr 'a-z/.' 'A-Z__' <<<"BBPFLASH_${file#src/}")
            guard=$(printf '#ifndef %s\n#endif' "$guard")
        fi
        [[ "$found" == "$guard" ]] || complain "$file: ${found:-no include guard}"
    done < <(files src '*.h' '*.cpp' | grep -v '^src/platform/')
}

# What a comment marks as surprising is marked in one way: "Relied on: " with what somebody counts on,
# "Kept: " with what is kept and, after a semicolon, why.
check_relied_on() {
    local line
    while read -r line; do
        [[ "$line" =~ //\ (Relied\ on|Kept):\ [A-Za-z0-9\`].+ ]] || complain "$line"
    done < <(files src '*.h' '*.cpp' | xargs grep -niE 'relied[ -]on|//.*\bkept:' /dev/null)
    # shellcheck disable=SC2016 # the dollar is for awk
    while read -r line; do
        complain "$line: no reason"
    done < <(files src '*.h' '*.cpp' | xargs awk '
        function finish() { if (kept != "" && kept !~ /; [a-z0-9]/) print place; kept = "" }
        !/^ *\/\// || /\/\/ (Relied on|Kept):/ { finish() }
        /\/\/ Kept:/ { place = FILENAME ":" FNR }
        /\/\/ Kept:/ || (kept != "" && /^ *\/\//) { sub(/^ *\/\//, ""); kept = kept $0 }
        END { finish() }')
}

# What a page links to in this tree is there.
check_links() {
    local page target
    while read -r page; do
        while read -r target; do
            [[ -e "$(dirname "$page")/$target" ]] || complain "$page: no $target"
        done < <(grep -oE '\]\([^)#: ]+[)#]' "$page" | sed 's/^..//; s/.$//')
    done < <(files . '*.md')
}

# The program tells nothing of the machine that built it.
check_paths() {
    local program=build/release/bin/bbpflash
    [[ -x "$program" ]] || complain "$program: not built"
    if strings -a "$program" | grep -F "$root"; then
        complain "$program: names the folder that it was built in"
    fi
}

# tidy OPTION... REGEX...: what clang-tidy finds in the sources whose path matches, compiled as the
# release preset does, but for headers that gcc has compiled. A header is seen by all who include it:
# what is found in it is said once.
tidy() {
    local commands
    commands=$(mktemp -d)
    sed -E 's# -Winvalid-pch -include [^ ]*/cmake_pch\.hxx##' build/release/compile_commands.json |
        "$here/every_source.py" "$root" >"$commands/compile_commands.json"
    # Options that gcc alone knows are no finding.
    if ! run-clang-tidy -quiet -p "$commands" -j "$(nproc)" -extra-arg=-Wno-unknown-warning-option \
        "$@" >"$commands/log" 2>&1; then
        sed 's/\x1b\[[0-9;]*m//g' "$commands/log" | grep -vE '^clang-tidy|warnings? ' |
            awk '/: error: / { known = seen[$0]++ } !known' || true
        complain "clang-tidy: $*"
    fi
    # It says which sources it has looked at: none is no check.
    grep -q '^clang-tidy' "$commands/log" || complain "clang-tidy: no source matches $*"
    rm -r "$commands"
}

# tidy for a folder of programs. The checks read the C++ library again for each source: they are shown a
# folder's sources as one. The analyzer, and the checks that look at no included file, are shown each;
# it follows fewer paths than through the core, and takes a third of the time.
check_tidy_programs() {
    local each='clang-analyzer-*,bugprone-suspicious-include,misc-unused-*'
    each+=',readability-duplicate-include,readability-redundant-preprocessor'
    tidy "-checks=-clang-analyzer-*,-bugprone-suspicious-include" \
        "^$root/build/together/$1(-[a-z]+)*\.cxx\$"
    tidy "-checks=-*,$each" -extra-arg=-Xclang -extra-arg=-analyzer-config -extra-arg=-Xclang \
        -extra-arg=max-nodes=60000 "^$root/$1/"
}

# As tidy, for the names and lengths alone: the rest would take minutes where GoogleTest is included.
# CMake compiles a test program's sources as one, and so they are read here.
check_naming() {
    tidy "-checks=-*,readability-identifier-naming,readability-function-size" \
        "^$root/(build/release/)?$1/.*\.(cpp|cxx)\$"
}

# tidy for what differs from the shared branch, and for what includes it.
check_tidy_changed() {
    local base file patterns=()
    base=$(git merge-base HEAD '@{upstream}' 2>/dev/null || git rev-parse HEAD)
    while read -r file; do
        [[ "$file" == *.cpp ]] && patterns+=("^$root/$file\$")
        if [[ "$file" == *.h ]]; then
            while read -r file; do
                patterns+=("^$root/$file\$")
            done < <(grep -rlF --include='*.cpp' "#include \"${file#src/}\"" common sim src tools)
        fi
    done < <((git diff --name-only "$base" && git ls-files --others --exclude-standard) |
        grep -E '^(common|sim|src|tools)/')
    ((${#patterns[@]} == 0)) || tidy "${patterns[@]}"
}

check_scripts() {
    local found
    mapfile -t found < <(scripts)
    shellcheck -x "${found[@]}" || complain "shellcheck"
}

case "$check" in
    tidy-changed) check_tidy_changed ;;
    tidy-src) tidy "^$root/src/" ;;
    tidy-*) check_tidy_programs "${check#tidy-}" ;;
    naming-*) check_naming "${check#naming-}" ;;
    *) "check_${check}" ;;
esac
((findings == 0))
