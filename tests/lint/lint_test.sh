#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Each check of lint.sh passes on a small good tree and fails on the same tree with one fault in it.
set -euo pipefail

lint=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/lint.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# make_tree: the good tree.
make_tree() {
    rm -rf "$work/tree"
    mkdir -p "$work/tree/src/lm" "$work/tree/build/release/bin"
    cd "$work/tree"
    printf '%s\n' '// SPDX-License-Identifier: Apache-2.0' '#ifndef BBPFLASH_LM_A_H' \
        '#define BBPFLASH_LM_A_H' '' '// Relied on: it is negative.' '// Kept: it has one' \
        '// letter; that is enough.' 'int a();' '' '#endif' >src/lm/a.h
    printf '%s\n' '// SPDX-License-Identifier: Apache-2.0' '#include "lm/a.h"' '' 'int a() {' \
        '    return -1;' '}' >src/lm/a.cpp
    printf '%s\n' '<!-- SPDX-License-Identifier: Apache-2.0 -->' '[a](src/lm/a.h)' >README.md
    printf '%s\n' '#!/bin/sh' '# SPDX-License-Identifier: Apache-2.0' 'echo run' >run
    printf '# SPDX-License-Identifier: Apache-2.0\n' >.clang-format
    printf 'BasedOnStyle: Google\nIndentWidth: 4\n' >>.clang-format
    printf 'AllowShortFunctionsOnASingleLine: None\n' >>.clang-format
    printf "# SPDX-License-Identifier: Apache-2.0\nChecks: '-*,bugprone-*'\n" >.clang-tidy
    printf "WarningsAsErrors: '*'\nHeaderFilterRegex: '/(tests|tools)/'\nCheckOptions:\n" >>.clang-tidy
    printf '  - { key: %s, value: CamelCase }\n' readability-identifier-naming.FunctionCase >>.clang-tidy
    # Two sources that CMake compiles as one, and one that another build compiles.
    mkdir -p tests/unit tests/fuzz build/release/tests
    for name in unit/A unit/B fuzz/C; do
        printf '%s\n' '// SPDX-License-Identifier: Apache-2.0' "int ${name#*/}() {" '    return 1;' \
            '}' >"tests/$name.cpp"
    done
    mkdir tools
    for name in D E; do
        printf '%s\n' '// SPDX-License-Identifier: Apache-2.0' "int $name() {" '    return 1;' '}' \
            >"tools/$name.cpp"
    done
    printf '#include "%s/tests/unit/%s.cpp"\n' "$PWD" A "$PWD" B >build/release/tests/one.cxx
    printf '[{"directory": "%s", "file": "%s", "command": "g++ -std=c++11 -I src -c %s"},\n' \
        "$PWD" src/lm/a.cpp src/lm/a.cpp >build/release/compile_commands.json
    # With a header that gcc has read before: clang-tidy does without.
    echo '#include <string>' >build/release/cmake_pch.hxx
    pch="-Winvalid-pch -include $PWD/build/release/cmake_pch.hxx"
    printf '{"directory": "%s", "file": "tools/%s.cpp", "command": "g++ %s -c tools/%s.cpp"},\n' \
        "$PWD" D "$pch" D "$PWD" E "$pch" E >>build/release/compile_commands.json
    printf '{"directory": "%s", "file": "%s", "command": "g++ -c %s"}]\n' "$PWD" \
        "$PWD/build/release/tests/one.cxx" "$PWD/build/release/tests/one.cxx" \
        >>build/release/compile_commands.json
    printf 'bbpflash\n' >build/release/bin/bbpflash
    chmod +x build/release/bin/bbpflash
}

# catches CHECK FAULT: the check passes on the good tree, and no longer once the command was run.
catches() {
    make_tree
    if ! "$lint" "$1" . >"$work/log" 2>&1; then
        echo "$1 fails on a good tree:"
        cat "$work/log"
        failures=$((failures + 1))
    fi
    eval "$2"
    if "$lint" "$1" . >"$work/log" 2>&1; then
        echo "$1 does not see: $2"
        failures=$((failures + 1))
    fi
}

catches length 'seq 300 >>src/lm/a.cpp'
catches format 'echo "int  b ;" >>src/lm/a.cpp'
catches licence 'sed -i 1d src/lm/a.cpp'
catches licence 'echo text >NOTES'
catches headers 'sed -i "s/int a()/std::string a()/" src/lm/a.h'
catches sources 'echo "#include \"config.h\"" >>src/lm/a.cpp'
catches sources 'echo "auto b = [](auto c) { return c; };" >>src/lm/a.cpp'
catches conditionals 'printf "#ifdef __QNX__\n#endif\n" >>src/lm/a.cpp'
catches conditionals 'printf "#if 1\n#endif\n" >>src/lm/a.h'
catches conditionals 'sed -i "s/LM_A_H/LM_B_H/" src/lm/a.h'
catches relied_on 'echo "// Relied on:" >>src/lm/a.cpp'
catches relied_on 'echo "// relied on: it ends" >>src/lm/a.cpp'
catches relied_on 'echo "// kept: it ends; it must" >>src/lm/a.cpp'
catches relied_on 'echo "// Kept: it ends without a reason" >>src/lm/a.cpp'
catches relied_on 'printf "// Kept: it ends\n\n// a; b\n" >>src/lm/a.cpp'
catches relied_on 'printf "// Kept: it\n// ends\n// Kept: it goes on; it must\n" >>src/lm/a.cpp'
catches links 'echo "[a](src/lm/b.h)" >>README.md'
catches paths 'pwd >>build/release/bin/bbpflash'
catches paths 'rm build/release/bin/bbpflash'
catches scripts 'echo "cd folder" >>run'
catches tidy-src 'echo "int b(int* c) { return sizeof(c) / sizeof(c[0]); }" >>src/lm/a.cpp'
catches tidy-tools 'echo "int F(int* c) { return sizeof(c) / sizeof(c[0]); }" >>tools/E.cpp'
catches tidy-tools 'echo "int F(int* c) { return c == nullptr ? *c : 0; }" >>tools/E.cpp'
catches tidy-tools 'echo "int F(" >>tools/E.cpp'
catches tidy-tools 'echo "#include <string>" >>tools/D.cpp; echo "std::string F();" >>tools/E.cpp'
catches naming-tests 'sed -i "s/int B/int bad_name/" tests/unit/B.cpp'
catches naming-tests 'sed -i "s/int C/int bad_name/" tests/fuzz/C.cpp'
catches naming-tests 'echo "int b(" >>tests/unit/A.cpp'

((failures == 0))
