// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <numeric>

#include "tests/unit/lm/HcLogicalTransmitFixture.h"

namespace {

using fake::Bytes;
using fake::Capture;
using fake::Output;
using fake::WithoutPositions;
using testing::ElementsAre;

using HcLogicalTerminate = HcLogicalTransmit;
using HcLogicalSend = HcLogicalTransmit;
using HcLogicalGetTxMicroSec = HcLogicalTransmit;
using HcLogicalCalculateChecksum = HcLogicalTransmit;

TEST_F(HcLogicalTerminate, AppendsTheChecksumAndSetsTheStopFlag) {
    lm_.Begin(0x84, 1);
    lm_.Fill(0x05);
    EXPECT_EQ(StopFlag(), 0);

    EXPECT_EQ(lm_.Terminate(), 1);

    EXPECT_EQ(lm_.txLength, 14);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 14);
    EXPECT_EQ(lm_.txBuffer->data[13], 0xE2);
    EXPECT_EQ(Bytes(lm_.txBuffer->buffer + 12, lm_.txBuffer->buffer + 16), (Bytes{1, 0, 0, 0}));
}

TEST_F(HcLogicalTerminate, SumsByTheLengthFieldAndAppendsAtTheFillPosition) {
    lm_.Begin(0x84, 1);
    lm_.Fill(0x05);
    lm_.Fill(0x06);  // one more than announced: behind the sum

    EXPECT_EQ(lm_.Terminate(), 1);

    EXPECT_EQ(lm_.txLength, 15);
    EXPECT_EQ(lm_.txBuffer->data[14], 0xE2);
}

TEST_F(HcLogicalTerminate, PutsTheChecksumOfAFullMessageInItsLastByte) {
    lm_.Begin(0x84, 2035);
    FillUpTo(2047);
    const Bytes bytes = Request(2047);

    EXPECT_EQ(lm_.Terminate(), 1);

    EXPECT_EQ(lm_.txLength, 2048);
    EXPECT_EQ(lm_.txBuffer->data[2047],
              static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0)));
}

TEST_F(HcLogicalTerminate, FailsOnAFullMessage) {
    lm_.Begin(0x84, 2035);
    lm_.txLength = 2048;

    EXPECT_EQ(lm_.Terminate(), 0);

    EXPECT_EQ(lm_.txLength, 2048);
    EXPECT_EQ(lm_.txBuffer->GetLength(), 12);
    EXPECT_EQ(StopFlag(), 0);
}

TEST_F(HcLogicalTerminate, FailsOnAFullChunk) {
    lm_.Begin(0x84, 1);
    lm_.txBuffer->SetLength(2048);

    EXPECT_EQ(lm_.Terminate(), 0);

    EXPECT_EQ(lm_.txLength, 12);
    EXPECT_EQ(StopFlag(), 0);
}

TEST_F(HcLogicalSend, SendsTheMessageInOneWriteAndReturnsItsPayloadSize) {
    lm_.Begin(0x84, 1);
    lm_.Fill(0x05);
    lm_.Terminate();

    EXPECT_EQ(lm_.Send(), 1);

    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "SEND 30", "UNLOCK"));
    EXPECT_THAT(platform.Requests(), ElementsAre(Bytes{0xA5, 0xA5, 0x00, 0x01, 0x0E, 0x00, 0x84,
                                                       0x00, 0, 0, 0, 0, 0x05, 0xE2}));
    EXPECT_EQ(platform.Calls(DCMD_I2C_SEND).at(0).data[0], 0x17);
}

TEST_F(HcLogicalSend, ReturnsThePayloadSizeOfAFullMessage) {
    lm_.Begin(0x84, 2035);
    FillUpTo(2047);
    lm_.Terminate();

    EXPECT_EQ(lm_.Send(), 2035);

    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "SEND 2064", "UNLOCK"));
}

TEST_F(HcLogicalSend, CountsNegativeForAMessageWithoutChecksum) {
    lm_.Begin(0x84, 1);

    EXPECT_EQ(lm_.Send(), -1);
}

