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
    (cd "$work" && clang-tidy --quiet --checks='-*,readability-identifier-naming' "$1/a.cpp" -- \
        -std=c++17 2>/dev/null || true) | sed -n "s/.*invalid case style for .*'\(.*\)'.*/\1/p" |
        sort | tr '\n' ' '
}

result=$(found tools)
[[ "$result" == "VERY_BAD bad_class badvalue firstValue get kMost publicField theSum " ]] || {
    echo "found in tools: $result"
    exit 1
}
# Only what the two configurations say: the command's own choice of checks would hide it.
result=$(cd "$work/src" && clang-tidy --list-checks a.cpp -- | grep -c identifier-naming || true)
[[ "$result" == 0 ]] || {
    echo "src is held to it, too"
    exit 1
}
