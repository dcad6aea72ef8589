// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <numeric>
#include <type_traits>

#include "tests/support/Layout.h"
#include "tests/unit/HcLogicalFixture.h"

namespace {

using fake::Bytes;
using fake::Capture;
using fake::Output;
using fake::WithoutPositions;
using testing::ElementsAre;

// Replacements of the stream calls; without one the system's own is called.
std::function<std::size_t()> g_fread;
std::function<int()> g_feof;
bool g_no_memory = false;

using Stream = std::unique_ptr<FILE, int (*)(FILE*)>;

class HcLogicalTransmit : public HcLogicalTest {
  protected:
    ~HcLogicalTransmit() override {
        g_fread = nullptr;
        g_feof = nullptr;
        g_no_memory = false;
    }

    // A file of `size` bytes 1, 2, 3... that is read from its beginning.
    static Stream File(std::size_t size) {
        Stream file(tmpfile(), fclose);
        for (std::size_t i = 0; i < size; ++i) {
            fputc(static_cast<int>((i + 1) % 251), file.get());
        }
        rewind(file.get());
        return file;
    }

    void FillUpTo(int length) {
        while (lm.txLength < length) {
            ASSERT_EQ(lm.Fill(static_cast<unsigned char>(lm.txLength)), 1);
        }
    }

    std::uint8_t StopFlag() const { return lm.txBuffer->buffer[12]; }
};

using HcLogicalObject = HcLogicalTransmit;
using HcLogicalReset = HcLogicalTransmit;
using HcLogicalSetNumSegs = HcLogicalTransmit;
using HcLogicalBegin = HcLogicalTransmit;
using HcLogicalFillByte = HcLogicalTransmit;
using HcLogicalFillArray = HcLogicalTransmit;
using HcLogicalFillFile = HcLogicalTransmit;
using HcLogicalTerminate = HcLogicalTransmit;
using HcLogicalSend = HcLogicalTransmit;
using HcLogicalGetTxMicroSec = HcLogicalTransmit;
using HcLogicalCalculateChecksum = HcLogicalTransmit;
using HcLogicalTransmitDeathTest = HcLogicalTransmit;

// A chunk that tells when it is destroyed.
class WatchedChunk : public HcI2cBuffer {
  public:
    WatchedChunk(I2cBus* the_bus, bool* destroyed)
        : HcI2cBuffer(the_bus, 0x2E, 't'), destroyed_(destroyed) {}
    ~WatchedChunk() override { *destroyed_ = true; }

