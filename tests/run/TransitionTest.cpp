// SPDX-License-Identifier: Apache-2.0
// Each way from one state of the update to the next, and what ends it.
#include <cerrno>

#include "tests/run/RunTest.h"

namespace run {

namespace {

class TransitionTest : public RunTest {
  protected:
    const sim::Report Seen() { return Unit().Unit().GetReport(); }
    bool HasLine(const std::string& line) const {
        const Strings output = Output();
        return std::find(output.begin(), output.end(), line) != output.end();
    }
};

const Strings TERMINATED = {"bbpflash CRITICAL: Programming terminated @bbpflash", "ERROR"};

}  // namespace

TEST_F(TransitionTest, UpdateTakesOnePassAndEndsWhenTheVersionsAreEqual) {
    Run("-s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_TRUE(HoldsImage());
    EXPECT_EQ(2U, Seen().resets);
    EXPECT_EQ(1U, Seen().burns);
}

TEST_F(TransitionTest, SecondRunFindsNothingToDo) {
    Run("-s image.bin");
    Run("-s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(Strings({"100", "DONE"}), Output());
    EXPECT_EQ(1U, Seen().burns);
}

TEST_F(TransitionTest, BusThatCannotBeOpenedFailsBeforeTheReset) {
    Unit().has_bus_device = false;
    Run("-s image.bin");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ(Strings({"open /dev/i2c1"}), Trace());
}

TEST_F(TransitionTest, ChipWithoutMemoryFailsBeforeTheReset) {
    // The options and the message object come first.
    strikes.At(CallKind::NewObject, 2, Error(ENOMEM));
    Run("-s image.bin");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ(Strings({"bbpflash ERROR: Instantiating bus and chip @bbpflash"}) + TERMINATED,
              Output());
    EXPECT_EQ(Strings(), Trace());
}

TEST_F(TransitionTest, ResetThatFailsSendsNothingToTheChip) {
    Unit().has_reset_device = false;
    Run("-s image.bin");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ(Strings({"bbpflash ERROR: Opening /dev/gpio/HD_DAB2Reset @bbpflash"}) + TERMINATED,
              Output());
    EXPECT_EQ(0U, Seen().messages);
}

TEST_F(TransitionTest, UnreadableVersionFails) {
    faults = {{sim::Event::Version, 1, sim::Action::Nak}};
    Run("-s image.bin");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_TRUE(HasLine("bbpflash ERROR: Unable to get installed version @bbpflash"));
    EXPECT_EQ(0, Count(CallKind::Fopen));
}

TEST_F(TransitionTest, UnreadableLabelFails) {
    Unit().files.Put("image.bin", {});
    Run("-s image.bin");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ(Strings({"bbpflash ERROR: opening bin file image.bin @bbpflash",
                       "bbpflash ERROR: Unable to get bin file version @bbpflash"}) +
                  TERMINATED,
              Output());
}

TEST_F(TransitionTest, ForceOverridesAVersionThatCannotBeReadOnce) {
    faults = {{sim::Event::Version, 1, sim::Action::Nak}};
    Run("-s -f image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_TRUE(HoldsImage());
}

TEST_F(TransitionTest, ForceDoesNotOverrideTheCheckAfterItsPass) {
    faults = {{sim::Event::Version, 1, sim::Action::Nak, 0, 0, sim::FOR_EVER}};
    Run("-s -f image.bin");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ(1U, Seen().burns);
    EXPECT_EQ("ERROR", Output().back());
}

TEST_F(TransitionTest, ForceOverridesALabelThatCannotBeRead) {
    Unit().files.Put("image.bin", {virt::FileContent::Of(virt::Bytes(5000, 7)), SampleImage()});
    Run("-s -f image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_TRUE(HoldsImage());
}

TEST_F(TransitionTest, ProgrammingThatFailsEndsTheRun) {
    faults = {{sim::Event::Unprotect, 1, sim::Action::Nak}};
    Run("-s image.bin");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_TRUE(HasLine("bbpflash ERROR: Unable to program file @bbpflash"));
    EXPECT_EQ(1U, Seen().resets);
}

TEST_F(TransitionTest, LabelThatNeverMatchesIsProgrammedThreeTimesAndThenFails) {
    chip.reports = "never";
    Run("-s image.bin");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ(3U, Seen().burns);
    EXPECT_EQ(4U, Seen().resets);
    const Strings pass = Numbers(1, 80) + Strings{"85", "90", "95", "99"};
    const Strings end = {
        "bbpflash CRITICAL: maximum number of programming tries exceeded @bbpflash", "ERROR"};
    EXPECT_EQ(Repeat(pass, 3) + end, Output());
}

TEST_F(TransitionTest, ForceCountsAmongTheThreePasses) {
    chip.reports = "never";
    Run("-s -f image.bin");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ(3U, Seen().burns);
}

TEST_F(TransitionTest, SecondPassThatMatchesSucceeds) {
    // The first pass programs a file that another one replaces before the comparison.
    Unit().files.Put("image.bin", {virt::FileContent::WithLabelOnly("2.0.0xx"),
                                   virt::FileContent::WithLabelOnly("1.5.0xx"), SampleImage()});
    Run("-s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(2U, Seen().burns);
    EXPECT_TRUE(HoldsImage());
}

TEST_F(TransitionTest, LabelOfBlanksEndsAbnormallyWithoutAProtocolLine) {
    Unit().files.Put("image.bin", {virt::FileContent::WithLabelOnly("")});
    Run("-s image.bin");
    EXPECT_EQ("uncaught out_of_range", Ending());
    EXPECT_EQ(Strings(), Output());
}

TEST_F(TransitionTest, EmptyVersionEqualsAnEmptyLabel) {
    chip.installed = "";
    Unit().files.Put("image.bin", {virt::FileContent::WithLabelOnly("XY")});
    Run("-s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(Strings({"100", "DONE"}), Output());
}

TEST_F(TransitionTest, LabelOfOneCharacterIsTheWholeField) {
    Unit().files.Put("image.bin", {virt::FileContent::WithLabelOnly("X")});
    Run("-vvvvvv image.bin");
    EXPECT_TRUE(HasLine("bbpflash INF: BIN file firmware version is \"X" + std::string(36, ' ') +
                        "\" [37] @bbpflash"));
}

TEST_F(TransitionTest, LabelThatDiffersByCaseIsProgrammed) {
    chip.installed = "v2.0.0";
    chip.reports = "V2.0.0";
    Unit().files.Put("image.bin", {virt::FileContent::WithLabelOnly("V2.0.0xx")});
    Run("-s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(1U, Seen().burns);
}

TEST_F(TransitionTest, BusOnDescriptorZeroIsReportedAndUsedAllTheSame) {
    strikes.At(CallKind::Open, 0, Value(0));
    Run("-s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_TRUE(HoldsImage());
    EXPECT_EQ("bbpflash CRITICAL: opening /dev/i2c1 with result \"Success\" (0) @I2cBus",
              Output().front());
    EXPECT_EQ(0, Count(CallKind::SetSpeed));
}

TEST_F(TransitionTest, NoMemoryForTheOptionsOrTheMessagesEndsWithStatus255AndNothingElse) {
    for (int object : {0, 1}) {
        strikes = Strikes();
        strikes.At(CallKind::NewObject, object, Error(ENOMEM));
        Run("-s image.bin");
        EXPECT_EQ("exit 255", Ending());
        EXPECT_EQ(Strings(), Output());
        EXPECT_EQ(Strings(), Trace());
    }
}

TEST_F(TransitionTest, ChipThatNeverCompletesIsPolledWithoutEnd) {
    faults = {{sim::Event::Burn, 1, sim::Action::VerifyFails}};
    Unit().SetTimeLimit(std::chrono::hours(8));
    Unit().Log().Keep(false);
    Run("-s image.bin");
    EXPECT_EQ("endless", Ending());
    // More than any counter of 16 bits counts.
    EXPECT_GT(Seen().polls, 65536U);
}

TEST_F(TransitionTest, LockThatIsNeverGrantedBlocks) {
    faults = {{sim::Event::Lock, 10, sim::Action::NeverGrant}};
    Run("-s image.bin");
    EXPECT_EQ("blocked", Ending());
}

TEST_F(TransitionTest, ReaderThatIsGoneEndsTheRunByASignal) {
    strikes.At(CallKind::Output, 39, Error(EPIPE));
    Run("-s image.bin");
    EXPECT_EQ("SIGPIPE", Ending());
    EXPECT_EQ(Numbers(1, 39), Output());
}

TEST_F(TransitionTest, FullDiskLosesLinesAndNothingElse) {
    strikes.From(CallKind::Output, 10, Error(ENOSPC));
    Run("-s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_TRUE(HoldsImage());
    EXPECT_EQ(Numbers(1, 10), Output());
}

TEST_F(TransitionTest, MemoryOfARunIsGivenBack) {
    Run("-s image.bin");
    EXPECT_EQ(0U, Unit().MemoryBlocks());
}

}  // namespace run
