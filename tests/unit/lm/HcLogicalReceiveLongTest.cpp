// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <memory>
#include <random>
#include <utility>

#include "tests/unit/lm/HcLogicalReceiveFixture.h"

namespace {

using fake::Bytes;
using fake::Reply;

using HcLogicalRetrieveLong = HcLogicalReceive;

// A read of a long reply: the count byte, then a message's header, then what `fill` says.
Reply LongRead(std::uint8_t count, unsigned first_byte, unsigned length, unsigned segs,
               unsigned seg, std::uint8_t fill) {
    Bytes bytes(65, fill);
    const Bytes header{count,
                       static_cast<std::uint8_t>(first_byte),
                       0xA5,
                       0,
                       1,
                       static_cast<std::uint8_t>(length),
                       static_cast<std::uint8_t>(length >> 8),
                       0x83,
                       1,
                       static_cast<std::uint8_t>(segs),
                       static_cast<std::uint8_t>(segs >> 8),
                       static_cast<std::uint8_t>(seg),
                       static_cast<std::uint8_t>(seg >> 8)};
    std::copy(header.begin(), header.end(), bytes.begin());
    return Reply::Raw(bytes);
}

TEST_F(HcLogicalRetrieveLong, TakesAReplyThatOneReadCompletes) {
    Bytes destination(256, 0xEE);
    platform.Answer(LongRead(20, 0xA5, 165, 1, 0, 0x11));

    EXPECT_EQ(RetrieveLong(destination.data()), 1);

    EXPECT_THAT(platform.trace, testing::ElementsAre("LOCK", "RECV 81", "UNLOCK"));
    Bytes expected{0xA5, 0xA5, 0, 1, 165, 0, 0x83, 1, 1, 0, 0, 0};
    expected.resize(20, 0x11);
    expected.resize(256, 0xEE);
    EXPECT_EQ(destination, expected) << "as many bytes as the count says, header included";
    EXPECT_EQ(lm_.rxLength, 165);
    EXPECT_EQ(lm_.rxBuffers.size(), 1u);
    EXPECT_EQ(output_.out, "");
}

TEST_F(HcLogicalRetrieveLong, CountsTheFirstByteOfEachReadAsReceived) {
    Bytes destination(256);
    platform.Answer(LongRead(64, 0xA5, 166, 1, 0, 0x11));  // 165 of 166
    platform.Answer(LongRead(64, 1, 0, 0, 0, 0x22));       // and 1 more

    EXPECT_EQ(RetrieveLong(destination.data()), 1);

    EXPECT_EQ(platform.Calls(DCMD_I2C_RECV).size(), 2u);
    EXPECT_EQ(lm_.rxLength, 166);
    EXPECT_EQ(lm_.GetRxPayloadSize(), 153);
}

TEST_F(HcLogicalRetrieveLong, ReadsOnWhileTheFirstBytesDoNotReachTheLength) {
    Bytes destination(256);
    platform.Answer(LongRead(64, 0xA5, 0x0200, 1, 0, 0));
    for (int i = 0; i < 3; ++i) {
        platform.Answer(LongRead(64, 100, 0, 0, 0, 0));
    }
    platform.Answer(LongRead(64, 47, 0, 0, 0, 0));

    EXPECT_EQ(RetrieveLong(destination.data()), 1);

    EXPECT_EQ(lm_.rxLength, 512);
    EXPECT_EQ(platform.Calls(DCMD_I2C_RECV).size(), 5u);
}

TEST_F(HcLogicalRetrieveLong, CopiesEachReadOverTheOneBeforeIt) {
    Bytes destination(256, 0xEE);
    platform.Answer(LongRead(20, 0xA5, 300, 1, 0, 0x11));
    platform.Answer(Reply::Raw({3, 200, 0x22, 0x33, 0x44}));

    EXPECT_EQ(RetrieveLong(destination.data()), 1);

    EXPECT_EQ(Bytes(destination.begin(), destination.begin() + 5),
              (Bytes{200, 0x22, 0x33, 1, 0x2C}));
    EXPECT_EQ(destination[19], 0x11);
    EXPECT_EQ(destination[20], 0xEE);
}

TEST_F(HcLogicalRetrieveLong, CopiesEvenAReadThatPromisesTheMost) {
    Bytes destination(256, 0xEE);
    platform.Answer(LongRead(255, 0xA5, 100, 1, 0, 0x11));

    EXPECT_EQ(RetrieveLong(destination.data()), 1);

    Bytes expected{0xA5, 0xA5, 0, 1, 100, 0, 0x83, 1, 1, 0, 0, 0};
    expected.resize(64, 0x11);
    expected.resize(255, 0);
    expected.resize(256, 0xEE);
    EXPECT_EQ(destination, expected) << "with zeros beyond the read";
}

TEST_F(HcLogicalRetrieveLong, IsCompleteOnlyAtTheLastSegment) {
    Bytes destination(256);
    platform.Answer(LongRead(64, 0xA5, 100, 0x0102, 0x0101, 0));

    EXPECT_EQ(RetrieveLong(destination.data()), 1);

    EXPECT_EQ(platform.Calls(DCMD_I2C_RECV).size(), 1u);
}

TEST_F(HcLogicalRetrieveLong, ReadsUntilAReadFailsWhenItIsNotTheLastSegment) {
    for (const auto& [segs, seg] : {std::pair<unsigned, unsigned>{2, 0}, {1, 1}, {0, 0}}) {
        HcLogical fresh(&bus_, 0x2E);
        Bytes destination(256, 0xEE);
        platform.devctls.clear();
        platform.replies.clear();
        platform.log.clear();
        platform.Answer(LongRead(64, 0xA5, 100, segs, seg, 0));
        for (int i = 0; i < 4; ++i) {
            platform.Answer(LongRead(64, 0xA5, 100, 1, 0, 0));  // would be complete
        }
        int reads = 0;
        platform.on_devctl = [&](const fake::DevctlCall& call) {
            if (call.dcmd == DCMD_I2C_RECV && ++reads == 5) {
                platform.FailAlways(DCMD_I2C_LOCK, EIO);
            }
        };

        fake::Capture([&] { EXPECT_EQ(fresh.RetrieveLong(destination.data()), 0); });

        EXPECT_EQ(reads, 5);
        EXPECT_EQ(platform.Messages().back(), "ERROR: getting LM response");
        EXPECT_EQ(destination, Bytes(256, 0xEE));
        EXPECT_EQ(fresh.rxBuffers.size(), 5u);
        platform.FailAlways(DCMD_I2C_LOCK, 0);
    }
}

TEST_F(HcLogicalRetrieveLong, ReadsTheHeaderOfTheFirstReadAgainWhileNothingCountsAsReceived) {
    Bytes destination(256);
    platform.Answer(LongRead(64, 0, 100, 1, 0, 0));     // counts 0 bytes
    platform.Answer(LongRead(64, 100, 9999, 7, 3, 0));  // its header is not looked at

    EXPECT_EQ(RetrieveLong(destination.data()), 1);

    EXPECT_EQ(platform.Calls(DCMD_I2C_RECV).size(), 2u);
}

TEST_F(HcLogicalRetrieveLong, ReadsNoHeaderWhenAnEarlierReplyCounts) {
    SendRequest();
    EXPECT_EQ(Retrieve(Reply({1})), 1);
    Bytes destination(256);
    platform.Answer(LongRead(64, 0xA5, 13, 1, 0, 0));
    platform.Fail(DCMD_I2C_RECV, EIO, 2);

    EXPECT_EQ(RetrieveLong(destination.data()), 0);

    EXPECT_EQ(lm_.rxLength, 14 + 165);
}

TEST_F(HcLogicalRetrieveLong, ReadsNoHeaderWhenBytesCountAsReceivedEvenWithoutAChunk) {
    lm_.rxLength = 1;
    Bytes destination(256);
    platform.Answer(LongRead(64, 0xA5, 13, 1, 0, 0));
    platform.Fail(DCMD_I2C_RECV, EIO, 1);

    EXPECT_EQ(RetrieveLong(destination.data()), 0);

    EXPECT_EQ(lm_.rxBuffers.size(), 1u);
}

TEST_F(HcLogicalRetrieveLong, DoesNotValidate) {
    SendRequest();
    Bytes destination(256);
    platform.Answer(LongRead(64, 0xFF, 200, 1, 0, 0x77));

    EXPECT_EQ(RetrieveLong(destination.data()), 1);

    EXPECT_EQ(lm_.currSeg, 0);
    EXPECT_EQ(destination[0], 0xFF);
}

TEST_F(HcLogicalRetrieveLong, ReportsAFailedReadAndShowsWhatCameBefore) {
    Bytes destination(256, 0xEE);
    platform.Answer(LongRead(64, 0xA5, 300, 1, 0, 0x11));
    platform.Fail(DCMD_I2C_RECV, EIO, 1);

    EXPECT_EQ(RetrieveLong(destination.data()), 0);

    const fake::Output dump = fake::Capture([&] { lm_.ShowRxLM(); });
    EXPECT_NE(dump.out, "");
    EXPECT_THAT(fake::WithoutPositions(output_.out),
                testing::EndsWith("bbpflash ERROR: getting LM response\n" + dump.out));
    EXPECT_THAT(output_.err, testing::EndsWith(dump.err));
    EXPECT_EQ(destination, Bytes(256, 0xEE));
}

TEST_F(HcLogicalRetrieveLong, ReportsWhenThereIsNoMemoryForAChunk) {
    g_no_memory = true;
    Bytes destination(256);

    EXPECT_EQ(RetrieveLong(destination.data()), 0);

    EXPECT_THAT(platform.Messages(), testing::ElementsAre("ERROR: getting LM response"));
}

TEST_F(HcLogicalRetrieveLong, StaysInsideItsMemoryForEveryCountAndLength) {
    std::mt19937 random(20260103);
    for (int count = 0; count <= 255; ++count) {
        for (const unsigned length : {0u, 1u, 13u, 64u, 65u, 165u, 166u, 2048u, 4096u, 65535u}) {
            HcLogical fresh(&bus_, 0x2E);
            platform.Answer(LongRead(static_cast<std::uint8_t>(count), 0xA5, length, 1, 0,
                                     static_cast<std::uint8_t>(random())));
            const unsigned reads = length <= 165 ? 1 : 1 + (length - 165 + 99) / 100;
            for (unsigned i = 1; i < reads; ++i) {
                platform.Answer(LongRead(static_cast<std::uint8_t>(random()), 100, 0, 0, 0,
                                         static_cast<std::uint8_t>(random())));
            }
            const std::unique_ptr<unsigned char[]> destination(new unsigned char[255]);

            ASSERT_EQ(fresh.RetrieveLong(destination.get()), 1);
            ASSERT_EQ(fresh.rxBuffers.size(), reads) << "length " << length;
            // By design nobody frees them; many thousands are too much for a test.
            for (const HcI2cBuffer* chunk : fresh.rxBuffers) {
                delete chunk;
            }
            platform.devctls.clear();
            platform.trace.clear();
        }
    }
}

}  // namespace