  private:
    bool* destroyed_;
};

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

TEST_F(HcLogicalBegin, WritesTheHeaderOfTheFirstMessage) {
    EXPECT_EQ(lm.Begin(0x84, 1), 1);

    EXPECT_EQ(Request(12), (Bytes{0xA5, 0xA5, 0x00, 0x01, 0x0E, 0x00, 0x84, 0x00, 0, 0, 0, 0}));
    EXPECT_EQ(lm.txLength, 12);
    EXPECT_EQ(lm.txBuffer->GetLength(), 12);
}

TEST_F(HcLogicalBegin, WritesSegmentNumbersInstanceAndOpcode) {
    lm.numSegs = 0x1234;
    lm.currSeg = 0x5678;
    lm.lmInstance = 0x42;

    lm.Begin(0x83, 0x100);

    EXPECT_EQ(Request(12),
              (Bytes{0xA5, 0xA5, 0x00, 0x42, 0x0D, 0x01, 0x83, 0x00, 0x34, 0x12, 0x78, 0x56}));
}

TEST_F(HcLogicalBegin, WritesTheLow16BitsOfTheSegmentNumbers) {
    lm.numSegs = 0xA1234;
    lm.currSeg = 0xB5678;

    lm.Begin(0x84, 1);

    EXPECT_EQ(lm.txBuffer->data[8], 0x34);
    EXPECT_EQ(lm.txBuffer->data[9], 0x12);
    EXPECT_EQ(lm.txBuffer->data[10], 0x78);
    EXPECT_EQ(lm.txBuffer->data[11], 0x56);
}

TEST_F(HcLogicalBegin, ClearsTheAbortByteOfAnEarlierMessage) {
    lm.txBuffer->data[7] = 0x55;

    lm.Begin(0x84, 1);

    EXPECT_EQ(lm.txBuffer->data[7], 0);
}

TEST_F(HcLogicalBegin, WritesLength2048ForPayloadsAbove2034) {
    const struct {
        int payload;
        int length;
    } cases[] = {{0, 13},      {1, 14},      {243, 256},   {2034, 2047},
                 {2035, 2048}, {2036, 2048}, {5000, 2048}, {INT32_MAX, 2048}};
    for (const auto& one : cases) {
        lm.Begin(0x84, one.payload);
        EXPECT_EQ(lm.txBuffer->data[4] | lm.txBuffer->data[5] << 8, one.length) << one.payload;
    }
}

TEST_F(HcLogicalBegin, CountsMessagesModulo256) {
    for (int i = 0; i < 256; ++i) {
        lm.Begin(0x84, 1);
        EXPECT_EQ(lm.txBuffer->data[2], i);
    }
    lm.Begin(0x84, 1);
    EXPECT_EQ(lm.txBuffer->data[2], 0);
}

TEST_F(HcLogicalBegin, CountRunsOnOverAResetUnlessTheResetIncludesIt) {
    lm.Begin(0x84, 1);
    lm.Begin(0x84, 1);
    EXPECT_EQ(lm.txBuffer->data[2], 1);

    lm.Reset(false);
    lm.Begin(0x84, 1);
    EXPECT_EQ(lm.txBuffer->data[2], 2);

    lm.Reset(true);
    lm.Begin(0x84, 1);
    EXPECT_EQ(lm.txBuffer->data[2], 0);
}

TEST_F(HcLogicalBegin, StartsOverWhateverWasThere) {
    lm.Begin(0x84, 100);
    FillUpTo(500);
    lm.rxLength = 77;

    lm.Begin(0x80, 1);

    EXPECT_EQ(lm.txLength, 12);
    EXPECT_EQ(lm.txBuffer->GetLength(), 12);
    EXPECT_EQ(lm.rxLength, 0);
}

TEST_F(HcLogicalBegin, KeepsTheSegmentCounters) {
    lm.numSegs = 5;
    lm.currSeg = 4;

    lm.Begin(0x84, 1);

    EXPECT_EQ(lm.numSegs, 5);
    EXPECT_EQ(lm.currSeg, 4);
}

TEST_F(HcLogicalBegin, ReleasesTheListOfReceivedChunksButNoChunk) {
    bool destroyed = false;
    const auto received = std::make_unique<WatchedChunk>(&bus, &destroyed);
    lm.rxBuffers.push_back(received.get());

    lm.Begin(0x84, 1);

    EXPECT_TRUE(lm.rxBuffers.empty());
    EXPECT_EQ(lm.rxBuffers.capacity(), 0u);
    EXPECT_FALSE(destroyed);
}

TEST_F(HcLogicalFillByte, AppendsToThePayload) {
    lm.Begin(0x84, 2);

    EXPECT_EQ(lm.Fill(0x0C), 1);
    EXPECT_EQ(lm.Fill(0xFF), 1);

    EXPECT_EQ(lm.txLength, 14);
    EXPECT_EQ(lm.txBuffer->GetLength(), 14);
    EXPECT_EQ(lm.txBuffer->data[12], 0x0C);
    EXPECT_EQ(lm.txBuffer->data[13], 0xFF);
}

TEST_F(HcLogicalFillByte, TakesTheByteAt2046AndRefusesTheOneAt2047) {
    lm.Begin(0x84, 2035);
    FillUpTo(2046);

    EXPECT_EQ(lm.Fill(0x11), 1);
    EXPECT_EQ(lm.txLength, 2047);
    Capture([&] { EXPECT_EQ(lm.Fill(0x22), 0); });

    EXPECT_EQ(lm.txLength, 2047);
    EXPECT_EQ(lm.txBuffer->GetLength(), 2047);
    EXPECT_EQ(lm.txBuffer->data[2047], 0);
    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: LM is full"));
}

TEST_F(HcLogicalFillByte, FailsWithoutAWordWhenTheChunkIsFull) {
    lm.Begin(0x84, 1);
    lm.txBuffer->SetLength(2048);

    EXPECT_EQ(lm.Fill(0x11), 0);

    EXPECT_EQ(lm.txLength, 12);
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HcLogicalFillArray, CopiesButAdvancesNothing) {
    lm.Begin(0x84, 3);
    Bytes source{7, 8, 9};

    EXPECT_EQ(lm.Fill(source.data(), 3), 3);

    EXPECT_EQ(Bytes(lm.txBuffer->data + 12, lm.txBuffer->data + 15), source);
    EXPECT_EQ(lm.txLength, 12);
    EXPECT_EQ(lm.txBuffer->GetLength(), 12);

    lm.Fill(0x42);
    EXPECT_EQ(Bytes(lm.txBuffer->data + 12, lm.txBuffer->data + 15), (Bytes{0x42, 8, 9}));
}

TEST_F(HcLogicalFillArray, CopiesUpToTheMessagesEnd) {
    lm.Begin(0x84, 2035);
    FillUpTo(2046);
    Bytes source{7, 8, 9};

    EXPECT_EQ(lm.Fill(source.data(), 3), 2);

    EXPECT_EQ(lm.txBuffer->data[2046], 7);
    EXPECT_EQ(lm.txBuffer->data[2047], 8);
}

TEST_F(HcLogicalFillArray, RefusesWhenOnlyTheChecksumsPlaceIsLeft) {
    lm.Begin(0x84, 2035);
    FillUpTo(2047);
    unsigned char source = 7;

    EXPECT_EQ(lm.Fill(&source, 1), -1);
    lm.txLength = 2048;
    EXPECT_EQ(lm.Fill(&source, 1), -1);
    EXPECT_EQ(lm.Fill(&source, 0), -1);

    EXPECT_EQ(lm.txBuffer->data[2047], 0);
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HcLogicalFillArray, CopiesNothingForALengthOf0OrLess) {
    lm.Begin(0x84, 1);
    unsigned char source = 7;

    EXPECT_EQ(lm.Fill(&source, 0), 0);
    EXPECT_EQ(lm.Fill(&source, -4), -4);

    EXPECT_EQ(lm.txBuffer->data[12], 0);
}

TEST_F(HcLogicalFillFile, TakesAShortFileWhole) {
    const Stream file = File(10);
    lm.Begin(0x84, 11);
    lm.Fill(0x04);

    EXPECT_EQ(lm.Fill(file.get()), 10);

    EXPECT_EQ(lm.txLength, 23);
    EXPECT_EQ(lm.txBuffer->GetLength(), 23);
    EXPECT_EQ(Bytes(lm.txBuffer->data + 12, lm.txBuffer->data + 23),
              (Bytes{0x04, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    EXPECT_NE(feof(file.get()), 0);
}

TEST_F(HcLogicalFillFile, TakesSegmentsOf2035BytesAndLeavesTheChecksumsPlace) {
    const Stream file = File(2 * 2035 + 930);
    for (const int expected : {2035, 2035, 930}) {
        lm.Begin(0x84, 2035);
        EXPECT_EQ(lm.Fill(file.get()), expected);
        EXPECT_EQ(lm.txLength, 12 + expected);
        EXPECT_EQ(lm.txBuffer->GetLength(), 12 + expected);
    }
    EXPECT_EQ(lm.txBuffer->data[12], (2 * 2035 + 1) % 251);
    EXPECT_EQ(lm.txBuffer->data[2047], 0);
}

TEST_F(HcLogicalFillFile, Takes2034BytesBehindAFunctionByte) {
    const Stream file = File(5000);
    lm.Begin(0x84, 5000);
    lm.Fill(0x04);

    EXPECT_EQ(lm.Fill(file.get()), 2034);

    EXPECT_EQ(lm.txLength, 2047);
}

TEST_F(HcLogicalFillFile, IsNotAtTheFilesEndAfterAFullSegmentThatTakesItsLastByte) {
    const Stream file = File(2035);
    lm.Begin(0x84, 2035);

    EXPECT_EQ(lm.Fill(file.get()), 2035);
    EXPECT_EQ(feof(file.get()), 0);

    lm.Begin(0x84, 0);
    EXPECT_EQ(lm.Fill(file.get()), 0);
    EXPECT_NE(feof(file.get()), 0);
}

TEST_F(HcLogicalFillFile, ChangesNothingForAnEmptyFile) {
    const Stream file = File(0);
    lm.Begin(0x84, 0);

    EXPECT_EQ(lm.Fill(file.get()), 0);

    EXPECT_EQ(lm.txLength, 12);
    EXPECT_EQ(lm.txBuffer->GetLength(), 12);
}

TEST_F(HcLogicalFillFile, DoesNotReadAFileThatIsAtItsEnd) {
    const Stream file = File(0);
    EXPECT_EQ(fgetc(file.get()), EOF);
    lm.Begin(0x84, 1);
    int reads = 0;
    g_fread = [&] {
        ++reads;
        return std::size_t{0};
    };

    EXPECT_EQ(lm.Fill(file.get()), 0);

    EXPECT_EQ(reads, 0);
}

TEST_F(HcLogicalFillFile, ReportsAChunkThatHoldsMoreThanItCan) {
    const Stream file = File(10);
    lm.Begin(0x84, 1);
    lm.txBuffer->SetLength(2049);

    Capture([&] { EXPECT_EQ(lm.Fill(file.get()), 0); });

    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: invalid I2C buffer space"));
    EXPECT_EQ(lm.txLength, 12);
}

TEST_F(HcLogicalFillFile, TriesWithoutEndWhenTheMessageIsFullAndTheFileIsNotAtItsEnd) {
    const Stream file = File(10);
    for (const int length : {2047, 2048}) {
        lm.Begin(0x84, 2035);
        FillUpTo(2047);
        lm.txBuffer->SetLength(length);
        int asked = 0;
        g_feof = [&] { return ++asked > 10000 ? 1 : 0; };

        EXPECT_EQ(lm.Fill(file.get()), 0);

        EXPECT_EQ(asked, 10001);
        EXPECT_EQ(ftell(file.get()), 0) << "nothing was read";
        EXPECT_EQ(lm.txLength, 2047);
    }
}

TEST_F(HcLogicalFillFile, ReadsTheLastByteThatFits) {
    const Stream file = File(10);
    lm.Begin(0x84, 2035);
    FillUpTo(2046);

    EXPECT_EQ(lm.Fill(file.get()), 1);

    EXPECT_EQ(lm.txLength, 2047);
    EXPECT_EQ(ftell(file.get()), 1);
}

TEST_F(HcLogicalFillFile, ReturnsTheLastReadWhenTheFileEndsBeforeTheMessageIsFull) {
    const Stream file = File(5000);
    lm.Begin(0x84, 5000);
    lm.txBuffer->SetLength(1048);  // room for 1000 in the chunk, for 2035 in the message
    int asked = 0;
    g_feof = [&] { return ++asked > 1 ? 1 : 0; };

    EXPECT_EQ(lm.Fill(file.get()), 1000);

    EXPECT_EQ(lm.txLength, 1012);
    EXPECT_EQ(lm.txBuffer->GetLength(), 2048);
}

TEST_F(HcLogicalFillFile, ReportsAReadWithANegativeResultAndTakesNothing) {
    const Stream file = File(10);
    lm.Begin(0x84, 1);
    g_fread = [] {
        errno = EIO;
        return static_cast<std::size_t>(-1);
    };

    Capture([&] { EXPECT_EQ(lm.Fill(file.get()), 0); });

    EXPECT_EQ(lm.txLength, 12);
    EXPECT_EQ(lm.txBuffer->GetLength(), 12);
    EXPECT_THAT(platform.Messages(),
                ElementsAre("ERROR: reading from file with result \"Input/output error\" (5)"));
}

TEST_F(HcLogicalTerminate, AppendsTheChecksumAndSetsTheStopFlag) {
    lm.Begin(0x84, 1);
    lm.Fill(0x05);
    EXPECT_EQ(StopFlag(), 0);

    EXPECT_EQ(lm.Terminate(), 1);

    EXPECT_EQ(lm.txLength, 14);
    EXPECT_EQ(lm.txBuffer->GetLength(), 14);
    EXPECT_EQ(lm.txBuffer->data[13], 0xE2);
    EXPECT_EQ(Bytes(lm.txBuffer->buffer + 12, lm.txBuffer->buffer + 16), (Bytes{1, 0, 0, 0}));
}

TEST_F(HcLogicalTerminate, SumsByTheLengthFieldAndAppendsAtTheFillPosition) {
    lm.Begin(0x84, 1);
    lm.Fill(0x05);
    lm.Fill(0x06);  // one more than announced: behind the sum

    EXPECT_EQ(lm.Terminate(), 1);

    EXPECT_EQ(lm.txLength, 15);
    EXPECT_EQ(lm.txBuffer->data[14], 0xE2);
}

TEST_F(HcLogicalTerminate, PutsTheChecksumOfAFullMessageInItsLastByte) {
    lm.Begin(0x84, 2035);
    FillUpTo(2047);
    const Bytes bytes = Request(2047);

    EXPECT_EQ(lm.Terminate(), 1);

    EXPECT_EQ(lm.txLength, 2048);
    EXPECT_EQ(lm.txBuffer->data[2047],
              static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0)));
}

TEST_F(HcLogicalTerminate, FailsOnAFullMessage) {
    lm.Begin(0x84, 2035);
    lm.txLength = 2048;

    EXPECT_EQ(lm.Terminate(), 0);

    EXPECT_EQ(lm.txLength, 2048);
    EXPECT_EQ(lm.txBuffer->GetLength(), 12);
    EXPECT_EQ(StopFlag(), 0);
}

TEST_F(HcLogicalTerminate, FailsOnAFullChunk) {
    lm.Begin(0x84, 1);
    lm.txBuffer->SetLength(2048);

    EXPECT_EQ(lm.Terminate(), 0);

    EXPECT_EQ(lm.txLength, 12);
    EXPECT_EQ(StopFlag(), 0);
}

TEST_F(HcLogicalSend, SendsTheMessageInOneWriteAndReturnsItsPayloadSize) {
    lm.Begin(0x84, 1);
    lm.Fill(0x05);
    lm.Terminate();

    EXPECT_EQ(lm.Send(), 1);

    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "SEND 30", "UNLOCK"));
    EXPECT_THAT(platform.Requests(), ElementsAre(Bytes{0xA5, 0xA5, 0x00, 0x01, 0x0E, 0x00, 0x84,
                                                       0x00, 0, 0, 0, 0, 0x05, 0xE2}));
    EXPECT_EQ(platform.Calls(DCMD_I2C_SEND).at(0).data[0], 0x17);
}

