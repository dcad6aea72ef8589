// SPDX-License-Identifier: Apache-2.0
// What the chip answers, and when.
#include <gtest/gtest.h>

#include <algorithm>

#include "sim/ChipModel.h"
#include "tests/unit/sim/ChipFixture.h"

namespace sim {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST_F(SimChip, IsUpdatedByAWholeDownload) {
    const Bytes image = MakeSampleImage("2.0.0");

    caller_.Reset();
    EXPECT_EQ("1.0.0", caller_.Version());
    EXPECT_EQ(RECEIVED, caller_.SendImage(image).Status());
    EXPECT_EQ(STATUS_ERASING, caller_.PollStatus());
    unit_.Advance(seconds(4));
    EXPECT_EQ(STATUS_PROGRAMMING, caller_.PollStatus());
    unit_.Advance(seconds(8));
    EXPECT_EQ(STATUS_VERIFYING, caller_.PollStatus());
    unit_.Advance(seconds(3));
    EXPECT_EQ(STATUS_COMPLETE, caller_.PollStatus());
    EXPECT_EQ("1.0.0", caller_.Version()) << "the new firmware runs after the next reset only";
    caller_.Reset();
    EXPECT_EQ("2.0.0", caller_.Version());
    EXPECT_EQ(image, Flash());
    EXPECT_EQ(image.size(), unit_.Chip().Memory().ImageSize());
    EXPECT_EQ(STATUS_IDLE, caller_.PollStatus());
}

TEST_F(SimChip, ReportsWhatItIsToldToAfterProgramming) {
    ChipConfig config = Running("1.0.0");
    config.reports = "never the label";
    HeadUnit unit(config);
    Caller caller(unit);

    EXPECT_EQ("1.0.0", caller.Version());
    caller.SendImage(MakeSampleImage("2.0.0"));
    unit.Advance(seconds(15));
    caller.Reset();
    EXPECT_EQ("never the label", caller.Version());
}

TEST_F(SimChip, ReportsTheLabelOfTheFlashThatItIsGiven) {
    HeadUnit unit(Holding(MakeSampleImage("3.1")));
    EXPECT_EQ("3.1", Caller(unit).Version());
}

TEST_F(SimChip, ReportsItsLoaderWhileTheFirstBlockOfItsFlashIsBlank) {
    Bytes flash = MakeSampleImage("3.1");
    std::fill_n(flash.begin(), 256, 0xFF);
    HeadUnit unit(Holding(flash));
    EXPECT_EQ(LOADER_VERSION, Caller(unit).Version());
}

TEST_F(SimChip, CutsAVersionThatDoesNotFitAReply) {
    HeadUnit unit(Running(std::string(200, 'v')));
    const Reply reply = Caller(unit).Ask(VersionQuery());
    EXPECT_TRUE(reply.Sound());
    EXPECT_EQ(64u, reply.Count());
    EXPECT_EQ(std::string(49, 'v'), reply.Text());
}

// Replies

TEST_F(SimChip, EchoesTheRequestsHeader) {
    const Reply reply = caller_.AskRaw(VersionQuery().Count(0).Segment(0, 7).Build());

    EXPECT_TRUE(reply.Sound());
    EXPECT_EQ(SYNC, reply.At(0));
    EXPECT_EQ(SYNC, reply.At(1));
    EXPECT_EQ(0u, reply.At(COUNT_AT));
    EXPECT_EQ(1u, reply.At(INSTANCE_AT));
    EXPECT_EQ(OPCODE_VERSION, reply.At(OPCODE_AT));
    EXPECT_EQ(RECEIVED, reply.Status());
    EXPECT_EQ(7u, reply.Field(SEGMENTS_AT));
    EXPECT_EQ(0u, reply.Field(SEGMENT_AT));
}

TEST_F(SimChip, PutsAZeroBeforeTheVersionAndANulBehindIt) {
    const Reply reply = caller_.Ask(VersionQuery());

    EXPECT_EQ(13u + 7u, reply.Count());
    EXPECT_EQ(0u, reply.Payload(0));
    EXPECT_EQ('1', static_cast<char>(reply.Payload(1)));
    EXPECT_EQ(0u, reply.Payload(6));
}

TEST_F(SimChip, HasTheStatusInAnotherByteOfEachStatusReply) {
    const Reply poll = caller_.Ask(Poll());
    EXPECT_EQ(15u, poll.Count());
    EXPECT_EQ(STATUS_IDLE, poll.Payload(1));
    const Reply status = caller_.Ask(FlashStatus());
    EXPECT_EQ(14u, status.Count());
    EXPECT_EQ(STATUS_IDLE, status.Payload(0));
}

TEST_F(SimChip, NeedsItsTimeForAReply) {
    caller_.Send(VersionQuery().Build());
    unit_.Advance(microseconds(399));
    EXPECT_EQ(0u, caller_.Fetch().Count());
    EXPECT_TRUE(caller_.Fetch().Sound());
}

TEST_F(SimChip, HasNothingToSayUnasked) {
    const Reply reply = caller_.Fetch();
    EXPECT_EQ(0, reply.result);
    EXPECT_EQ(0u, reply.Count());
}

TEST_F(SimChip, KeepsItsLastReplyReadable) {
    const Reply first = caller_.Ask(VersionQuery());
    EXPECT_EQ(first.read, caller_.Fetch().read);
}

TEST_F(SimChip, GivesALongReplyInPiecesAndThenOnceMore) {
    const Reply first = caller_.Ask(ConfigurationQuery());
    EXPECT_EQ(64u, first.Count());
    EXPECT_EQ(12u + 1u + 256u + 1u, first.Field(LENGTH_AT));
    EXPECT_EQ(0u, first.Payload(0));
    EXPECT_EQ(50u, first.Payload(51));
    EXPECT_EQ(51u, caller_.Fetch().read[1]);
    EXPECT_EQ(64u, caller_.Fetch().Count());
    EXPECT_EQ(64u, caller_.Fetch().Count());
    EXPECT_EQ(14u, caller_.Fetch().Count());
    EXPECT_EQ(first.read, caller_.Fetch().read);
}

TEST_F(SimChip, ServesReadsOfOtherSizes) {
    caller_.Send(VersionQuery().Build());
    unit_.Advance(REPLY_WAIT);
    std::uint8_t bytes[100];
    std::fill_n(bytes, sizeof bytes, 0xEE);
    EXPECT_TRUE(unit_.Chip().Read(bytes, 0));
    EXPECT_EQ(0xEE, bytes[0]);
    EXPECT_TRUE(unit_.Chip().Read(bytes, 5));
    EXPECT_EQ(4, bytes[0]);
    EXPECT_EQ(0xEE, bytes[5]);
    EXPECT_TRUE(unit_.Chip().Read(bytes, sizeof bytes));
    EXPECT_EQ(16, bytes[0]) << "the rest of the reply";
}

// Messages that make no sense

TEST_F(SimChip, SaysWhatIsWrongWithAMessage) {
    Bytes no_sync = VersionQuery().Build();
    no_sync[1] = 0x5A;
    EXPECT_EQ(HEADER_MISSING, caller_.AskRaw(no_sync).Status());
    EXPECT_EQ(HEADER_MISSING, caller_.AskRaw(VersionQuery().Instance(2).Build()).Status());
    EXPECT_EQ(HEADER_MISSING, caller_.AskRaw(Bytes(12, SYNC)).Status());
    EXPECT_EQ(HEADER_MISSING, caller_.AskRaw({0x00}).Status());

    Bytes bad_sum = VersionQuery().Build();
    bad_sum.back() ^= 1;
    EXPECT_EQ(CHECKSUM_MISMATCH, caller_.AskRaw(bad_sum).Status());
    EXPECT_EQ(CHECKSUM_MISMATCH, caller_.AskRaw(VersionQuery().Length(15).Build()).Status());
    EXPECT_EQ(OVERFLOW_BIT, caller_.AskRaw(VersionQuery().Length(13).Build()).Status());
    EXPECT_EQ(OVERFLOW_BIT, caller_.AskRaw(Bytes(2049, SYNC)).Status());

    EXPECT_EQ(UNKNOWN_OPCODE, caller_.AskRaw(Message(0x81, {1}).Build()).Status());
    EXPECT_EQ(UNKNOWN_OPCODE, caller_.Ask(Message(OPCODE_VERSION, {2}).Count(1)).Status() &
                                  ~unsigned{COUNT_MISMATCH});
}

TEST_F(SimChip, AnswersWhateverItIsSentWithASoundReply) {
    std::uint32_t state = 1;
    for (int i = 0; i < 3000; ++i) {
        Bytes noise(1 + state % 40);
        for (std::uint8_t& byte : noise) {
            state = state * 1664525u + 1013904223u;
            byte = static_cast<std::uint8_t>(state >> 24);
        }
        // Every other one gets past the check of the header and the checksum.
        if (i % 2 == 0 && noise.size() > OVERHEAD) {
            noise[0] = noise[1] = SYNC;
            noise[INSTANCE_AT] = 1;
            SetField(&noise[LENGTH_AT], static_cast<unsigned>(noise.size()));
            noise[OPCODE_AT] = static_cast<std::uint8_t>(0x80 + i % 5);
            noise.back() = Sum(noise.data(), noise.size() - 1);
        }
        const Reply reply = caller_.AskRaw(noise);
        ASSERT_EQ(0, reply.result);
        ASSERT_GT(reply.Count(), 12u);
    }
}

TEST_F(SimChip, AcknowledgesAnEmptyWriteAndForgetsNothingOverIt) {
    const Reply reply = caller_.Ask(VersionQuery());
    EXPECT_EQ(0, caller_.Send({}));
    EXPECT_EQ(reply.read, caller_.Fetch().read);
}

TEST_F(SimChip, WarnsOfAMessageOutOfStepAndGoesOnFromIt) {
    EXPECT_EQ(RECEIVED, caller_.AskRaw(VersionQuery().Count(0).Build()).Status());
    EXPECT_EQ(RECEIVED | COUNT_MISMATCH, caller_.AskRaw(VersionQuery().Count(9).Build()).Status());
    EXPECT_EQ(RECEIVED, caller_.AskRaw(VersionQuery().Count(10).Build()).Status());
}

TEST_F(SimChip, CountsMessagesModulo256) {
    for (unsigned count = 0; count < 300; ++count) {
        ASSERT_EQ(RECEIVED, caller_.AskRaw(VersionQuery().Count(count).Build()).Status());
    }
}

TEST_F(SimChip, ExpectsMessage0AfterAReset) {
    caller_.Ask(VersionQuery());
    caller_.Reset();
    EXPECT_EQ(RECEIVED, caller_.AskRaw(VersionQuery().Count(0).Build()).Status());
    caller_.Reset();
    EXPECT_EQ(RECEIVED | COUNT_MISMATCH, caller_.AskRaw(VersionQuery().Count(1).Build()).Status());
}

// Reset

TEST_F(SimChip, IsSilentInResetAndWhileItStarts) {
    unit_.WriteReset("0", 1);
    EXPECT_EQ(ENXIO, caller_.Send(VersionQuery().Build()));
    EXPECT_EQ(ENXIO, caller_.Fetch().result);
    unit_.Advance(seconds(10));
    EXPECT_EQ(ENXIO, caller_.Send(VersionQuery().Build()));
    unit_.WriteReset("1", 1);
    unit_.Advance(milliseconds(1199));
    EXPECT_EQ(ENXIO, caller_.Send(VersionQuery().Build()));
    unit_.Advance(milliseconds(1));
    EXPECT_EQ(0, caller_.Send(VersionQuery().Build()));
}

TEST_F(SimChip, ForgetsItsReplyInReset) {
    caller_.Ask(VersionQuery());
    caller_.Reset();
    EXPECT_EQ(0u, caller_.Fetch().Count());
}

}  // namespace
}  // namespace sim
