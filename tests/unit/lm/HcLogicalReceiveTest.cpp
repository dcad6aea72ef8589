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
using fake::Reply;
using testing::ElementsAre;

using HcLogicalRetrieveShort = HcLogicalReceive;

TEST_F(HcLogicalRetrieveShort, CopiesThePayloadBetweenHeaderAndChecksum) {
    SendRequest();
    Bytes payload(8, 0xEE);

    EXPECT_EQ(Retrieve(Reply({1, 2, 3, 4, 5}), payload.data()), 1);

    EXPECT_EQ(payload, (Bytes{1, 2, 3, 4, 5, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(lm_.GetRxPayloadSize(), 5);
    EXPECT_EQ(output_.out, "");
    EXPECT_EQ(output_.err, "");
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

    EXPECT_EQ(lm_.rxLength, 13);
    EXPECT_EQ(lm_.GetRxPayloadSize(), 0);
    EXPECT_EQ(payload, Bytes(4, 0xEE));
}

TEST_F(HcLogicalRetrieveShort, TakesTheLongestReplyOfOneRead) {
    SendRequest();
    Bytes sent(51);
    std::iota(sent.begin(), sent.end(), std::uint8_t{1});
    Bytes payload(51);

    EXPECT_EQ(Retrieve(Reply(sent), payload.data()), 1);

    EXPECT_EQ(payload, sent);
    EXPECT_EQ(lm_.GetRxPayloadSize(), 51);
}

TEST_F(HcLogicalRetrieveShort, WithoutADestinationStillValidatesAndCounts) {
    SendRequest();
    EXPECT_EQ(Retrieve(Reply({1, 2}), nullptr), 1);
    EXPECT_EQ(lm_.rxLength, 15);
    EXPECT_EQ(lm_.currSeg, 1);

    SendRequest();
    EXPECT_EQ(Retrieve(Reply().Status(0), nullptr), 0);
}

TEST_F(HcLogicalRetrieveShort, AdvancesTheSegmentAndKeepsTheChunk) {
    SendRequest();

    EXPECT_EQ(Retrieve(Reply({7})), 1);

    EXPECT_EQ(lm_.currSeg, 1);
    ASSERT_EQ(lm_.rxBuffers.size(), 1u);
    EXPECT_EQ(lm_.rxBuffers[0]->address, 0x2E);
    EXPECT_EQ(lm_.rxBuffers[0]->data[12], 7);
    EXPECT_EQ(lm_.rxBuffers[0]->rxLength, 14);
}

TEST_F(HcLogicalRetrieveShort, NextMessageOfATransferCarriesTheNextSegmentNumber) {
    lm_.SetNumSegs(4069);
    for (const std::uint8_t segment : Bytes{0, 1, 2}) {
        lm_.Begin(0x84, 2035);
        EXPECT_EQ(lm_.txBuffer->data[8], 3);
        EXPECT_EQ(lm_.txBuffer->data[10], segment);
        lm_.Fill(1);
        lm_.Terminate();
        lm_.Send();
        EXPECT_EQ(Retrieve(Reply()), 1);
    }
}

TEST_F(HcLogicalRetrieveShort, AddsUpSeveralRepliesToOneRequest) {
    SendRequest();

    EXPECT_EQ(Retrieve(Reply({1})), 1);
    EXPECT_EQ(Retrieve(Reply({1, 2})), 1);

    EXPECT_EQ(lm_.rxLength, 14 + 15);
    EXPECT_EQ(lm_.GetRxPayloadSize(), 14 + 15 - 13);
    EXPECT_EQ(lm_.rxBuffers.size(), 2u);
    EXPECT_EQ(lm_.currSeg, 2);
}

TEST_F(HcLogicalRetrieveShort, ReportsAFailedReadAndShowsTheEarlierChunks) {
    SendRequest();
    EXPECT_EQ(Retrieve(Reply({1})), 1);
    platform.Fail(DCMD_I2C_RECV, EIO, 1);

    EXPECT_EQ(Retrieve(Reply()), 0);

    const fake::Output dump = fake::Capture([&] { lm_.ShowRxLM(); });
    EXPECT_NE(dump.out, "");
    EXPECT_THAT(platform.Messages(),
                ElementsAre("ERROR: DCMD_I2C_RECV /dev/i2c1 for addr 0x2E with result "
                            "\"Input/output error\" (5)",
                            "ERROR: getting LM response"));
    EXPECT_THAT(fake::WithoutPositions(output_.out),
                testing::EndsWith("ERROR: getting LM response\n" + dump.out));
    EXPECT_THAT(output_.err, testing::EndsWith(dump.err));
    EXPECT_EQ(lm_.currSeg, 1);
    EXPECT_EQ(lm_.rxLength, 14);
    EXPECT_EQ(lm_.rxBuffers.size(), 1u);
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
    EXPECT_EQ(lm_.currSeg, 0);
    EXPECT_EQ(lm_.rxLength, 0);
    EXPECT_TRUE(lm_.rxBuffers.empty());
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
