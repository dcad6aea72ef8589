// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <numeric>
#include <random>

#include "tests/unit/lm/HcLogicalReceiveFixture.h"

bool g_no_memory = false;

namespace {

using fake::Bytes;
using fake::Capture;
using fake::Output;
using fake::Reply;
using fake::WithoutPositions;
using testing::ElementsAre;
using testing::ElementsAreArray;

using HcLogicalRetrieveShort = HcLogicalReceive;
using HcLogicalValidate = HcLogicalReceive;

TEST_F(HcLogicalRetrieveShort, CopiesThePayloadBetweenHeaderAndChecksum) {
    SendRequest();
    Bytes payload(8, 0xEE);

    EXPECT_EQ(Retrieve(Reply({1, 2, 3, 4, 5}), payload.data()), 1);

    EXPECT_EQ(payload, (Bytes{1, 2, 3, 4, 5, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(lm.GetRxPayloadSize(), 5);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

TEST_F(HcLogicalRetrieveShort, ReadsOnceUnderTheLock) {
    SendRequest();
    platform.trace.clear();

    EXPECT_EQ(Retrieve(Reply()), 1);

    EXPECT_THAT(platform.trace, ElementsAre("LOCK", "RECV 81", "UNLOCK"));
    EXPECT_EQ(platform.Calls(DCMD_I2C_RECV).at(0).data[0], 0x17);
}

TEST_F(HcLogicalRetrieveShort, TakesAReplyWithoutPayload) {
    SendRequest();
    Bytes payload(4, 0xEE);

    EXPECT_EQ(Retrieve(Reply(), payload.data()), 1);

    EXPECT_EQ(lm.rxLength, 13);
    EXPECT_EQ(lm.GetRxPayloadSize(), 0);
    EXPECT_EQ(payload, Bytes(4, 0xEE));
}

TEST_F(HcLogicalRetrieveShort, TakesTheLongestReplyOfOneRead) {
    SendRequest();
    Bytes sent(51);
    std::iota(sent.begin(), sent.end(), std::uint8_t{1});
    Bytes payload(51);

    EXPECT_EQ(Retrieve(Reply(sent), payload.data()), 1);

    EXPECT_EQ(payload, sent);
    EXPECT_EQ(lm.GetRxPayloadSize(), 51);
}

TEST_F(HcLogicalRetrieveShort, WithoutADestinationStillValidatesAndCounts) {
    SendRequest();
    EXPECT_EQ(Retrieve(Reply({1, 2}), nullptr), 1);
    EXPECT_EQ(lm.rxLength, 15);
    EXPECT_EQ(lm.currSeg, 1);

    SendRequest();
    EXPECT_EQ(Retrieve(Reply().Status(0), nullptr), 0);
}

TEST_F(HcLogicalRetrieveShort, AdvancesTheSegmentAndKeepsTheChunk) {
    SendRequest();

    EXPECT_EQ(Retrieve(Reply({7})), 1);

    EXPECT_EQ(lm.currSeg, 1);
    ASSERT_EQ(lm.rxBuffers.size(), 1u);
    EXPECT_EQ(lm.rxBuffers[0]->address, 0x2E);
    EXPECT_EQ(lm.rxBuffers[0]->data[12], 7);
    EXPECT_EQ(lm.rxBuffers[0]->rxLength, 14);
}

TEST_F(HcLogicalRetrieveShort, NextMessageOfATransferCarriesTheNextSegmentNumber) {
    lm.SetNumSegs(4069);
    for (const std::uint8_t segment : Bytes{0, 1, 2}) {
        lm.Begin(0x84, 2035);
        EXPECT_EQ(lm.txBuffer->data[8], 3);
        EXPECT_EQ(lm.txBuffer->data[10], segment);
        lm.Fill(1);
        lm.Terminate();
        lm.Send();
        EXPECT_EQ(Retrieve(Reply()), 1);
    }
}

TEST_F(HcLogicalRetrieveShort, AddsUpSeveralRepliesToOneRequest) {
    SendRequest();

    EXPECT_EQ(Retrieve(Reply({1})), 1);
    EXPECT_EQ(Retrieve(Reply({1, 2})), 1);

    EXPECT_EQ(lm.rxLength, 14 + 15);
    EXPECT_EQ(lm.GetRxPayloadSize(), 14 + 15 - 13);
    EXPECT_EQ(lm.rxBuffers.size(), 2u);
    EXPECT_EQ(lm.currSeg, 2);
}

TEST_F(HcLogicalRetrieveShort, ReportsAFailedReadAndShowsTheEarlierChunks) {
    SendRequest();
    EXPECT_EQ(Retrieve(Reply({1})), 1);
    platform.Fail(DCMD_I2C_RECV, EIO, 1);

    EXPECT_EQ(Retrieve(Reply()), 0);

    const Output dump = Capture([&] { lm.ShowRxLM(); });
    EXPECT_NE(dump.out, "");
    EXPECT_THAT(platform.Messages(),
                ElementsAre("ERROR: DCMD_I2C_RECV /dev/i2c1 for addr 0x2E with result "
                            "\"Input/output error\" (5)",
                            "ERROR: getting LM response"));
    EXPECT_THAT(WithoutPositions(output.out),
                testing::EndsWith("ERROR: getting LM response\n" + dump.out));
    EXPECT_THAT(output.err, testing::EndsWith(dump.err));
    EXPECT_EQ(lm.currSeg, 1);
    EXPECT_EQ(lm.rxLength, 14);
    EXPECT_EQ(lm.rxBuffers.size(), 1u);
}

TEST_F(HcLogicalRetrieveShort, FailsWhenTheBusCannotBeUnlocked) {
    SendRequest();
    platform.Fail(DCMD_I2C_UNLOCK, EPERM, 1);

    EXPECT_EQ(Retrieve(Reply()), 0);

    EXPECT_THAT(platform.Messages(), testing::Contains("ERROR: getting LM response"));
}

TEST_F(HcLogicalRetrieveShort, ReportsWhenThereIsNoMemoryForAChunk) {
    SendRequest();
    platform.trace.clear();
    g_no_memory = true;

    EXPECT_EQ(Retrieve(Reply()), 0);

    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: getting LM response"));
    EXPECT_THAT(platform.trace, ElementsAre());
}

TEST_F(HcLogicalRetrieveShort, RejectedReplyIsNeitherKeptNorCountedNorCopied) {
    SendRequest();
    Bytes payload(4, 0xEE);

    EXPECT_EQ(Retrieve(Reply({1, 2, 3}).Status(0x10), payload.data()), 0);

    EXPECT_EQ(platform.Messages().back(), "ERROR: validating received buffer");
    EXPECT_EQ(payload, Bytes(4, 0xEE));
    EXPECT_EQ(lm.currSeg, 0);
    EXPECT_EQ(lm.rxLength, 0);
    EXPECT_TRUE(lm.rxBuffers.empty());
}

TEST_F(HcLogicalRetrieveShort, FailsForCountsOfAHeaderOrLess) {
    SendRequest();
    for (std::uint8_t count = 0; count <= 12; ++count) {
        EXPECT_EQ(Retrieve(Reply().Count(count)), 0);
        EXPECT_THAT(platform.Messages(),
                    ElementsAre("ERROR: receiving data", "ERROR: validating received buffer"));
    }
    EXPECT_EQ(Retrieve(Reply().Count(13)), 1);
}

TEST_F(HcLogicalRetrieveShort, FailsForCountsThatNoReadCanBringEvenWhereTheSumWouldFit) {
    SendRequest();
    // The payload byte makes the sum 0, which is also what lies behind the read.
    Bytes lm_bytes = Request(12);
    lm_bytes[7] = 0x01;
    const int sum = std::accumulate(lm_bytes.begin(), lm_bytes.end(), 0);
    const auto complement = static_cast<std::uint8_t>(0x100 - (sum & 0xFF));
    Reply reply({complement});
    EXPECT_EQ(Retrieve(reply), 1) << "else it is a proper reply";
    Bytes payload(256, 0xEE);

    for (int count = 65; count <= 255; ++count) {
        reply.Count(static_cast<std::uint8_t>(count));
        EXPECT_EQ(Retrieve(reply, payload.data()), 0);
        EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: retrieved message checksum error",
                                                     "ERROR: validating received buffer"));
    }
    EXPECT_EQ(payload, Bytes(256, 0xEE));
}

TEST_F(HcLogicalValidate, StopsAtAWrongChecksumBeforeTheHeader) {
    SendRequest();

    EXPECT_EQ(Retrieve(Reply({1}).WrongChecksum()), 0);
    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: retrieved message checksum error",
                                                 "ERROR: validating received buffer"));

    EXPECT_EQ(Retrieve(Reply({1}).Corrupt(0, 0x00).Corrupt(6, 0x00)), 0);
    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: retrieved message checksum error",
                                                 "ERROR: validating received buffer"));
    EXPECT_EQ(output.err, "") << "no dump";
}