TEST_F(HcLogicalSend, ReturnsThePayloadSizeOfAFullMessage) {
    lm.Begin(0x84, 2035);
    FillUpTo(2047);
    lm.Terminate();

    EXPECT_EQ(lm.Send(), 2035);

    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "SEND 2064", "UNLOCK"));
}

TEST_F(HcLogicalSend, CountsNegativeForAMessageWithoutChecksum) {
    lm.Begin(0x84, 1);

    EXPECT_EQ(lm.Send(), -1);
}

TEST_F(HcLogicalSend, ReportsAndShowsAMessageThatCannotBeSent) {
    lm.Begin(0x84, 1);
    lm.Fill(0x05);
    lm.Terminate();
    platform.Fail(DCMD_I2C_SEND, EIO);

    int result = -99;
    const Output output = Capture([&] { result = lm.Send(); });
    const Output dump = Capture([&] { lm.ShowTxLM(); });

    EXPECT_EQ(result, 0);
    EXPECT_EQ(WithoutPositions(output.out),
              "bbpflash ERROR: DCMD_I2C_SEND /dev/i2c1 for addr 0x2E with result "
              "\"Input/output error\" (5)\n"
              "I2C message chunk, addr[0]=0x17  fmt[4]=0x02  stop[8]=yes  len[12]=0x0E\n"
              "bbpflash ERROR: sending LM I2C buffers\n" +
                  dump.out);
    const std::string bytes = "\n\t\t A5 A5 00 01 0E 00 84 00 00 00 00 00 05 E2\n\n";
    EXPECT_EQ(output.err, bytes + bytes);
    EXPECT_EQ(lm.txLength, 14);
}

