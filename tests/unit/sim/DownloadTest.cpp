// SPDX-License-Identifier: Apache-2.0
// What the chip takes for a download, and what its flash holds after it or after an interruption.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/unit/sim/ChipFixture.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

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

TEST_F(SimChip, TakesNoLaterSegmentThatIsOneByteShort) {
    caller_.Ask(Unprotect());
    const std::vector<Bytes> segments = Download(Bytes(SMALL, 1), 1);
    EXPECT_EQ(RECEIVED, caller_.AskRaw(segments[0]).Status());
    const Message short_by_one =
        Message(OPCODE_FLASH, Bytes(SEGMENT_PAYLOAD, 1)).Count(2).Segment(1, 3).Length(2047);
    EXPECT_EQ(OVERFLOW_BIT, caller_.AskRaw(short_by_one.Build()).Status());
}

TEST_F(SimChip, TakesNoFirstSegmentOfADownloadOfNone) {
    caller_.Ask(Unprotect());
    const Message none =
        Message(OPCODE_FLASH, Bytes(SEGMENT_PAYLOAD, FUNCTION_PROGRAM)).Segment(0, 0);
    EXPECT_EQ(0u, caller_.Ask(none).Status() & RECEIVED);
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
        unit.Chip().Write(WrittenMessage(segments[i].data(), segments[i].size()), treatment);
    }
    unit.Advance(seconds(60));
    EXPECT_EQ(STATUS_VERIFICATION_FAILED, unit.Chip().Memory().Status());
    EXPECT_EQ(MakeSampleImage("1", SMALL), unit.Chip().Flash());
}

TEST_F(SimChip, FindsAnEmptyImageBad) {
    caller_.Ask(Unprotect());
    caller_.Ask(Message(OPCODE_FLASH, {FUNCTION_PROGRAM}));
    EXPECT_EQ(STATUS_VERIFICATION_FAILED, unit_.Chip().Memory().Status());
}

TEST_F(SimChip, RefusesAFirstSegmentThatIsNotFull) {
    caller_.Ask(Unprotect());
    const Message part(OPCODE_FLASH, {FUNCTION_PROGRAM, 1, 2, 3});
    EXPECT_EQ(0u, caller_.Ask(Message(part).Segment(0, 2)).Status());
    EXPECT_EQ(RECEIVED, caller_.Ask(Message(part).Segment(0, 1)).Status()) << "it is the last, too";
}

TEST_F(SimChip, BurnsInNoTimeIfToldTo) {
    ChipConfig config = Running("1");
    config.burn = BurnsAtOnce();
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
    EXPECT_EQ(0u, unit_.Chip().Memory().FlashChanges());
    FlashAfterResetAt(seconds(2));
    EXPECT_EQ(1u, unit_.Chip().Memory().FlashChanges());
    FlashAfterResetAt(seconds(8));
    EXPECT_EQ(2u, unit_.Chip().Memory().FlashChanges());
    FlashAfterResetAt(seconds(13));
    EXPECT_EQ(3u, unit_.Chip().Memory().FlashChanges());
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
    EXPECT_EQ(ENXIO, caller_.Send(VersionQuery().Build()));
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

TEST(SimChipEmpty, RunsItsLoader) {
    HeadUnit unit(Holding({}));
    Caller caller(unit);
    EXPECT_EQ(LOADER_VERSION, caller.Version());
    EXPECT_NE(nullptr, unit.GetReport().flash);
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
