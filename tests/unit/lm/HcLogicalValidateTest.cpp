// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <numeric>

#include "tests/unit/lm/HcLogicalReceiveFixture.h"

namespace {

using fake::Reply;
using testing::ElementsAre;

using HcLogicalValidate = HcLogicalReceive;

TEST_F(HcLogicalValidate, StopsAtAWrongChecksumBeforeTheHeader) {
    SendRequest();

    EXPECT_EQ(Retrieve(Reply({1}).WrongChecksum()), 0);
    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: retrieved message checksum error",
                                                 "ERROR: validating received buffer"));

    EXPECT_EQ(Retrieve(Reply({1}).Corrupt(0, 0x00).Corrupt(6, 0x00)), 0);
    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: retrieved message checksum error",
                                                 "ERROR: validating received buffer"));
    EXPECT_EQ(output_.err, "") << "no dump";
}

TEST_F(HcLogicalValidate, SumsByTheRepliesOwnLength) {
    SendRequest();
    // 14 bytes came, but the length says 13: the last byte is not the sum of the first 12.
    EXPECT_EQ(Retrieve(Reply({1}).Length(13)), 0);
    EXPECT_THAT(platform.Messages(), testing::Contains("ERROR: retrieved message checksum error"));

    // With a payload byte of 0 it is.
    EXPECT_EQ(Retrieve(Reply({0}).Length(13)), 1);
    EXPECT_EQ(lm_.GetRxPayloadSize(), 1) << "the count byte tells the size";
}

TEST_F(HcLogicalValidate, ReportsEachDifferenceToTheRequest) {
    const struct {
        std::size_t offset;
        std::uint8_t value;
        const char* message;
    } cases[] = {
        {0, 0x5A, "ERROR: Write header sync bytes error"},
        {1, 0x5A, "ERROR: Write header sync bytes error"},
        {2, 0x77, "ERROR: Write header LM count error"},
        {3, 0x02, "ERROR: Write header LM instance error"},
        {6, 0x80, "ERROR: Write header opcode error"},
        {8, 0x02, "ERROR: Write header data segment error (total)"},
        {9, 0x01, "ERROR: Write header data segment error (total)"},
        {10, 0x01, "ERROR: Write header data segment error (number)"},
        {11, 0x01, "ERROR: Write header data segment error (number)"},
        {7, 0x00, "ERROR: Read header reception status error"},
    };
    for (const auto& one : cases) {
        SendRequest();
        EXPECT_EQ(Retrieve(Reply({9}).Set(one.offset, one.value)), 0) << one.offset;
        EXPECT_THAT(platform.Messages(),
                    ElementsAre(one.message, "INF: Transmit LM buffers", "INF: Receive LM buffers",
                                "ERROR: validating received buffer"))
            << one.offset;
    }
}

TEST_F(HcLogicalValidate, ReportsAllDifferencesInOrder) {
    SendRequest();

    EXPECT_EQ(Retrieve(Reply({9})
                           .Set(1, 0)
                           .Set(2, 0x99)
                           .Set(3, 0x99)
                           .Set(6, 0x99)
                           .Segments(0x99, 0x98)
                           .Status(0xFE)),
              0);

    EXPECT_THAT(
        platform.Messages(),
        ElementsAre("ERROR: Write header sync bytes error", "ERROR: Write header LM count error",
                    "ERROR: Write header LM instance error", "ERROR: Write header opcode error",
                    "ERROR: Write header data segment error (total)",
                    "ERROR: Write header data segment error (number)",
                    "ERROR: Read header reception status error", "ERROR: LM header missing",
                    "ERROR: LM checksum does not match", "ERROR: LM overflow",
                    "ERROR: LM unknown opcode", "WRN: LM count mismatch (NOT FATAL)",
                    "INF: Transmit LM buffers", "INF: Receive LM buffers",
                    "ERROR: validating received buffer"));
}

TEST_F(HcLogicalValidate, ReportsEveryReceptionStatus) {
    for (int status = 0; status <= 0xFF; ++status) {
        std::vector<std::string> expected;
        const bool received = (status & 0x01) != 0;
        if (!received) {
            expected.emplace_back("ERROR: Read header reception status error");
            const std::pair<int, const char*> troubles[] = {
                {0x04, "ERROR: LM header missing"},
                {0x08, "ERROR: LM checksum does not match"},
                {0x10, "ERROR: LM overflow"},
                {0xE0, "ERROR: LM unknown opcode"}};
            for (const auto& [mask, text] : troubles) {
                if ((status & mask) != 0) {
                    expected.emplace_back(text);
                }
            }
        }
        if ((status & 0x02) != 0) {
            expected.emplace_back("WRN: LM count mismatch (NOT FATAL)");
        }
        if (!received) {
            expected.emplace_back("INF: Transmit LM buffers");
            expected.emplace_back("INF: Receive LM buffers");
            expected.emplace_back("ERROR: validating received buffer");
        }

        SendRequest();
        EXPECT_EQ(Retrieve(Reply().Status(static_cast<std::uint8_t>(status))), received ? 1 : 0)
            << "status " << status;
        EXPECT_THAT(platform.Messages(), testing::ElementsAreArray(expected))
            << "status " << status;
    }
}

TEST_F(HcLogicalValidate, WarnsOfACountMismatchAndAcceptsTheReply) {
    SendRequest();

    EXPECT_EQ(Retrieve(Reply().Status(0x03)), 1);

    EXPECT_EQ(output_.out, "bbpflash WRN: LM count mismatch (NOT FATAL)\n");
}

TEST_F(HcLogicalValidate, DumpsTheRequestAndOnlyTheEarlierChunksOfARejectedReply) {
    SendRequest();
    EXPECT_EQ(Retrieve(Reply({1})), 1);

    EXPECT_EQ(Retrieve(Reply({0x42}).Status(0x0C)), 0);

    const fake::Output request = fake::Capture([&] { lm_.ShowTxLM(); });
    const fake::Output earlier = fake::Capture([&] { lm_.ShowRxLM(); });
    ASSERT_EQ(lm_.rxBuffers.size(), 1u);
    EXPECT_EQ(fake::WithoutPositions(output_.out),
              "bbpflash ERROR: Read header reception status error\n"
              "bbpflash ERROR: LM header missing\n"
              "bbpflash ERROR: LM checksum does not match\n"
              "bbpflash INF: Transmit LM buffers\n" +
                  request.out + "bbpflash INF: Receive LM buffers\n" + earlier.out +
                  "bbpflash ERROR: validating received buffer\n");
    EXPECT_EQ(output_.err, request.err + earlier.err);
}

TEST_F(HcLogicalValidate, AsksForTheInstanceThatTheRequestCarried) {
    lm_.lmInstance = 7;
    lm_.Begin(0x84, 1);
    lm_.Fill(0x05);
    lm_.Terminate();
    lm_.Send();

    EXPECT_EQ(Retrieve(Reply()), 1);
    EXPECT_EQ(Retrieve(Reply().Set(3, 1)), 0);
}

TEST_F(HcLogicalValidate, IsAgainstTheRequestThatIsStillInTheChunk) {
    SendRequest();
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');
    platform.Answer(Reply({1}));
    chunk.GetBuffer();
    EXPECT_EQ(lm_.Validate(&chunk), 1);

    lm_.Begin(0x84, 1);
    fake::Capture([&] { EXPECT_EQ(lm_.Validate(&chunk), 0); });

    EXPECT_THAT(platform.Messages(), testing::Contains("ERROR: Write header LM count error"));
}

}  // namespace
