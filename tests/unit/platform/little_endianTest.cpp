// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <vector>

#include "platform/little_endian.h"

namespace {

using Bytes = std::vector<unsigned char>;

TEST(LittleEndian, SixteenBitsAreReadLowByteFirst) {
    const Bytes bytes = {0x34, 0x12, 0xFF, 0xFF, 0x00, 0x80};
    EXPECT_EQ(little_endian::Get16(bytes.data()), 0x1234);
    EXPECT_EQ(little_endian::Get16(bytes.data() + 2), 65535);
    EXPECT_EQ(little_endian::Get16(bytes.data() + 4), 32768);
}

TEST(LittleEndian, SixteenBitsAreWrittenLowByteFirstAndNoByteMore) {
    Bytes bytes(4, 0xEE);
    little_endian::Put16(bytes.data() + 1, 0x1234);
    EXPECT_EQ(bytes, (Bytes{0xEE, 0x34, 0x12, 0xEE}));
}

TEST(LittleEndian, OfALargerNumberTheLow16BitsAreWritten) {
    Bytes bytes(2);
    little_endian::Put16(bytes.data(), 0x56FEDC);
    EXPECT_EQ(bytes, (Bytes{0xDC, 0xFE}));
    little_endian::Put16(bytes.data(), -1);
    EXPECT_EQ(bytes, (Bytes{0xFF, 0xFF}));
}

TEST(LittleEndian, ThirtyTwoBitsAreReadLowByteFirst) {
    const Bytes bytes = {0x78, 0x56, 0x34, 0x12, 0xF0, 0xDE, 0xBC, 0x9A};
    EXPECT_EQ(little_endian::Get32(bytes.data()), 0x12345678u);
    EXPECT_EQ(little_endian::Get32(bytes.data() + 4), 0x9ABCDEF0u);
}

TEST(LittleEndian, ThirtyTwoBitsAreWrittenLowByteFirstAndNoByteMore) {
    Bytes bytes(6, 0xEE);
    little_endian::Put32(bytes.data() + 1, 0x9ABCDEF1u);
    EXPECT_EQ(bytes, (Bytes{0xEE, 0xF1, 0xDE, 0xBC, 0x9A, 0xEE}));
}

}  // namespace
