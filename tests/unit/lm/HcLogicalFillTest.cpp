// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cstdio>

#include "tests/unit/lm/HcLogicalTransmitFixture.h"

namespace {

using fake::Bytes;
using fake::Capture;
using testing::ElementsAre;

using HcLogicalFillByte = HcLogicalTransmit;
using HcLogicalFillArray = HcLogicalTransmit;
using HcLogicalFillFile = HcLogicalTransmit;

TEST_F(HcLogicalFillByte, AppendsToThePayload) {
    lm_.Begin(0x84, 2);

    EXPECT_EQ(lm_.Fill(0x0C), 1);
    EXPECT_EQ(lm_.Fill(0xFF), 1);

    EXPECT_EQ(lm_.txLength, 14);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 14);
    EXPECT_EQ(lm_.txBuffer->data[12], 0x0C);
    EXPECT_EQ(lm_.txBuffer->data[13], 0xFF);
}

TEST_F(HcLogicalFillByte, TakesTheByteAt2046AndRefusesTheOneAt2047) {
    lm_.Begin(0x84, 2035);
    FillUpTo(2046);

    EXPECT_EQ(lm_.Fill(0x11), 1);
    EXPECT_EQ(lm_.txLength, 2047);
    Capture([&] { EXPECT_EQ(lm_.Fill(0x22), 0); });

    EXPECT_EQ(lm_.txLength, 2047);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 2047);
    EXPECT_EQ(lm_.txBuffer->data[2047], 0);
    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: LM is full"));
}

TEST_F(HcLogicalFillByte, FailsWithoutAWordWhenTheChunkIsFull) {
    lm_.Begin(0x84, 1);
    lm_.txBuffer->SetLength(2048);

    EXPECT_EQ(lm_.Fill(0x11), 0);

    EXPECT_EQ(lm_.txLength, 12);
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HcLogicalFillArray, CopiesButAdvancesNothing) {
    lm_.Begin(0x84, 3);
    Bytes source{7, 8, 9};

    EXPECT_EQ(lm_.Fill(source.data(), 3), 3);

    EXPECT_EQ(Bytes(lm_.txBuffer->data + 12, lm_.txBuffer->data + 15), source);
    EXPECT_EQ(lm_.txLength, 12);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 12);

    lm_.Fill(0x42);
    EXPECT_EQ(Bytes(lm_.txBuffer->data + 12, lm_.txBuffer->data + 15), (Bytes{0x42, 8, 9}));
}

TEST_F(HcLogicalFillArray, CopiesOneByte) {
    lm_.Begin(0x84, 1);
    unsigned char source = 7;

    EXPECT_EQ(lm_.Fill(&source, 1), 1);

    EXPECT_EQ(lm_.txBuffer->data[12], 7);
}

TEST_F(HcLogicalFillArray, CopiesUpToTheMessagesEnd) {
    lm_.Begin(0x84, 2035);
    FillUpTo(2046);
    Bytes source{7, 8, 9};

    EXPECT_EQ(lm_.Fill(source.data(), 3), 2);

    EXPECT_EQ(lm_.txBuffer->data[2046], 7);
    EXPECT_EQ(lm_.txBuffer->data[2047], 8);
}

TEST_F(HcLogicalFillArray, RefusesWhenOnlyTheChecksumsPlaceIsLeft) {
    lm_.Begin(0x84, 2035);
    FillUpTo(2047);
    unsigned char source = 7;

    EXPECT_EQ(lm_.Fill(&source, 1), -1);
    lm_.txLength = 2048;
    EXPECT_EQ(lm_.Fill(&source, 1), -1);
    EXPECT_EQ(lm_.Fill(&source, 0), -1);

    EXPECT_EQ(lm_.txBuffer->data[2047], 0);
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HcLogicalFillArray, CopiesNothingForALengthOf0OrLess) {
    lm_.Begin(0x84, 1);
    unsigned char source = 7;

    EXPECT_EQ(lm_.Fill(&source, 0), 0);
    EXPECT_EQ(lm_.Fill(&source, -4), -4);

    EXPECT_EQ(lm_.txBuffer->data[12], 0);
}