TEST_F(HcLogicalSend, ReportsAndShowsAMessageThatCannotBeSent) {
    lm_.Begin(0x84, 1);
    lm_.Fill(0x05);
    lm_.Terminate();
    platform.Fail(DCMD_I2C_SEND, EIO);

    int result = -99;
    const Output output = Capture([&] { result = lm_.Send(); });
    const Output dump = Capture([&] { lm_.ShowTxLM(); });

    EXPECT_EQ(result, 0);
    EXPECT_EQ(WithoutPositions(output.out),
              "bbpflash ERROR: DCMD_I2C_SEND /dev/i2c1 for addr 0x2E with result "
              "\"Input/output error\" (5)\n"
              "I2C message chunk, addr[0]=0x17  fmt[4]=0x02  stop[8]=yes  len[12]=0x0E\n"
              "bbpflash ERROR: sending LM I2C buffers\n" +
                  dump.out);
    const std::string bytes = "\n\t\t A5 A5 00 01 0E 00 84 00 00 00 00 00 05 E2\n\n";
    EXPECT_EQ(output.err, bytes + bytes);
    EXPECT_EQ(lm_.txLength, 14);
}

TEST_F(HcLogicalSend, SucceedsWhenOnlyTheUnlockFails) {
    lm_.Begin(0x84, 1);
    lm_.Fill(0x05);
    lm_.Terminate();
    platform.Fail(DCMD_I2C_UNLOCK, EPERM);

    Capture([&] { EXPECT_EQ(lm_.Send(), 1); });
}

TEST_F(HcLogicalGetTxMicroSec, IsWholeMillisecondsAndOneMore) {
    const struct {
        int length;
        int speed;
        int microseconds;
    } cases[] = {{2048, 400000, 47000},  {0, 400000, 1000},  {14, 400000, 1000},
                 {14, 100000, 2000},     {43, 400000, 1000}, {44, 400000, 2000},
                 {2048, 100000, 185000}, {0, 1000, 12000},   {1, 1000, 21000},
                 {2048, 1000, 18444000}};
    for (const auto& one : cases) {
        lm_.txLength = one.length;
        EXPECT_EQ(lm_.GetTxMicroSec(one.speed), one.microseconds)
            << one.length << " bytes at " << one.speed;
    }
}

TEST_F(HcLogicalCalculateChecksum, SumsAllBytesButTheLastModulo256) {
    Bytes message(256, 0xFF);
    message[4] = 0x00;
    message[5] = 0x01;

    // 253 bytes of 0xFF, one 0x01 and one 0x00.
    EXPECT_EQ(lm_.CalculateChecksum(message.data()), (253 * 0xFF + 1) & 0xFF);
}

TEST_F(HcLogicalCalculateChecksum, Is0WhenTheLengthLeavesNothingToSum) {
    for (const std::uint8_t length : Bytes{0, 1}) {
        Bytes message{0xA5, 0xA5, 0x01, 0x02, length, 0x00};
        EXPECT_EQ(lm_.CalculateChecksum(message.data()), 0);
    }
    Bytes message{0xA5, 0xA5, 0x01, 0x02, 2, 0x00};
    EXPECT_EQ(lm_.CalculateChecksum(message.data()), 0xA5);
}

TEST_F(HcLogicalCalculateChecksum, EndsAtTheLongestMessagesEndForEveryLengthField) {
    Bytes message(2048, 1);
    for (int length = 0; length <= 0xFFFF; length += 7) {
        message[4] = static_cast<std::uint8_t>(length);
        message[5] = static_cast<std::uint8_t>(length >> 8);
        const int count = std::max(0, std::min(length - 1, 2048));
        const int expected = std::accumulate(message.begin(), message.begin() + count, 0) & 0xFF;
        ASSERT_EQ(lm_.CalculateChecksum(message.data()), expected) << "length " << length;
    }
}

}  // namespace
