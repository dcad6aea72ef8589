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
    const HcLogical fresh(&bus, 0xC8);

    EXPECT_EQ(fresh.bus, &bus);
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
    const HcLogical fresh(&bus, 0xC8);

    EXPECT_EQ(fresh.txBuffer->bus, &bus);
    EXPECT_EQ(fresh.txBuffer->address, 0xC8);
    EXPECT_EQ(fresh.txBuffer->data, fresh.txBuffer->buffer + 16);
    EXPECT_EQ(fresh.txBuffer->GetSpace(), 2048);
}

TEST_F(HcLogicalObject, HoldsItsFieldsInThisOrder) {
    static_assert(std::is_same<decltype(lm.bus), I2cBus*>::value);
    static_assert(std::is_same<decltype(lm.txBuffer), HcI2cBuffer*>::value);
    static_assert(std::is_same<decltype(lm.txLength), int>::value);
    static_assert(std::is_same<decltype(lm.lmCount), unsigned char>::value);
    static_assert(std::is_same<decltype(lm.lmInstance), unsigned char>::value);
    static_assert(std::is_same<decltype(lm.numSegs), int>::value);
    static_assert(std::is_same<decltype(lm.currSeg), int>::value);
    static_assert(std::is_same<decltype(lm.flag), unsigned char>::value);
    static_assert(std::is_same<decltype(lm.rxBuffers), std::vector<HcI2cBuffer*>>::value);
    static_assert(std::is_same<decltype(lm.rxLength), int>::value);
    static_assert(std::is_same<decltype(lm.address), unsigned char>::value);
    static_assert(std::has_virtual_destructor<HcLogical>::value);
    const std::vector<std::size_t> offsets{
        OffsetIn(lm, lm.bus),      OffsetIn(lm, lm.txBuffer),   OffsetIn(lm, lm.txLength),
        OffsetIn(lm, lm.lmCount),  OffsetIn(lm, lm.lmInstance), OffsetIn(lm, lm.numSegs),
        OffsetIn(lm, lm.currSeg),  OffsetIn(lm, lm.flag),       OffsetIn(lm, lm.rxBuffers),
        OffsetIn(lm, lm.rxLength), OffsetIn(lm, lm.address)};
    EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
    EXPECT_EQ(offsets.front(), sizeof(void*)) << "right behind the table of virtual functions";
    EXPECT_EQ(sizeof lm, 3 * sizeof(void*) + 20 + (sizeof(void*) - 4) + sizeof lm.rxBuffers + 8);
}

TEST_F(HcLogicalObject, DestroysItsTransmitChunkButNoReceivedOne) {
    bool transmit_destroyed = false;
    bool received_destroyed = false;
    const auto received = std::make_unique<WatchedChunk>(&bus, &received_destroyed);
    {
        HcLogical fresh(&bus, 0x2E);
        delete fresh.txBuffer;
        fresh.txBuffer = new WatchedChunk(&bus, &transmit_destroyed);
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
            HcLogical(&bus, 0x2E);
        },
        testing::ExitedWithCode(1),
        fake::Prints("bbpflash CRITICAL: creating new LM tx buffer\nERROR\n"));
}

TEST_F(HcLogicalTransmitDeathTest, BeginEndsWithStatus1WithoutAChunk) {
    EXPECT_EXIT(
        {
            fake::JoinOutputs();
            lm.txBuffer = nullptr;
            errno = ENOMEM;
            lm.Begin(0x84, 1);
        },
        testing::ExitedWithCode(1),
        fake::Prints("bbpflash CRITICAL: could not allocate memory for buffer with result "
                     "\"Cannot allocate memory\" (12)\nERROR\n"));
}

TEST_F(HcLogicalReset, ClearsAllButTheCountUnlessToldTo) {
    lm.lmInstance = 9;
    lm.numSegs = 9;
    lm.currSeg = 9;
    lm.txLength = 9;
    lm.rxLength = 9;
    lm.flag = 9;
    lm.lmCount = 9;

    lm.Reset(false);

    EXPECT_EQ(lm.lmInstance, 1);
    EXPECT_EQ(lm.numSegs, 0);
    EXPECT_EQ(lm.currSeg, 0);
    EXPECT_EQ(lm.txLength, 0);
    EXPECT_EQ(lm.rxLength, 0);
    EXPECT_EQ(lm.flag, 0);
    EXPECT_EQ(lm.lmCount, 9);

    lm.Reset(true);

    EXPECT_EQ(lm.lmCount, 0);
    EXPECT_EQ(lm.lmInstance, 1);
}

TEST_F(HcLogicalReset, TouchesNeitherTheChunkNorTheBus) {
    lm.Begin(0x84, 1);

    lm.Reset(true);

    EXPECT_EQ(lm.txBuffer->GetLength(), 12);
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
        lm.numSegs = -7;
        EXPECT_EQ(lm.SetNumSegs(one.total), 1) << one.total;
        EXPECT_EQ(lm.numSegs, one.segments) << one.total;
    }
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HcLogicalSetNumSegs, RefusesMoreThan65535SegmentsAndKeepsTheNumber) {
    lm.numSegs = 3;

    Capture([&] {
        EXPECT_EQ(lm.SetNumSegs(133363724), 0);
        EXPECT_EQ(lm.SetNumSegs(INT32_MAX), 0);
    });

    EXPECT_EQ(lm.numSegs, 3);
    EXPECT_THAT(platform.Messages(),
                ElementsAre("ERROR: 133363724 would exceed maximum of 2^16 LM transfer capacity",
                            "ERROR: 2147483647 would exceed maximum of 2^16 LM transfer capacity"));
}

}  // namespace
