// SPDX-License-Identifier: Apache-2.0
// What a person or a supervising process reads on standard output.
#include "tests/run/RunTest.h"

namespace run {

namespace {

class OutputTest : public RunTest {};

}  // namespace

TEST_F(OutputTest, StatusModeWritesEachNumberOnceThenDoneAndNothingElse) {
    Run("-s image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(Numbers(1, 80) + Strings({"85", "90", "95", "99", "100", "DONE"}), Output());
    EXPECT_EQ("", Result().err);
    EXPECT_EQ(Strings(), Log());
}

TEST_F(OutputTest, EachNumberIsFlushedByItself) {
    Run("-s image.bin");
    // The last flush carries two lines.
    EXPECT_EQ(85, Count(CallKind::Output));
}

TEST_F(OutputTest, PhasesThatNoPollMeetsAreNotShown) {
    chip.burn = {std::chrono::milliseconds(0), std::chrono::milliseconds(400),
                 std::chrono::milliseconds(0)};
    Run("-s image.bin");
    EXPECT_EQ(Numbers(1, 80) + Strings({"90", "99", "100", "DONE"}), Output());
}

TEST_F(OutputTest, SmallFileSkipsNumbers) {
    Unit().files.Put("image.bin",
                     {virt::FileContent::WithLabelOnly("2.0.0xx"),
                      virt::FileContent::Of(virt::Bytes(5000, 7)), virt::FileContent{}});
    Run("-s image.bin");
    Strings output = Output();
    ASSERT_LT(7U, output.size());
    output.resize(7);
    // 2034, 4069 and 5000 bytes of 5000.
    EXPECT_EQ(Strings({"32", "65", "80", "85", "90", "95", "99"}), output);
}

TEST_F(OutputTest, OneSegmentIsEightyPerCent) {
    Unit().files.Put("image.bin",
                     {virt::FileContent::WithLabelOnly("2.0.0xx"),
                      virt::FileContent::Of(virt::Bytes(100, 7)), virt::FileContent{}});
    Run("-s image.bin");
    EXPECT_EQ("80", Output().front());
}

TEST_F(OutputTest, InstalledVersionIsShownWithoutTheBlanksBeforeIt) {
    chip.installed = "  1.0.0";
    Run("-i");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ(Strings({"bbpflash MSG: HD tuner firmware updater",
                       "bbpflash MSG: Installed firmware version is \"1.0.0\"", ""}),
              Output());
}

TEST_F(OutputTest, PersonIsToldTheStages) {
    Run("image.bin");
    EXPECT_EQ(
        Strings({"bbpflash MSG: HD tuner firmware updater",
                 "bbpflash MSG: Sending \"image.bin\" to BBP",
                 "bbpflash MSG: BBP is erasing old flash contents (do not interrupt!)",
                 "bbpflash MSG: BBP is programming new flash contents (do not interrupt!)",
                 "bbpflash MSG: BBP is verifying new flash contents (do not interrupt!)",
                 "bbpflash MSG: BBP programming completed, resetting for version verification",
                 "bbpflash MSG: Installed version matches BIN file label"}),
        Output());
}

TEST_F(OutputTest, EveryStepOfAnUpdateIsShownWithSixV) {
    Run("-vvvvvv image.bin");
    EXPECT_EQ("exit 0", Ending());
    const Strings output = Output();
    const auto first = std::find(output.begin(), output.end(),
                                 "bbpflash INF: BIN file firmware version is \"2.0.0\" [5] "
                                 "@bbpflash");
    ASSERT_NE(output.end(), first);
    const Strings erasing = {"bbpflash INF: erasing old flash contents @HdChip"};
    const Strings programming = {"bbpflash INF: programming new flash contents @HdChip"};
    const Strings verifying = {"bbpflash INF: verifying new flash contents @HdChip"};
    const std::string told = "bbpflash MSG: BBP is ";
    const std::string warned = " (do not interrupt!) @HdChip";
    EXPECT_EQ(
        Strings({"bbpflash INF: filesize: 1048576 @HdChip",
                 "bbpflash INF: burning \"image.bin\" @HdChip",
                 "bbpflash MSG: Sending \"image.bin\" to BBP @HdChip",
                 "bbpflash INF: Completed file transmission, waiting for chip to program itself "
                 "@HdChip"}) +
            erasing + Strings({told + "erasing old flash contents" + warned}) + programming +
            Strings({told + "programming new flash contents" + warned}) + programming + verifying +
            Strings({told + "verifying new flash contents" + warned}) + verifying +
            Strings({"bbpflash MSG: BBP programming completed, resetting for version verification "
                     "@HdChip"}) +
            ResetAndEqualVersions(),
        Strings(first + 1, output.end()));
}

TEST_F(OutputTest, StatusModeWithSixVKeepsTheNumbersOnLinesOfTheirOwn) {
    Run("-s -vvvvvv image.bin");
    Strings numbers;
    for (const std::string& line : Output()) {
        if (line.find_first_not_of("0123456789") == std::string::npos) {
            numbers.push_back(line);
        }
    }
    EXPECT_EQ(Numbers(1, 80) + Strings({"85", "90", "95", "99", "100"}), numbers);
    EXPECT_EQ("DONE", Output().back());
}

TEST_F(OutputTest, SourcePositionIsTheLineOfTheCall) {
    Unit().has_reset_device = false;
    Run("-s image.bin");
    // The system log's code carries the same line.
    for (const virt::Call& call : Unit().Log().Calls()) {
        if (call.kind == CallKind::Log) {
            const std::string text(Unit().Log().Data(call));
            const std::string position = text.substr(text.rfind(':') + 1);
            EXPECT_EQ(std::to_string(call.argument - 11000), position) << text;
        }
    }
}

TEST_F(OutputTest, EverythingAfterAnErrorIsShownInFull) {
    // The forced pass goes on after the failed version.
    faults = {{sim::Event::Version, 1, sim::Action::Nak}};
    Run("-f image.bin");
    EXPECT_EQ("exit 0", Ending());
    EXPECT_EQ("bbpflash MSG: Installed version matches BIN file label @bbpflash", Output().back());
    EXPECT_EQ("bbpflash MSG: HD tuner firmware updater", Output().front());
}

}  // namespace run
