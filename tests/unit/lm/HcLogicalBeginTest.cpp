// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdint>
#include <memory>

#include "tests/unit/lm/HcLogicalTransmitFixture.h"

namespace {

using fake::Bytes;

using HcLogicalBegin = HcLogicalTransmit;

TEST_F(HcLogicalBegin, WritesTheHeaderOfTheFirstMessage) {
    EXPECT_EQ(lm_.Begin(0x84, 1), 1);

    EXPECT_EQ(Request(12), (Bytes{0xA5, 0xA5, 0x00, 0x01, 0x0E, 0x00, 0x84, 0x00, 0, 0, 0, 0}));
    EXPECT_EQ(lm_.txLength, 12);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 12);
}

TEST_F(HcLogicalBegin, WritesSegmentNumbersInstanceAndOpcode) {
    lm_.numSegs = 0x1234;
    lm_.currSeg = 0x5678;
    lm_.lmInstance = 0x42;

    lm_.Begin(0x83, 0x100);

    EXPECT_EQ(Request(12),
              (Bytes{0xA5, 0xA5, 0x00, 0x42, 0x0D, 0x01, 0x83, 0x00, 0x34, 0x12, 0x78, 0x56}));
}

TEST_F(HcLogicalBegin, WritesTheLow16BitsOfTheSegmentNumbers) {
    lm_.numSegs = 0xA1234;
    lm_.currSeg = 0xB5678;

    lm_.Begin(0x84, 1);

    EXPECT_EQ(lm_.txBuffer->data[8], 0x34);
    EXPECT_EQ(lm_.txBuffer->data[9], 0x12);
    EXPECT_EQ(lm_.txBuffer->data[10], 0x78);
    EXPECT_EQ(lm_.txBuffer->data[11], 0x56);
}

TEST_F(HcLogicalBegin, ClearsTheAbortByteOfAnEarlierMessage) {
    lm_.txBuffer->data[7] = 0x55;

    lm_.Begin(0x84, 1);

    EXPECT_EQ(lm_.txBuffer->data[7], 0);
}

TEST_F(HcLogicalBegin, WritesLength2048ForPayloadsAbove2034) {
    const struct {
        int payload;
        int length;
    } cases[] = {{0, 13},      {1, 14},      {243, 256},   {2034, 2047},
                 {2035, 2048}, {2036, 2048}, {5000, 2048}, {INT32_MAX, 2048}};
    for (const auto& one : cases) {
        lm_.Begin(0x84, one.payload);
        EXPECT_EQ(lm_.txBuffer->data[4] | lm_.txBuffer->data[5] << 8, one.length) << one.payload;
    }
}

TEST_F(HcLogicalBegin, CountsMessagesModulo256) {
    for (int i = 0; i < 256; ++i) {
        lm_.Begin(0x84, 1);
        EXPECT_EQ(lm_.txBuffer->data[2], i);
    }
    lm_.Begin(0x84, 1);
    EXPECT_EQ(lm_.txBuffer->data[2], 0);
}

TEST_F(HcLogicalBegin, CountRunsOnOverAResetUnlessTheResetIncludesIt) {
    lm_.Begin(0x84, 1);
    lm_.Begin(0x84, 1);
    EXPECT_EQ(lm_.txBuffer->data[2], 1);

    lm_.Reset(false);
    lm_.Begin(0x84, 1);
    EXPECT_EQ(lm_.txBuffer->data[2], 2);

    lm_.Reset(true);
    lm_.Begin(0x84, 1);
    EXPECT_EQ(lm_.txBuffer->data[2], 0);
}

TEST_F(HcLogicalBegin, StartsOverWhateverWasThere) {
    lm_.Begin(0x84, 100);
    FillUpTo(500);
    lm_.rxLength = 77;

    lm_.Begin(0x80, 1);

    EXPECT_EQ(lm_.txLength, 12);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 12);
    EXPECT_EQ(lm_.rxLength, 0);
}

TEST_F(HcLogicalBegin, KeepsTheSegmentCounters) {
    lm_.numSegs = 5;
    lm_.currSeg = 4;

    lm_.Begin(0x84, 1);

    EXPECT_EQ(lm_.numSegs, 5);
    EXPECT_EQ(lm_.currSeg, 4);
}

TEST_F(HcLogicalBegin, ReleasesTheListOfReceivedChunksButNoChunk) {
    bool destroyed = false;
    const auto received = std::make_unique<WatchedChunk>(&bus_, &destroyed);
    lm_.rxBuffers.push_back(received.get());

    lm_.Begin(0x84, 1);

    EXPECT_TRUE(lm_.rxBuffers.empty());
    EXPECT_EQ(lm_.rxBuffers.capacity(), 0u);
    EXPECT_FALSE(destroyed);
}

}  // namespace
