// SPDX-License-Identifier: Apache-2.0
// The chip by itself: what it takes, what it answers, what its flash holds afterwards.
#include <gtest/gtest.h>

#include <algorithm>

#include "sim/ChipModel.h"
#include "sim/HeadUnit.h"
#include "sim/SampleImage.h"
#include "tests/unit/sim_Requests.h"

namespace sim {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t SMALL = 5000;  // bytes: three segments

ChipConfig Running(const std::string& version) {
    ChipConfig config;
    config.installed = version;
    return config;
}

ChipConfig Holding(Bytes flash) {
    ChipConfig config;
    config.flash = std::move(flash);
    return config;
}

class SimChip : public ::testing::Test {
  protected:
    HeadUnit unit_{Running("1.0.0")};
    Caller caller_{unit_};

    const Bytes& Flash() { return unit_.Chip().Flash(); }
};

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
    EXPECT_EQ(image.size(), unit_.Chip().ImageSize());
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

// Downloads

TEST_F(SimChip, NeedsItsProtectionLiftedForADownload) {
    const Bytes first = Download(Bytes(SMALL, 1), 0).front();
    EXPECT_EQ(0u, caller_.AskRaw(first).Status());
    caller_.Ask(Unprotect());
    EXPECT_EQ(RECEIVED, caller_.AskRaw(first).Status() & RECEIVED);
}

TEST_F(SimChip, IsProtectedAgainAfterAResetAndAfterADownload) {
    caller_.Ask(Unprotect());
    caller_.Reset();
    EXPECT_EQ(0u, caller_.AskRaw(Download(Bytes(SMALL, 1), 0).front()).Status());

    caller_.SendImage(Bytes(SMALL, 1));
    unit_.Advance(seconds(15));
    EXPECT_EQ(0u, caller_.AskRaw(Download(Bytes(SMALL, 1), 4).front()).Status() & RECEIVED);
}

TEST_F(SimChip, TakesAFirstSegmentThatCountsItselfOneByteShort) {
    for (const std::size_t size : {1u, 2u, 100u, 2032u, 2033u}) {
        HeadUnit unit(Running("1"));
        Caller caller(unit);
        const Bytes image = MakeSampleImage("2", size);
        const Bytes segment = Download(image, 1).front();
        ASSERT_EQ(segment.size() - 1, GetField(&segment[LENGTH_AT]));
        EXPECT_EQ(RECEIVED, caller.SendImage(image).Status());
        unit.Advance(seconds(15));
        EXPECT_EQ(STATUS_COMPLETE, caller.PollStatus());
        EXPECT_EQ(image, unit.Chip().Flash()) << size;
    }
}

TEST_F(SimChip, TakesAFirstSegmentOfRightLengthToo) {
    caller_.Ask(Unprotect());
    EXPECT_EQ(RECEIVED, caller_.Ask(Message(OPCODE_FLASH, {FUNCTION_PROGRAM, 7, 8})).Status());
    unit_.Advance(seconds(15));
    EXPECT_EQ((Bytes{7, 8}), Flash());
}

TEST_F(SimChip, DoesNotTakeOtherMessagesThatAreOneByteShort) {
    EXPECT_EQ(
        OVERFLOW_BIT,
        caller_.AskRaw(Message(OPCODE_FLASH, {FUNCTION_UNPROTECT, 0}).Length(14).Build()).Status());
}

TEST_F(SimChip, WaitsForASegmentThatNeverComes) {
    for (const std::size_t size : {2034u, 4069u}) {
        HeadUnit unit(Running("1"));
        Caller caller(unit);
        EXPECT_EQ(RECEIVED, caller.SendImage(Bytes(size, 1)).Status());
        unit.Advance(seconds(60));
        EXPECT_EQ(0u, unit.Chip().Burns());
        EXPECT_EQ(STATUS_IDLE, caller.PollStatus());
        caller.Reset();
        EXPECT_EQ("1", caller.Version());
    }
}

TEST_F(SimChip, RefusesSegmentsOutOfOrder) {
    const std::vector<Bytes> segments = Download(Bytes(SMALL, 1), 1);
    caller_.Ask(Unprotect());
    EXPECT_EQ(0u, caller_.AskRaw(segments[1]).Status() & RECEIVED) << "before the first";
    EXPECT_EQ(RECEIVED, caller_.AskRaw(segments[0]).Status() & RECEIVED);
    EXPECT_EQ(0u, caller_.AskRaw(segments[2]).Status() & RECEIVED) << "one is missing";
    EXPECT_EQ(RECEIVED, caller_.AskRaw(segments[1]).Status() & RECEIVED);
    EXPECT_EQ(0u, caller_.AskRaw(segments[1]).Status() & RECEIVED) << "once more";
    EXPECT_EQ(RECEIVED, caller_.AskRaw(segments[2]).Status() & RECEIVED);
    EXPECT_EQ(1u, unit_.Chip().Burns());
}

TEST_F(SimChip, RefusesSegmentsThatAreNotFullOrOfAnotherTotal) {
    caller_.Ask(Unprotect());
    caller_.AskRaw(Download(Bytes(SMALL, 1), 1)[0]);
    const Message short_one = Message(OPCODE_FLASH, Bytes(100, 1)).Segment(1, 3);
    EXPECT_EQ(0u, caller_.Ask(short_one).Status() & RECEIVED);
    const Message other_total = Message(OPCODE_FLASH, Bytes(SEGMENT_PAYLOAD, 1)).Segment(1, 4);
    EXPECT_EQ(0u, caller_.Ask(other_total).Status() & RECEIVED);
}

TEST_F(SimChip, GivesADownloadUpForAnyOtherMessage) {
    const std::vector<Bytes> segments = Download(Bytes(SMALL, 1), 1);
    caller_.Ask(Unprotect());
    caller_.AskRaw(segments[0]);
    caller_.Ask(VersionQuery());
    EXPECT_EQ(0u, caller_.AskRaw(segments[1]).Status() & RECEIVED);
}

TEST_F(SimChip, TakesADownloadFromItsBeginningAgain) {
    const Bytes image = MakeSampleImage("2", SMALL);
    caller_.Ask(Unprotect());
    caller_.AskRaw(Download(image, 1)[0]);
    EXPECT_EQ(RECEIVED, caller_.SendImage(image).Status());
    unit_.Advance(seconds(15));
    EXPECT_EQ(image, Flash());
}

TEST_F(SimChip, TakesNoDownloadWhileItBurns) {
    caller_.SendImage(Bytes(SMALL, 1));
    EXPECT_EQ(0u, caller_.Ask(Unprotect()).Status());
    EXPECT_EQ(STATUS_ERASING, caller_.PollStatus());
}

TEST_F(SimChip, FindsAnImageWithAForgottenSegmentBadAndErasesNothing) {
    HeadUnit unit(Holding(MakeSampleImage("1", SMALL)));
    Caller caller(unit);
    const std::vector<Bytes> segments = Download(Bytes(SMALL, 1), 1);
    caller.Ask(Unprotect());
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const Treatment treatment = i == 1 ? Treatment::Forget : Treatment::Take;
        unit.Chip().Write(segments[i].data(), segments[i].size(), treatment);
    }
    unit.Advance(seconds(60));
    EXPECT_EQ(STATUS_VERIFICATION_FAILED, unit.Chip().Status());
    EXPECT_EQ(MakeSampleImage("1", SMALL), unit.Chip().Flash());
}

