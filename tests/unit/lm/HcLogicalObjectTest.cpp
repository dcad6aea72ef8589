// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "tests/support/Layout.h"
#include "tests/unit/lm/HcLogicalTransmitFixture.h"

namespace {

using fake::Bytes;
using fake::Capture;
using testing::ElementsAre;

using HcLogicalObject = HcLogicalTransmit;
using HcLogicalReset = HcLogicalTransmit;
using HcLogicalSetNumSegs = HcLogicalTransmit;
using HcLogicalTransmitDeathTest = HcLogicalTransmit;

TEST_F(HcLogicalObject, StartsWithAllCountersAt0AndInstance1) {
    const HcLogical fresh(&bus_, 0xC8);

    EXPECT_EQ(fresh.bus, &bus_);
    ASSERT_NE(fresh.txBuffer, nullptr);
    EXPECT_EQ(fresh.txLength, 0);
    EXPECT_EQ(fresh.lmCount, 0);
    EXPECT_EQ(fresh.lmInstance, 1);
    EXPECT_EQ(fresh.numSegs, 0);
    EXPECT_EQ(fresh.currSeg, 0);
    EXPECT_EQ(fresh.flag, 0);
    EXPECT_TRUE(fresh.rxBuffers.empty());
    EXPECT_EQ(fresh.rxLength, 0);
    EXPECT_EQ(fresh.address, 0xC8);
}

TEST_F(HcLogicalObject, OwnsAnEmptyTransmitChunkForItsBusAndAddress) {
    const HcLogical fresh(&bus_, 0xC8);

    EXPECT_EQ(fresh.txBuffer->bus, &bus_);
    EXPECT_EQ(fresh.txBuffer->address, 0xC8);
    EXPECT_EQ(fresh.txBuffer->data, fresh.txBuffer->buffer + 16);
    EXPECT_EQ(fresh.txBuffer->GetSpace(), 2048);
}

TEST_F(HcLogicalObject, HoldsItsFieldsInThisOrder) {
    static_assert(std::is_same<decltype(lm_.bus), I2cBus*>::value);
    static_assert(std::is_same<decltype(lm_.txBuffer), HcI2cBuffer*>::value);
    static_assert(std::is_same<decltype(lm_.txLength), int>::value);
    static_assert(std::is_same<decltype(lm_.lmCount), unsigned char>::value);
    static_assert(std::is_same<decltype(lm_.lmInstance), unsigned char>::value);
    static_assert(std::is_same<decltype(lm_.numSegs), int>::value);
    static_assert(std::is_same<decltype(lm_.currSeg), int>::value);
    static_assert(std::is_same<decltype(lm_.flag), unsigned char>::value);
    static_assert(std::is_same<decltype(lm_.rxBuffers), std::vector<HcI2cBuffer*>>::value);
    static_assert(std::is_same<decltype(lm_.rxLength), int>::value);
    static_assert(std::is_same<decltype(lm_.address), unsigned char>::value);
    static_assert(std::has_virtual_destructor<HcLogical>::value);
    const std::vector<std::size_t> offsets{
        OffsetIn(lm_, lm_.bus),      OffsetIn(lm_, lm_.txBuffer),   OffsetIn(lm_, lm_.txLength),
        OffsetIn(lm_, lm_.lmCount),  OffsetIn(lm_, lm_.lmInstance), OffsetIn(lm_, lm_.numSegs),
        OffsetIn(lm_, lm_.currSeg),  OffsetIn(lm_, lm_.flag),       OffsetIn(lm_, lm_.rxBuffers),
        OffsetIn(lm_, lm_.rxLength), OffsetIn(lm_, lm_.address)};
    EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
    EXPECT_EQ(offsets.front(), sizeof(void*)) << "right behind the table of virtual functions";
    EXPECT_EQ(sizeof lm_, 3 * sizeof(void*) + 20 + (sizeof(void*) - 4) + sizeof lm_.rxBuffers + 8);
}

TEST_F(HcLogicalObject, DestroysItsTransmitChunkButNoReceivedOne) {
    bool transmit_destroyed = false;
    bool received_destroyed = false;
    const auto received = std::make_unique<WatchedChunk>(&bus_, &received_destroyed);
    {
        HcLogical fresh(&bus_, 0x2E);
        delete fresh.txBuffer;
        fresh.txBuffer = new WatchedChunk(&bus_, &transmit_destroyed);
        fresh.rxBuffers.push_back(received.get());
    }

    EXPECT_TRUE(transmit_destroyed);
    EXPECT_FALSE(received_destroyed);
}

TEST_F(HcLogicalTransmitDeathTest, EndsWithStatus1WithoutABus) {
    EXPECT_EXIT(
        {
            fake::JoinOutputs();
            HcLogical(nullptr, 0x2E);
        },
        testing::ExitedWithCode(1), fake::Prints("bbpflash CRITICAL: NULL bus pointer\nERROR\n"));
}

TEST_F(HcLogicalTransmitDeathTest, EndsWithStatus1WithoutMemoryForItsChunk) {
    EXPECT_EXIT(
        {
            fake::JoinOutputs();
            g_no_memory = true;
            HcLogical(&bus_, 0x2E);
        },
        testing::ExitedWithCode(1),
        fake::Prints("bbpflash CRITICAL: creating new LM tx buffer\nERROR\n"));
}

TEST_F(HcLogicalTransmitDeathTest, BeginEndsWithStatus1WithoutAChunk) {
    EXPECT_EXIT(
        {
            fake::JoinOutputs();
            lm_.txBuffer = nullptr;
            errno = ENOMEM;
            lm_.Begin(0x84, 1);
        },
        testing::ExitedWithCode(1),
        fake::Prints("bbpflash CRITICAL: could not allocate memory for buffer with result "
                     "\"Cannot allocate memory\" (12)\nERROR\n"));
}

TEST_F(HcLogicalReset, ClearsAllButTheCountUnlessToldTo) {
    lm_.lmInstance = 9;
    lm_.numSegs = 9;
    lm_.currSeg = 9;
    lm_.txLength = 9;
    lm_.rxLength = 9;
    lm_.flag = 9;
    lm_.lmCount = 9;

    lm_.Reset(false);

    EXPECT_EQ(lm_.lmInstance, 1);
    EXPECT_EQ(lm_.numSegs, 0);
    EXPECT_EQ(lm_.currSeg, 0);
    EXPECT_EQ(lm_.txLength, 0);
    EXPECT_EQ(lm_.rxLength, 0);
    EXPECT_EQ(lm_.flag, 0);
    EXPECT_EQ(lm_.lmCount, 9);

    lm_.Reset(true);

    EXPECT_EQ(lm_.lmCount, 0);
    EXPECT_EQ(lm_.lmInstance, 1);
}

TEST_F(HcLogicalReset, TouchesNeitherTheChunkNorTheBus) {
    lm_.Begin(0x84, 1);

    lm_.Reset(true);

    EXPECT_EQ(lm_.txBuffer->GetLength(), 12);
    EXPECT_EQ(Request(2), (Bytes{0xA5, 0xA5}));
    EXPECT_THAT(platform.trace, ElementsAre());
}

TEST_F(HcLogicalSetNumSegs, CountsSegmentsOf2035BytesWithOneMoreWhenTheLastIsFull) {
    const struct {
        int total;
        int segments;
    } cases[] = {{0, 1},
                 {14, 1},
                 {2033, 1},
                 {2034, 2},
                 {2035, 2},
                 {4068, 2},
                 {4069, 3},
                 {1048576, 516},
                 {133361688, 65534},
                 {133361689, 65535},
                 {133363723, 65535}};
    for (const auto& one : cases) {
        lm_.numSegs = -7;
        EXPECT_EQ(lm_.SetNumSegs(one.total), 1) << one.total;
        EXPECT_EQ(lm_.numSegs, one.segments) << one.total;
    }
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HcLogicalSetNumSegs, RefusesMoreThan65535SegmentsAndKeepsTheNumber) {
    lm_.numSegs = 3;

    Capture([&] {
        EXPECT_EQ(lm_.SetNumSegs(133363724), 0);
        EXPECT_EQ(lm_.SetNumSegs(INT32_MAX), 0);
    });

    EXPECT_EQ(lm_.numSegs, 3);
    EXPECT_THAT(platform.Messages(),
                ElementsAre("ERROR: 133363724 would exceed maximum of 2^16 LM transfer capacity",
                            "ERROR: 2147483647 would exceed maximum of 2^16 LM transfer capacity"));
}

}  // namespace
