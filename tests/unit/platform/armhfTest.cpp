// SPDX-License-Identifier: Apache-2.0
// What the cross build is for: without these it would test nothing new.
#include <gtest/gtest.h>

#include <climits>

TEST(ThirtyTwoBitArm, HasAnUnsignedPlainCharAndALongOf32Bits) {
    EXPECT_EQ(CHAR_MIN, 0);
    EXPECT_EQ(LONG_MAX, 0x7FFFFFFFL);
    EXPECT_EQ(sizeof(void*), 4u);
}