TEST_F(HcLogicalValidate, SumsByTheRepliesOwnLength) {
    SendRequest();
    // 14 bytes came, but the length says 13: the last byte is not the sum of the first 12.
    EXPECT_EQ(Retrieve(Reply({1}).Length(13)), 0);
    EXPECT_THAT(platform.Messages(), testing::Contains("ERROR: retrieved message checksum error"));

    // With a payload byte of 0 it is.
    EXPECT_EQ(Retrieve(Reply({0}).Length(13)), 1);
    EXPECT_EQ(lm.GetRxPayloadSize(), 1) << "the count byte tells the size";
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
        EXPECT_THAT(platform.Messages(), ElementsAreArray(expected)) << "status " << status;
    }
}

TEST_F(HcLogicalValidate, WarnsOfACountMismatchAndAcceptsTheReply) {
    SendRequest();

    EXPECT_EQ(Retrieve(Reply().Status(0x03)), 1);

    EXPECT_EQ(output.out, "bbpflash WRN: LM count mismatch (NOT FATAL)\n");
}

TEST_F(HcLogicalValidate, DumpsTheRequestAndOnlyTheEarlierChunksOfARejectedReply) {
    SendRequest();
    EXPECT_EQ(Retrieve(Reply({1})), 1);

    EXPECT_EQ(Retrieve(Reply({0x42}).Status(0x0C)), 0);

    const Output request = Capture([&] { lm.ShowTxLM(); });
    const Output earlier = Capture([&] { lm.ShowRxLM(); });
    ASSERT_EQ(lm.rxBuffers.size(), 1u);
    EXPECT_EQ(WithoutPositions(output.out),
              "bbpflash ERROR: Read header reception status error\n"
              "bbpflash ERROR: LM header missing\n"
              "bbpflash ERROR: LM checksum does not match\n"
              "bbpflash INF: Transmit LM buffers\n" +
                  request.out + "bbpflash INF: Receive LM buffers\n" + earlier.out +
                  "bbpflash ERROR: validating received buffer\n");
    EXPECT_EQ(output.err, request.err + earlier.err);
}

