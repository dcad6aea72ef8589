#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# naming_test.sh ROOT: the names that .clang-tidy finds wrong outside src/, and leaves alone in it.
set -euo pipefail

root=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/src" "$work/tools"
cp "$root/.clang-tidy" "$work"
cp "$root/src/.clang-tidy" "$work/src"

cat >"$work/tools/a.cpp" <<'END'
class Good {
  public:
    enum class Grade { VeryClean };
    static constexpr int MOST = 3;
    int Get(int first_value) const { return first_value + value_; }
    int open_field = 0;

  private:
    int value_ = 0;
};
class bad_class {
  public:
    enum class Grade { VERY_BAD };
    int get() const { return badvalue; }
    int publicField = 0;

  private:
    int badvalue = 0;
};
constexpr int kMost = 3;
int Sum(int firstValue) {
    const int theSum = firstValue + kMost;
    return theSum;
}
END
cp "$work/tools/a.cpp" "$work/src/a.cpp"

# found FOLDER: the names that are found wrong in the folder's source.
found() {
    clang-tidy --quiet --checks='-*,readability-identifier-naming' "$work/$1/a.cpp" -- -std=c++17 \
        >"$work/log" 2>&1 || true
    sed -n "s/.*invalid case style for .*'\(.*\)'.*/\1/p" "$work/log" | sort | tr '\n' ' '
}

# is_held FOLDER: whether the folder's configuration asks for the check.
is_held() {
    clang-tidy --list-checks "$work/$1/a.cpp" -- | grep -q readability-identifier-naming
}

result=$(found tools)
[[ "$result" == "VERY_BAD bad_class badvalue firstValue get kMost publicField theSum " ]] || {
    echo "found in tools: $result"
    exit 1
}
is_held tools || {
    echo "tools is not held to it"
    exit 1
}
if is_held src; then
    echo "src is held to it, too"
    exit 1
fi
