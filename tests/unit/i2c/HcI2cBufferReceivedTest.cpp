// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/i2c/HcI2cBufferFixture.h"

namespace {

using fake::Bytes;
using fake::Capture;
using fake::Output;

using HcI2cBufferReceived = HcI2cBufferTest;
using HcI2cBufferShow = HcI2cBufferTest;

TEST_F(HcI2cBufferReceived, CountIsTheChunksByte16) {
    HcI2cBuffer received(&bus_, 0x2E, 'r');
    Receive(received, 14, Counting(64));
    EXPECT_EQ(received.GetRxBufLength(), 14);

    HcI2cBuffer to_send(&bus_, 0x2E, 't');
    to_send.FillBuffer(0xA5);
    EXPECT_EQ(to_send.GetRxBufLength(), 0xA5) << "the first byte to send";
}

TEST_F(HcI2cBufferReceived, LastByteIsTheOneTheCountPromises) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    const Bytes lm = Counting(64);

    for (const std::uint8_t count : Bytes{1, 14, 63, 64}) {
        Receive(chunk, count, lm);
        EXPECT_EQ(chunk.GetRxLastByte(), count);
    }
}

TEST_F(HcI2cBufferReceived, LastByteIsFoundByTheChunksOwnCountByte) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    chunk.buffer[16] = 3;
    chunk.data[2] = 0x42;

    EXPECT_EQ(chunk.GetRxLastByte(), 0x42);
    EXPECT_EQ(chunk.GetRxBufLength(), 3);
    EXPECT_EQ(chunk.rxLength, 0) << "nothing was received";
}

TEST_F(HcI2cBufferReceived, LastByteStaysInsideTheChunkForEveryCount) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');

    for (int count = 0; count <= 255; ++count) {
        Receive(chunk, static_cast<unsigned char>(count), Counting(64));
        const int expected = count > 64 ? 0 : count;  // at 0, the count byte itself
        EXPECT_EQ(chunk.GetRxLastByte(), expected) << "count " << count;
    }
}

TEST_F(HcI2cBufferReceived, CopyTakesAsManyBytesAsTheCountPromises) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    Receive(chunk, 5, Counting(64));
    Bytes destination(8, 0xEE);

    EXPECT_EQ(chunk.CopyData(destination.data(), 6), 1);

    EXPECT_EQ(destination, (Bytes{1, 2, 3, 4, 5, 0xEE, 0xEE, 0xEE}));
}

TEST_F(HcI2cBufferReceived, CopyTakesNothingWhenTheCountReachesTheMaximum) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    Receive(chunk, 5, Counting(64));
    Bytes destination(8, 0xEE);

    EXPECT_EQ(chunk.CopyData(destination.data(), 5), 0);
    EXPECT_EQ(chunk.CopyData(destination.data(), 4), 0);
    EXPECT_EQ(chunk.CopyData(destination.data(), 0), 0);

    EXPECT_EQ(destination, Bytes(8, 0xEE));
}

TEST_F(HcI2cBufferReceived, CopyOfACountOf0Succeeds) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    Receive(chunk, 0, Counting(64));
    unsigned char destination = 0xEE;

    EXPECT_EQ(chunk.CopyData(&destination, 1), 1);

    EXPECT_EQ(destination, 0xEE);
}

TEST_F(HcI2cBufferReceived, CopyOfEveryCountFindsZerosBeyondTheRead) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    Bytes expected = Counting(64);
    expected.resize(255);

    for (int count = 1; count <= 255; ++count) {
        Receive(chunk, static_cast<unsigned char>(count), Counting(64));
        Bytes destination(static_cast<std::size_t>(count), 0xEE);
        EXPECT_EQ(chunk.CopyData(destination.data(), 256), 1);
        EXPECT_EQ(destination, Bytes(expected.begin(), expected.begin() + count));
    }
}

TEST_F(HcI2cBufferShow, PrintsTheHeaderAndDumpsThePayload) {
    HcI2cBuffer chunk(&bus_, 0xC8, 't');
    FillUp(chunk, 18);
    chunk.SetStop(1);

    const Output output = Capture([&] { chunk.ShowMsg(); });

    EXPECT_EQ(output.out,
              "I2C message chunk, addr[0]=0x64  fmt[4]=0x02  stop[8]=yes  len[12]=0x12\n");
    EXPECT_EQ(output.err,
              "\n\t\t 01 08 0F 16 1D 24 2B 32 39 40 47 4E 55 5C 63 6A"
              "\n\t\t 71 78\n\n");
}

TEST_F(HcI2cBufferShow, PrintsNoDumpOfAnEmptyChunk) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');

    const Output output = Capture([&] { chunk.ShowMsg(); });

    EXPECT_EQ(output.out,
              "I2C message chunk, addr[0]=0x17  fmt[4]=0x02  stop[8]=no  len[12]=0x00\n");
    EXPECT_EQ(output.err, "");
}

TEST_F(HcI2cBufferShow, ReadsTheWholeWordOfEachField) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    const Bytes header{0x04, 0x03, 0x02, 0x81, 0x08, 0x07, 0x06, 0x05, 0, 0, 0, 0, 0, 0, 0, 0x01};
    std::copy(header.begin(), header.end(), chunk.buffer);

    const Output output = Capture([&] { chunk.ShowMsg(); });

    EXPECT_EQ(output.out,
              "I2C message chunk, addr[0]=0x81020304  fmt[4]=0x5060708  stop[8]=yes  "
              "len[12]=0x00\n");
}

TEST_F(HcI2cBufferShow, DumpOfAReceivedChunkStaysInsideIt) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    Receive(chunk, 64, Bytes(64, 0xFF));

    const Output output = Capture([&] { chunk.ShowMsg(); });

    EXPECT_EQ(output.out,
              "I2C message chunk, addr[0]=0x17  fmt[4]=0x02  stop[8]=no  len[12]=0x41\n");
    EXPECT_THAT(output.err, testing::EndsWith(" FF\n\t\t 00\n\n"));
}

}  // namespace
