// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "common/Text.h"

namespace {

using namespace common;

TEST(Text, BeginsAndEnds) {
    EXPECT_TRUE(StartsWith("abc", "ab"));
    EXPECT_TRUE(StartsWith("abc", ""));
    EXPECT_FALSE(StartsWith("a", "ab"));
    EXPECT_FALSE(StartsWith("abc", "b"));
    EXPECT_TRUE(EndsWith("abc", "bc"));
    EXPECT_FALSE(EndsWith("c", "bc"));
    EXPECT_FALSE(EndsWith("abc", "b"));
}

TEST(Text, IsJoined) {
    EXPECT_EQ(Join({}, ", "), "");
    EXPECT_EQ(Join({"a"}, ", "), "a");
    EXPECT_EQ(Join({"", "b", ""}, ", "), ", b, ");
}

TEST(Text, HasHexadecimalDigits) {
    EXPECT_EQ(Hex(std::string("\x00\x7F\xFF", 3)), "007fff");
    EXPECT_EQ(Hex(std::uint8_t{0xA5}), "a5");
}

TEST(Text, IsMadeVisible) {
    EXPECT_EQ(Escape("a \\\n\r\t~"), "a \\\\\\n\\r\\t~");
    EXPECT_EQ(Escape(std::string("\x00\x1F\x7F\xFF", 4)), "\\x00\\x1f\\x7f\\xff");
    EXPECT_EQ(EscapeAndShowBlanks(" a\n "),
              "\xE2\x90\xA3"
              "a\\n\xE2\x90\xA3");
}

}  // namespace