TEST_F(HcLogicalValidate, AsksForTheInstanceThatTheRequestCarried) {
    lm.lmInstance = 7;
    lm.Begin(0x84, 1);
    lm.Fill(0x05);
    lm.Terminate();
    lm.Send();

    EXPECT_EQ(Retrieve(Reply()), 1);
    EXPECT_EQ(Retrieve(Reply().Set(3, 1)), 0);
}

TEST_F(HcLogicalValidate, IsAgainstTheRequestThatIsStillInTheChunk) {
    SendRequest();
    HcI2cBuffer chunk(&bus, 0x2E, 'r');
    platform.Answer(Reply({1}));
    chunk.GetBuffer();
    EXPECT_EQ(lm.Validate(&chunk), 1);

    lm.Begin(0x84, 1);
    Capture([&] { EXPECT_EQ(lm.Validate(&chunk), 0); });

    EXPECT_THAT(platform.Messages(), testing::Contains("ERROR: Write header LM count error"));
}

// Whether the reply of `count` bytes in the 64 bytes `lm` carries the sum that its length asks for.
bool SumFits(const Bytes& lm, int count) {
    const int length = lm[4] | lm[5] << 8;
    const int summed = std::max(0, std::min(length - 1, 64));
    const int sum = std::accumulate(lm.begin(), lm.begin() + summed, 0);
    return lm[static_cast<std::size_t>(count - 1)] == (sum & 0xFF);
}

