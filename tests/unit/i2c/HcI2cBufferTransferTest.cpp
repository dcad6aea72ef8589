// SPDX-License-Identifier: Apache-2.0
#include <cerrno>

#include "tests/unit/i2c/HcI2cBufferFixture.h"

namespace {

using fake::Capture;
using fake::Output;
using fake::WithoutPositions;
using testing::ElementsAre;

using HcI2cBufferSend = HcI2cBufferTest;
using HcI2cBufferGet = HcI2cBufferTest;

TEST_F(HcI2cBufferSend, LocksSendsAndUnlocks) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    FillUp(chunk, 12);

    EXPECT_EQ(chunk.SendBuffer(), 1);

    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "SEND 28", "UNLOCK"));
    ASSERT_EQ(platform.devctls.size(), 3u);
    EXPECT_EQ(platform.devctls[0].dcmd, 0x508);
    EXPECT_EQ(platform.devctls[1].dcmd, static_cast<int>(0x80100505u));
    EXPECT_EQ(platform.devctls[2].dcmd, 0x509);
    EXPECT_EQ(platform.devctls[1].data, fake::Bytes(chunk.buffer, chunk.buffer + 28));
    for (const fake::DevctlCall& call : platform.devctls) {
        EXPECT_EQ(call.fd, 11);
        EXPECT_TRUE(call.info_is_null);
        EXPECT_EQ(call.data_is_null, call.nbytes == 0);
    }
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HcI2cBufferSend, SendsOfAFullChunkAllItsBytes) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    FillUp(chunk, 2048);

    EXPECT_EQ(chunk.SendBuffer(), 1);

    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "SEND 2064", "UNLOCK"));
}

TEST_F(HcI2cBufferSend, RefusedLockIsReportedAndReleasedAllTheSame) {
    HcI2cBuffer chunk(&bus_, 0xC8, 't');
    FillUp(chunk, 12);
    platform.Fail(DCMD_I2C_LOCK, EBUSY);
    platform.Fail(DCMD_I2C_UNLOCK, EPERM);
    std::size_t messages_before_unlock = 0;
    platform.on_devctl = [&](const fake::DevctlCall&) {
        messages_before_unlock = platform.log.size();
    };

    int result = -1;
    const Output output = Capture([&] { result = chunk.SendBuffer(); });

    EXPECT_EQ(result, 0);
    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "UNLOCK"));
    EXPECT_EQ(messages_before_unlock, 1u);
    EXPECT_EQ(WithoutPositions(output.out),
              "bbpflash ERROR: DCMD_I2C_LOCK /dev/i2c1 for addr 0xC8 with result "
              "\"Device or resource busy\" (16)\n");
    EXPECT_EQ(output.err, "");
}

TEST_F(HcI2cBufferSend, FailedSendIsReportedShownAndLeavesTheBusLocked) {
    HcI2cBuffer chunk(&bus_, 0xC8, 't');
    FillUp(chunk, 2);
    platform.Fail(DCMD_I2C_SEND, EIO);

    int result = -1;
    const Output output = Capture([&] { result = chunk.SendBuffer(); });

    EXPECT_EQ(result, 0);
    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "SEND 18"));
    EXPECT_EQ(WithoutPositions(output.out),
              "bbpflash ERROR: DCMD_I2C_SEND /dev/i2c1 for addr 0xC8 with result "
              "\"Input/output error\" (5)\n"
              "I2C message chunk, addr[0]=0x64  fmt[4]=0x02  stop[8]=no  len[12]=0x02\n");
    EXPECT_EQ(output.err, "\n\t\t 01 08\n\n");
}

TEST_F(HcI2cBufferSend, FailedUnlockIsReportedButDoesNotFailTheSend) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    FillUp(chunk, 2);
    platform.Fail(DCMD_I2C_UNLOCK, EPERM);

    int result = -1;
    const Output output = Capture([&] { result = chunk.SendBuffer(); });

    EXPECT_EQ(result, 1);
    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "SEND 18", "UNLOCK"));
    EXPECT_EQ(WithoutPositions(output.out),
              "bbpflash ERROR: DCMD_I2C_UNLOCK /dev/i2c1 for addr 0x2E with result "
              "\"Operation not permitted\" (1)\n");
    EXPECT_EQ(output.err, "");
}

TEST_F(HcI2cBufferGet, LocksReceives65BytesAndUnlocks) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    platform.Answer(fake::Reply::Raw({14, 0xA5, 0xA4}));

    EXPECT_EQ(chunk.GetBuffer(), 1);

    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "RECV 81", "UNLOCK"));
    const fake::DevctlCall receive = platform.devctls[1];
    EXPECT_EQ(receive.dcmd, static_cast<int>(0xC0100506u));
    EXPECT_EQ(receive.fd, 11);
    EXPECT_TRUE(receive.info_is_null);
    fake::Bytes block{0x17, 0, 0, 0, 2, 0, 0, 0, 65, 0, 0, 0, 0, 0, 0, 0};
    block.resize(81);
    EXPECT_EQ(receive.data, block);
    EXPECT_EQ(chunk.rxLength, 14);
    EXPECT_EQ(chunk.data[0], 0xA5);
    EXPECT_EQ(chunk.data[1], 0xA4);
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HcI2cBufferGet, RefusedLockIsReportedAndReleasedAllTheSame) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    platform.Fail(DCMD_I2C_LOCK, EBUSY);

    int result = -1;
    const Output output = Capture([&] { result = chunk.GetBuffer(); });

    EXPECT_EQ(result, 0);
    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "UNLOCK"));
    EXPECT_EQ(WithoutPositions(output.out),
              "bbpflash ERROR: DCMD_I2C_LOCK /dev/i2c1 for addr 0x2E with result "
              "\"Device or resource busy\" (16)\n");
    EXPECT_EQ(chunk.GetLength(), 0) << "the length is set under the lock only";
}

TEST_F(HcI2cBufferGet, FailedReceiveIsReportedShownAndLeavesTheBusLocked) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    platform.Fail(DCMD_I2C_RECV, ENXIO);

    int result = -1;
    const Output output = Capture([&] { result = chunk.GetBuffer(); });

    EXPECT_EQ(result, 0);
    EXPECT_EQ(chunk.rxLength, 0);
    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "RECV 81"));
    EXPECT_EQ(WithoutPositions(output.out),
              "bbpflash ERROR: DCMD_I2C_RECV /dev/i2c1 for addr 0x2E with result "
              "\"No such device or address\" (6)\n"
              "I2C message chunk, addr[0]=0x17  fmt[4]=0x02  stop[8]=no  len[12]=0x41\n");
    std::string zeros;
    for (int i = 0; i < 65; ++i) {
        zeros += i % 16 == 0 ? "\n\t\t 00" : " 00";
    }
    EXPECT_EQ(output.err, zeros + "\n\n");
}

TEST_F(HcI2cBufferGet, FailedUnlockFailsTheReceiveAfterTheCountIsTaken) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    platform.Answer(fake::Reply::Raw({14}));
    platform.Fail(DCMD_I2C_UNLOCK, EPERM);

    int result = -1;
    const Output output = Capture([&] { result = chunk.GetBuffer(); });

    EXPECT_EQ(result, 0);
    EXPECT_EQ(chunk.rxLength, 14);
    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "RECV 81", "UNLOCK"));
    EXPECT_EQ(WithoutPositions(output.out),
              "bbpflash ERROR: DCMD_I2C_UNLOCK /dev/i2c1 for addr 0x2E with result "
              "\"Operation not permitted\" (1)\n");
}

}  // namespace