TEST_F(HcLogicalFillFile, TakesAShortFileWhole) {
    const Stream file = File(10);
    lm_.Begin(0x84, 11);
    lm_.Fill(0x04);

    EXPECT_EQ(lm_.Fill(file.get()), 10);

    EXPECT_EQ(lm_.txLength, 23);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 23);
    EXPECT_EQ(Bytes(lm_.txBuffer->data + 12, lm_.txBuffer->data + 23),
              (Bytes{0x04, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    EXPECT_NE(feof(file.get()), 0);
}

TEST_F(HcLogicalFillFile, TakesSegmentsOf2035BytesAndLeavesTheChecksumsPlace) {
    const Stream file = File(2 * 2035 + 930);
    for (const int expected : {2035, 2035, 930}) {
        lm_.Begin(0x84, 2035);
        EXPECT_EQ(lm_.Fill(file.get()), expected);
        EXPECT_EQ(lm_.txLength, 12 + expected);
        EXPECT_EQ(lm_.txBuffer->GetLength(), 12 + expected);
    }
    EXPECT_EQ(lm_.txBuffer->data[12], (2 * 2035 + 1) % 251);
    EXPECT_EQ(lm_.txBuffer->data[2047], 0);
}

TEST_F(HcLogicalFillFile, Takes2034BytesBehindAFunctionByte) {
    const Stream file = File(5000);
    lm_.Begin(0x84, 5000);
    lm_.Fill(0x04);

    EXPECT_EQ(lm_.Fill(file.get()), 2034);

    EXPECT_EQ(lm_.txLength, 2047);
}

TEST_F(HcLogicalFillFile, IsNotAtTheFilesEndAfterAFullSegmentThatTakesItsLastByte) {
    const Stream file = File(2035);
    lm_.Begin(0x84, 2035);

    EXPECT_EQ(lm_.Fill(file.get()), 2035);
    EXPECT_EQ(feof(file.get()), 0);

    lm_.Begin(0x84, 0);
    EXPECT_EQ(lm_.Fill(file.get()), 0);
    EXPECT_NE(feof(file.get()), 0);
}

TEST_F(HcLogicalFillFile, ChangesNothingForAnEmptyFile) {
    const Stream file = File(0);
    lm_.Begin(0x84, 0);

    EXPECT_EQ(lm_.Fill(file.get()), 0);

    EXPECT_EQ(lm_.txLength, 12);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 12);
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HcLogicalFillFile, DoesNotReadAFileThatIsAtItsEnd) {
    const Stream file = File(0);
    EXPECT_EQ(fgetc(file.get()), EOF);
    lm_.Begin(0x84, 1);
    int reads = 0;
    g_fread = [&] {
        ++reads;
        return std::size_t{0};
    };

    EXPECT_EQ(lm_.Fill(file.get()), 0);

    EXPECT_EQ(reads, 0);
}

TEST_F(HcLogicalFillFile, ReportsAChunkThatHoldsMoreThanItCan) {
    const Stream file = File(10);
    lm_.Begin(0x84, 1);
    lm_.txBuffer->SetLength(2049);

    Capture([&] { EXPECT_EQ(lm_.Fill(file.get()), 0); });

    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: invalid I2C buffer space"));
    EXPECT_EQ(lm_.txLength, 12);
}

TEST_F(HcLogicalFillFile, TriesWithoutEndWhenTheMessageIsFullAndTheFileIsNotAtItsEnd) {
    const Stream file = File(10);
    for (const int length : {2047, 2048}) {
        lm_.Begin(0x84, 2035);
        FillUpTo(2047);
        lm_.txBuffer->SetLength(length);
        int asked = 0;
        g_feof = [&] { return ++asked > 10000 ? 1 : 0; };

        EXPECT_EQ(lm_.Fill(file.get()), 0);

        EXPECT_EQ(asked, 10001);
        EXPECT_EQ(ftell(file.get()), 0) << "nothing was read";
        EXPECT_EQ(lm_.txLength, 2047);
    }
}

TEST_F(HcLogicalFillFile, ReadsTheLastByteThatFits) {
    const Stream file = File(10);
    lm_.Begin(0x84, 2035);
    FillUpTo(2046);

    EXPECT_EQ(lm_.Fill(file.get()), 1);

    EXPECT_EQ(lm_.txLength, 2047);
    EXPECT_EQ(ftell(file.get()), 1);
}

TEST_F(HcLogicalFillFile, ReturnsTheLastReadWhenTheFileEndsBeforeTheMessageIsFull) {
    const Stream file = File(5000);
    lm_.Begin(0x84, 5000);
    lm_.txBuffer->SetLength(1048);  // room for 1000 in the chunk, for 2035 in the message
    int asked = 0;
    g_feof = [&] { return ++asked > 1 ? 1 : 0; };

    EXPECT_EQ(lm_.Fill(file.get()), 1000);

    EXPECT_EQ(lm_.txLength, 1012);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 2048);
    EXPECT_EQ(asked, 2);
}

TEST_F(HcLogicalFillFile, GoesOnWhileTheMessageHasRoomForOneMoreByte) {
    const Stream file = File(5000);
    lm_.Begin(0x84, 5000);
    lm_.txBuffer->SetLength(14);  // room for 2034 in the chunk, for 2035 in the message
    int asked = 0;
    g_feof = [&] { return ++asked > 3 ? 1 : 0; };

    EXPECT_EQ(lm_.Fill(file.get()), 2034);

    EXPECT_EQ(lm_.txLength, 2046);
    EXPECT_EQ(asked, 4);
}

TEST_F(HcLogicalFillFile, ReportsAReadWithANegativeResultAndTakesNothing) {
    const Stream file = File(10);
    lm_.Begin(0x84, 1);
    g_fread = [] {
        errno = EIO;
        return static_cast<std::size_t>(-1);
    };

    Capture([&] { EXPECT_EQ(lm_.Fill(file.get()), 0); });

    EXPECT_EQ(lm_.txLength, 12);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 12);
    EXPECT_THAT(platform.Messages(),
                ElementsAre("ERROR: reading from file with result \"Input/output error\" (5)"));
}

}  // namespace