TEST_F(SimChip, FindsAnEmptyImageBad) {
    caller_.Ask(Unprotect());
    caller_.Ask(Message(OPCODE_FLASH, {FUNCTION_PROGRAM}));
    EXPECT_EQ(STATUS_VERIFICATION_FAILED, unit_.Chip().Status());
}

TEST_F(SimChip, BurnsInNoTimeIfToldTo) {
    ChipConfig config = Running("1");
    config.burn = {Duration(0), Duration(0), Duration(0)};
    HeadUnit unit(config);
    Caller caller(unit);
    caller.SendImage(Bytes(SMALL, 1));
    EXPECT_EQ(STATUS_COMPLETE, caller.PollStatus());
}

// Interruptions

class SimChipBurning : public ::testing::Test {
  protected:
    const Bytes old_ = MakeSampleImage("1.0");
    const Bytes new_ = MakeSampleImage("2.0");
    HeadUnit unit_{Holding(old_)};
    Caller caller_{unit_};

    // The flash's bytes after a reset at this time of the burn.
    const Bytes& FlashAfterResetAt(Duration time) {
        caller_.SendImage(new_);
        unit_.Advance(time - REPLY_WAIT);  // which the last segment's reply has taken
        caller_.Reset();
        return unit_.Chip().Flash();
    }
};

