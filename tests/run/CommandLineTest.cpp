// SPDX-License-Identifier: Apache-2.0
// What the words of the command line do, in every order.
#include "tests/run/RunTest.h"

namespace run {

namespace {

class CommandLineTest : public RunTest {
  protected:
    // What the run did, by what it left: was the image programmed, was it quiet.
    bool Programmed() { return Unit().Unit().GetReport().burns > 0; }
    bool Quiet() const { return Result().out.find("MSG: ") == std::string::npos; }
};

// A head unit on which the image is installed: only -f programs.
class UpToDateTest : public CommandLineTest {
  protected:
    UpToDateTest() { chip.flash = *SampleImage().bytes; }
};

}  // namespace

TEST_F(CommandLineTest, NoArgumentGivesTheHintWithStatusOneAndNoProtocolLine) {
    Run("");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ(
        Strings({"bbpflash ERROR: Please try \"use bbpflash\" to get usage details", " @bbpflash"}),
        Output());
    EXPECT_EQ(Strings(), Trace());
}

TEST_F(CommandLineTest, InfoOnlyNeedsNoFile) {
    Run("-i");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(Strings({"bbpflash MSG: HD tuner firmware updater",
                       "bbpflash MSG: Installed firmware version is \"1.0.0\"", ""}),
              Output());
    EXPECT_EQ(0, Count(CallKind::Fopen));
}

TEST_F(CommandLineTest, InfoOnlyInStatusModeShowsTheVersionAndTheProtocol) {
    Run("-i -s");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(Strings({"bbpflash MSG: Installed firmware version is \"1.0.0\"", "", "100", "DONE"}),
              Output());
}

TEST_F(CommandLineTest, ForceWithInfoOnlyProgramsOnceAndThenShowsTheVersion) {
    Run("-f -i image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(1U, Unit().Unit().GetReport().burns);
    EXPECT_TRUE(HoldsImage());
    EXPECT_EQ("bbpflash MSG: Installed firmware version is \"2.0.0\"", Output().end()[-2]);
    // The label is never read: the one opening is the download's.
    EXPECT_EQ(1, Count(CallKind::Fopen));
}

TEST_F(UpToDateTest, NothingIsProgrammedWithoutForce) {
    Run("image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_FALSE(Programmed());
    EXPECT_EQ(Strings({"bbpflash MSG: HD tuner firmware updater",
                       "bbpflash MSG: Installed version matches BIN file label"}),
              Output());
}

TEST_F(UpToDateTest, StatusModeIsSilentButForTheProtocol) {
    Run("-s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(Strings({"100", "DONE"}), Output());
}

TEST_F(UpToDateTest, ForceProgramsExactlyOnce) {
    Run("-f image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(1U, Unit().Unit().GetReport().burns);
}

TEST_F(UpToDateTest, OptionsMayBeClusteredInAnyOrder) {
    for (const char* options :
         {"-sf", "-fs", "-s -f", "-f -s", "-vsf", "-svf", "-fvvs", "-v -fs"}) {
        const unsigned burns = Unit().Unit().GetReport().burns;
        Run(std::string(options) + " image.bin");
        EXPECT_EQ("exit 0", Ending()) << options;
        EXPECT_EQ(burns + 1, Unit().Unit().GetReport().burns) << options;
        EXPECT_TRUE(Quiet()) << options;
        EXPECT_EQ("DONE", Output().back()) << options;
    }
}

TEST_F(UpToDateTest, UtilityOptionWithAnArgumentEndsTheDriversOptions) {
    for (const char* options : {"-l name -f", "-t name -f", "-v -l name -f", "-l name -s -f"}) {
        Run(std::string(options) + " image.bin");
        EXPECT_EQ("exit 0", Ending()) << options;
        EXPECT_FALSE(Programmed()) << options;
        EXPECT_FALSE(Quiet()) << options;
    }
}

TEST_F(UpToDateTest, DriverOptionsBeforeAnArgumentOfAnotherCount) {
    Run("-f -s -l name image.bin");
    EXPECT_TRUE(Programmed());
    EXPECT_TRUE(Quiet());
}

TEST_F(UpToDateTest, ArgumentInTheSameWordEndsNothing) {
    // The driver's scan takes the letters of the word one by one, and f is among them.
    Run("-lfile -s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_TRUE(Programmed());
    EXPECT_EQ("bbpflash MSG: Installed firmware version is \"2.0.0\"",
              Output()[Output().size() - 4]);
}

TEST_F(UpToDateTest, TwoDashesEndTheOptions) {
    Run("-s -- -f image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_FALSE(Programmed());
    EXPECT_EQ(Strings({"100", "DONE"}), Output());
}

TEST_F(UpToDateTest, FirstWordThatIsNoOptionEndsTheOptions) {
    Run("other -f -s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_FALSE(Programmed());
    EXPECT_FALSE(Quiet());
}

TEST_F(UpToDateTest, UnknownOptionsAreSkippedWithoutAWord) {
    Run("-x -s -9z image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(Strings({"100", "DONE"}), Output());
}

TEST_F(CommandLineTest, LastArgumentIsTheFileEvenWhenItIsAnOption) {
    Run("image.bin -s");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ(Strings({"bbpflash MSG: HD tuner firmware updater",
                       "bbpflash ERROR: opening bin file -s @bbpflash",
                       "bbpflash ERROR: Unable to get bin file version @bbpflash",
                       "bbpflash CRITICAL: Programming terminated @bbpflash", "ERROR"}),
              Output());
}

TEST_F(CommandLineTest, OptionWithoutItsArgumentIsSkippedAndIsTheFile) {
    Run("-s -l");
    EXPECT_EQ("exit 1", Ending());
    EXPECT_EQ("bbpflash ERROR: opening bin file -l @bbpflash", Output().front());
}

TEST_F(UpToDateTest, FiveVAreNotEnoughForInformation) {
    Run("-vvvvv image.bin");
    EXPECT_EQ(Strings({"bbpflash MSG: HD tuner firmware updater",
                       "bbpflash MSG: Installed version matches BIN file label"}),
              Output());
}

TEST_F(UpToDateTest, SixVShowTheSettingsAndEveryStepWithItsPlace) {
    Run("-vv -l a.log -vvv -t b.trc -v image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(Strings({"bbpflash INF: == options start ===========", " (l = a.log)", " (t = b.trc)",
                       " (v = 6)", "bbpflash INF: == options end =============",
                       "bbpflash INF: additional option (i = false) @bbpflash",
                       "bbpflash INF: additional option (f = false) @bbpflash",
                       "bbpflash MSG: HD tuner firmware updater @bbpflash",
                       "bbpflash INF: Initializing update system and i2c bus @bbpflash",
                       "bbpflash INF: Opened /dev/i2c1 (3) @I2cBus",
                       "bbpflash INF: Set speed on /dev/i2c1 (3) to 400000 @I2cBus",
                       "bbpflash INF: Cayman chip ready @HdChip",
                       "bbpflash INF: Update system initialization complete @bbpflash"}) +
                  ResetAndEqualVersions(),
              Output());
}

TEST_F(UpToDateTest, FlagsAreReportedAtHighVerbosity) {
    Run("-vvvvvvif image.bin");
    EXPECT_EQ("bbpflash INF: additional option (i = true) @bbpflash", Output()[5]);
    EXPECT_EQ("bbpflash INF: additional option (f = true) @bbpflash", Output()[6]);
}

TEST_F(CommandLineTest, NameIsShownAsItWasTyped) {
    const virt::RunResult result = Unit().Run({"../bin/bbpflash", "-i"});
    EXPECT_EQ(
        "../bin/bbpflash MSG: HD tuner firmware updater\n"
        "../bin/bbpflash MSG: Installed firmware version is \"1.0.0\"\n\n",
        result.out);
}

TEST_F(CommandLineTest, EveryLineGoesToTheSystemLogWithItsLevel) {
    Run("image.bin -s");
    std::vector<long> severities;
    for (const virt::Call& call : Unit().Log().Calls()) {
        if (call.kind == CallKind::Log) {
            severities.push_back(static_cast<long>(call.detail));
            EXPECT_GT(call.argument, 11000);
        }
    }
    EXPECT_EQ((std::vector<long>{0, 2, 2, 1}), severities);
    // The protocol's own line is not a message.
    EXPECT_EQ(Log() + Strings({"ERROR"}), Output());
}

}  // namespace run