TEST_F(HcLogicalRetrieveShort, StaysInsideItsMemoryForEveryCountLengthAndContent) {
    std::mt19937 random(20260101);
    int accepted = 0;
    for (int count = 0; count <= 255; ++count) {
        for (const unsigned length : {0u, 1u, 2u, 12u, 13u, 14u, 40u, 63u, 64u, 65u, 66u, 255u,
                                      256u, 2048u, 2049u, 32768u, 65534u, 65535u}) {
            SendRequest();
            Bytes lm_bytes = Request(12);
            lm_bytes.resize(64);
            std::generate(lm_bytes.begin() + 12, lm_bytes.end(),
                          [&] { return static_cast<std::uint8_t>(random()); });
            lm_bytes[4] = static_cast<std::uint8_t>(length);
            lm_bytes[5] = static_cast<std::uint8_t>(length >> 8);
            lm_bytes[7] = 0x01;
            const bool counts = count >= 13 && count <= 64;
            if (counts) {
                const int summed = std::max(0, std::min<int>(static_cast<int>(length) - 1, 64));
                const int sum = std::accumulate(lm_bytes.begin(), lm_bytes.begin() + summed, 0);
                lm_bytes[static_cast<std::size_t>(count - 1)] = static_cast<std::uint8_t>(sum);
            }
            const bool fits = counts && SumFits(lm_bytes, count);
            Bytes bytes(1, static_cast<std::uint8_t>(count));
            bytes.insert(bytes.end(), lm_bytes.begin(), lm_bytes.end());
            // Exactly as large as the payload: one byte more is a memory error.
            const std::size_t size = counts ? static_cast<std::size_t>(count) - 13 : 0;
            const std::unique_ptr<unsigned char[]> payload(new unsigned char[size]);

            ASSERT_EQ(Retrieve(Reply::Raw(bytes), payload.get()), fits ? 1 : 0)
                << "count " << count << " length " << length;
            accepted += fits ? 1 : 0;
            if (fits) {
                ASSERT_EQ(Bytes(payload.get(), payload.get() + size),
                          Bytes(lm_bytes.begin() + 12,
                                lm_bytes.begin() + 12 + static_cast<std::ptrdiff_t>(size)));
            }
        }
    }
    EXPECT_GT(accepted, 300);
}

TEST_F(HcLogicalRetrieveShort, StaysInsideItsMemoryForRandomReads) {
    std::mt19937 random(20260102);
    SendRequest();
    Bytes payload(51);
    for (int i = 0; i < 1000; ++i) {
        Bytes bytes(65);
        std::generate(bytes.begin(), bytes.end(),
                      [&] { return static_cast<std::uint8_t>(random()); });
        ASSERT_EQ(Retrieve(Reply::Raw(bytes), payload.data()), 0);
    }
}

}  // namespace

// What the core allocates its objects with; null when the test says so.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return g_no_memory ? nullptr : ::operator new(size);
}