TEST_F(HcLogicalSend, SucceedsWhenOnlyTheUnlockFails) {
    lm.Begin(0x84, 1);
    lm.Fill(0x05);
    lm.Terminate();
    platform.Fail(DCMD_I2C_UNLOCK, EPERM);

    Capture([&] { EXPECT_EQ(lm.Send(), 1); });
}

TEST_F(HcLogicalGetTxMicroSec, IsWholeMillisecondsAndOneMore) {
    const struct {
        int length;
        int speed;
        int microseconds;
    } cases[] = {{2048, 400000, 47000}, {0, 400000, 1000},  {14, 400000, 1000},
                 {14, 100000, 2000},    {43, 400000, 1000}, {44, 400000, 2000},
                 {2048, 100000, 185000}};
    for (const auto& one : cases) {
        lm.txLength = one.length;
        EXPECT_EQ(lm.GetTxMicroSec(one.speed), one.microseconds)
            << one.length << " bytes at " << one.speed;
    }
}

TEST_F(HcLogicalCalculateChecksum, SumsAllBytesButTheLastModulo256) {
    Bytes message(256, 0xFF);
    message[4] = 0x00;
    message[5] = 0x01;

    // 253 bytes of 0xFF, one 0x01 and one 0x00.
    EXPECT_EQ(lm.CalculateChecksum(message.data()), (253 * 0xFF + 1) & 0xFF);
}