TEST_F(SimChipBurning, LosesWhatIsErasedAndItsFirmwareWhenResetInErase) {
    const Bytes& flash = FlashAfterResetAt(seconds(2));
    const Bytes half(flash.begin(), flash.begin() + 524288 - 1000);
    EXPECT_EQ(Bytes(half.size(), 0xFF), half);
    EXPECT_EQ(Bytes(old_.begin() + 524288 + 1000, old_.end()),
              Bytes(flash.begin() + 524288 + 1000, flash.end()));
    EXPECT_EQ(LOADER_VERSION, caller_.Version());
}

TEST_F(SimChipBurning, HoldsAPartOfTheImageWithoutItsFirstBlockWhenResetInProgramming) {
    const Bytes& flash = FlashAfterResetAt(seconds(8));
    ASSERT_EQ(new_.size(), flash.size());
    EXPECT_EQ(Bytes(256, 0xFF), Bytes(flash.begin(), flash.begin() + 256));
    EXPECT_EQ(Bytes(new_.begin() + 256, new_.begin() + 520000),
              Bytes(flash.begin() + 256, flash.begin() + 520000));
    EXPECT_EQ(Bytes(500000, 0xFF), Bytes(flash.end() - 500000, flash.end()));
    EXPECT_EQ(LOADER_VERSION, caller_.Version());
}

TEST_F(SimChipBurning, RunsTheNewFirmwareWhenResetWhileItIsReadBack) {
    EXPECT_EQ(new_, FlashAfterResetAt(seconds(13)));
    EXPECT_EQ("2.0", caller_.Version());
}

TEST_F(SimChipBurning, CountsTheChangesOfItsFlash) {
    EXPECT_EQ(0u, unit_.Chip().FlashChanges());
    FlashAfterResetAt(seconds(2));
    EXPECT_EQ(1u, unit_.Chip().FlashChanges());
    FlashAfterResetAt(seconds(8));
    EXPECT_EQ(2u, unit_.Chip().FlashChanges());
    FlashAfterResetAt(seconds(13));
    EXPECT_EQ(3u, unit_.Chip().FlashChanges());
}

TEST_F(SimChipBurning, TakesTheImageOnceMoreAfterAnInterruption) {
    FlashAfterResetAt(seconds(8));
    caller_.SendImage(new_);
    unit_.Advance(seconds(15));
    caller_.Reset();
    EXPECT_EQ("2.0", caller_.Version());
    EXPECT_EQ(new_, unit_.Chip().Flash());
}

TEST_F(SimChipBurning, KeepsTheOldFirmwareWhenResetDuringTheDownload) {
    caller_.Ask(Unprotect());
    caller_.AskRaw(Download(new_, 1)[0]);
    caller_.Reset();
    EXPECT_EQ(old_, unit_.Chip().Flash());
    EXPECT_EQ("1.0", caller_.Version());
    EXPECT_EQ(0u, caller_.AskRaw(Download(new_, 1)[1]).Status() & RECEIVED);
}

TEST_F(SimChipBurning, IsSilentForGoodWithoutPower) {
    unit_.Chip().LosePower();
    caller_.Reset();
    unit_.Advance(seconds(60));
    EXPECT_EQ(ENXIO, caller_.Send(VersionQuery().Build()));
}

TEST_F(SimChipBurning, StartsAgainWhenItRestartsByItself) {
    caller_.Ask(VersionQuery());
    unit_.Chip().Restart();
    EXPECT_EQ(ENXIO, caller_.Send(VersionQuery().Build()));
    unit_.Advance(milliseconds(1200));
    EXPECT_EQ(RECEIVED, caller_.AskRaw(VersionQuery().Count(0).Build()).Status());
}

TEST(SimChipUnknown, IsBlankAfterAnInterruptedFirstErase) {
    HeadUnit unit(Running("1.0"));
    Caller caller(unit);
    caller.SendImage(Bytes(SMALL, 1));
    caller.Reset();
    EXPECT_EQ(LOADER_VERSION, caller.Version());
    EXPECT_EQ(Bytes(SMALL, 0xFF), unit.Chip().Flash());
}

}  // namespace
}  // namespace sim