TEST_F(HcLogicalCalculateChecksum, Is0WhenTheLengthLeavesNothingToSum) {
    for (const std::uint8_t length : Bytes{0, 1}) {
        Bytes message{0xA5, 0xA5, 0x01, 0x02, length, 0x00};
        EXPECT_EQ(lm.CalculateChecksum(message.data()), 0);
    }
    Bytes message{0xA5, 0xA5, 0x01, 0x02, 2, 0x00};
    EXPECT_EQ(lm.CalculateChecksum(message.data()), 0xA5);
}

TEST_F(HcLogicalCalculateChecksum, EndsAtTheLongestMessagesEndForEveryLengthField) {
    Bytes message(2048, 1);
    for (int length = 0; length <= 0xFFFF; length += 7) {
        message[4] = static_cast<std::uint8_t>(length);
        message[5] = static_cast<std::uint8_t>(length >> 8);
        const int count = std::max(0, std::min(length - 1, 2048));
        const int expected = std::accumulate(message.begin(), message.begin() + count, 0) & 0xFF;
        ASSERT_EQ(lm.CalculateChecksum(message.data()), expected) << "length " << length;
    }
}

}  // namespace

// What the core allocates its objects with; null when the test says so.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return g_no_memory ? nullptr : ::operator new(size);
}

extern "C" {

size_t __real_fread(void* to, size_t size, size_t count, FILE* file);
size_t __wrap_fread(void* to, size_t size, size_t count, FILE* file);
int __real_feof(FILE* file);
int __wrap_feof(FILE* file);

size_t __wrap_fread(void* to, size_t size, size_t count, FILE* file) {
    return g_fread ? g_fread() : __real_fread(to, size, count, file);
}

int __wrap_feof(FILE* file) {
    return g_feof ? g_feof() : __real_feof(file);
}
}
