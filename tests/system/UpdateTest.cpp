// SPDX-License-Identifier: Apache-2.0
// The built updater, as it is, in the simulated head unit: what it prints, how it ends, and what
// the chip holds afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "tests/system/Process.h"
#include "tests/system/UpdateRuns.h"

namespace system_test {
namespace {

Runs* const runs = static_cast<Runs*>(::testing::AddGlobalTestEnvironment(new Runs));

// The output with each line number as "N".
std::string WithoutLineNumbers(const std::string& out) {
    return std::regex_replace(out, std::regex("(@[A-Za-z0-9_]+\\.cpp):[0-9]+\n"), "$1:N\n");
}

std::string Lines(const Words& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

// What is said of one programming pass whose every phase was met by a poll.
Words PassLines() {
    return {"bbpflash MSG: Sending \"" + runs->Image() + "\" to BBP",
            "bbpflash MSG: BBP is erasing old flash contents (do not interrupt!)",
            "bbpflash MSG: BBP is programming new flash contents (do not interrupt!)",
            "bbpflash MSG: BBP is verifying new flash contents (do not interrupt!)",
            "bbpflash MSG: BBP programming completed, resetting for version verification"};
}

// The value of a line of the head unit's report.
std::string Reported(const Outcome& outcome, const std::string& name) {
    std::istringstream lines(outcome.err);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.compare(0, name.size() + 1, name + " ") == 0) {
            return line.substr(line.find_first_not_of(' ', name.size()));
        }
    }
    return "no line \"" + name + "\" in: " + outcome.err;
}

const Words GREETING = {"bbpflash MSG: HD tuner firmware updater"};
const Words MATCHES = {"bbpflash MSG: Installed version matches BIN file label"};

TEST(SystemUpdate, TellsAPersonTheStages) {
    const Outcome& outcome = runs->Of("default");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(Lines(GREETING + PassLines() + MATCHES), outcome.out);
    EXPECT_TRUE(runs->FlashIsImage("default"));
    EXPECT_EQ("2", Reported(outcome, "resets"));
    EXPECT_EQ("516", Reported(outcome, "segments"));
    EXPECT_EQ("1", Reported(outcome, "burns"));
    EXPECT_EQ("1048576 bytes", Reported(outcome, "image"));
    EXPECT_EQ("2.0.0", Reported(outcome, "version"));
}

TEST(SystemUpdate, WritesEachPercentageOnceInStatusMode) {
    const Outcome& outcome = runs->Of("status");
    Words lines;
    for (int percentage = 1; percentage <= 80; ++percentage) {
        lines.push_back(std::to_string(percentage));
    }
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(Lines(lines + Words{"85", "90", "95", "99", "100", "DONE"}), outcome.out);
    EXPECT_TRUE(runs->FlashIsImage("status"));
}

TEST(SystemUpdate, TellsTheInstalledVersionAndTouchesNothing) {
    const Outcome& outcome = runs->Of("info");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(Lines(GREETING + Words{"bbpflash MSG: Installed firmware version is \"1.4.2\"", ""}),
              outcome.out);
    EXPECT_EQ("1", Reported(outcome, "messages"));
    EXPECT_FALSE(runs->HasFlash("info"));
}

// What the polls of a burn tell: each what it found; how many there are is a matter of time.
std::regex ToldByPolls() {
    std::string phases;
    for (const char* const phase : {"erasing old", "programming new", "verifying new"}) {
        const std::string found =
            std::string("bbpflash INF: ") + phase + " flash contents @HdChip\\.cpp:N\n";
        const std::string told = std::string("bbpflash MSG: BBP is ") + phase +
                                 " flash contents \\(do not interrupt!\\) @HdChip\\.cpp:N\n";
        phases += found + told + "(" + found + ")*";
    }
    return std::regex(phases);
}

TEST(SystemUpdate, ShowsEverythingWithSixV) {
    const Outcome& outcome = runs->Of("verbose");
    EXPECT_EQ(0, outcome.status);
    const Words reset = {"bbpflash INF: Doing hardware reset of HD module @bbpflash.cpp:N",
                         "bbpflash INF: Waiting for firmware reset to complete @bbpflash.cpp:N",
                         "bbpflash INF: Hardware reset of HD module complete @bbpflash.cpp:N"};
    const Words checking = {"bbpflash INF: Checking HD update versions @bbpflash.cpp:N",
                            "bbpflash INF: BIN file firmware version is \"2.0.0\" [5] "
                            "@bbpflash.cpp:N"};
    const Words start =
        Words{"bbpflash INF: == options start ===========",
              " (l = )",
              " (t = )",
              " (v = 6)",
              "bbpflash INF: == options end =============",
              "bbpflash INF: additional option (i = false) @bbpflash.cpp:N",
              "bbpflash INF: additional option (f = false) @bbpflash.cpp:N",
              "bbpflash MSG: HD tuner firmware updater @bbpflash.cpp:N",
              "bbpflash INF: Initializing update system and i2c bus @bbpflash.cpp:N",
              "bbpflash INF: Opened /dev/i2c1 (3) @I2cBus.cpp:N",
              "bbpflash INF: Set speed on /dev/i2c1 (3) to 400000 @I2cBus.cpp:N",
              "bbpflash INF: Cayman chip ready @HdChip.cpp:N",
              "bbpflash INF: Update system initialization complete @bbpflash.cpp:N"} +
        reset + Words{"bbpflash INF: Installed firmware version is \"1.0.0\" [5] @bbpflash.cpp:N"} +
        checking +
        Words{"bbpflash INF: filesize: 1048576 @HdChip.cpp:N",
              "bbpflash INF: burning \"" + runs->Image() + "\" @HdChip.cpp:N",
              "bbpflash MSG: Sending \"" + runs->Image() + "\" to BBP @HdChip.cpp:N",
              "bbpflash INF: Completed file transmission, waiting for chip to program itself "
              "@HdChip.cpp:N"};
    const Words end =
        Words{
            "bbpflash MSG: BBP programming completed, resetting for version verification "
            "@HdChip.cpp:N"} +
        reset + Words{"bbpflash INF: Installed firmware version is \"2.0.0\" [5] @bbpflash.cpp:N"} +
        checking + Words{"bbpflash MSG: Installed version matches BIN file label @bbpflash.cpp:N"};
    const std::string out = WithoutLineNumbers(outcome.out);
    ASSERT_GT(out.size(), Lines(start + end).size());
    EXPECT_EQ(Lines(start), out.substr(0, Lines(start).size()));
    EXPECT_EQ(Lines(end), out.substr(out.size() - Lines(end).size()));

    const std::string polls =
        out.substr(Lines(start).size(), out.size() - Lines(start).size() - Lines(end).size());
    EXPECT_TRUE(std::regex_match(polls, ToldByPolls())) << polls;
}

TEST(SystemUpdate, ProgramsWhatIsInstalledAlreadyWhenForced) {
    const Outcome& outcome = runs->Of("force");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(Lines(GREETING + MATCHES + PassLines() + MATCHES), outcome.out);
    EXPECT_EQ("1", Reported(outcome, "burns"));
    EXPECT_TRUE(runs->FlashIsImage("force"));
}

TEST(SystemUpdate, FindsNothingToDoWhenUpToDate) {
    const Outcome& outcome = runs->Of("uptodate");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(Lines(GREETING + MATCHES), outcome.out);
    EXPECT_EQ("0", Reported(outcome, "segments"));
}

TEST(SystemUpdate, IsDoneAtOnceInStatusModeWhenUpToDate) {
    const Outcome& outcome = runs->Of("uptodate-status");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("100\nDONE\n", outcome.out);
}

TEST(SystemUpdate, GivesUpAfterThreePassesWhenTheVersionNeverMatches) {
    const Outcome& outcome = runs->Of("never");
    const Words pass = {"bbpflash MSG: Sending \"" + runs->Image() + "\" to BBP",
                        "bbpflash MSG: BBP programming completed, resetting for version "
                        "verification"};
    const Words end = {
        "bbpflash CRITICAL: maximum number of programming tries exceeded "
        "@bbpflash.cpp:N",
        "ERROR"};
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(Lines(GREETING + pass + pass + pass + end), WithoutLineNumbers(outcome.out));
    EXPECT_EQ("3", Reported(outcome, "burns"));
    EXPECT_EQ("4", Reported(outcome, "resets"));
    EXPECT_TRUE(runs->FlashIsImage("never"));
}

const Words FAILED = {"bbpflash CRITICAL: Programming terminated @bbpflash.cpp:N", "ERROR"};

TEST(SystemUpdate, FailsOnAMissingFileBeforeItTouchesTheFlash) {
    const Outcome& outcome = runs->Of("missing");
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(
        Lines(GREETING +
              Words{"bbpflash ERROR: opening bin file " + runs->Missing() + " @bbpflash.cpp:N",
                    "bbpflash ERROR: Unable to get bin file version @bbpflash.cpp:N"} +
              FAILED),
        WithoutLineNumbers(outcome.out));
    EXPECT_EQ("1", Reported(outcome, "messages"));
    EXPECT_FALSE(runs->HasFlash("missing"));
}

TEST(SystemUpdate, FailsOnAMissingFileWhenForcedToo) {
    const Outcome& outcome = runs->Of("missing-force");
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(
        Lines(GREETING +
              Words{"bbpflash ERROR: opening bin file " + runs->Missing() + " @bbpflash.cpp:N",
                    "bbpflash ERROR: Unable to get bin file version @bbpflash.cpp:N",
                    "bbpflash ERROR: opening binary file " + runs->Missing() + " @HdChip.cpp:N",
                    "bbpflash ERROR: Unable to program file @bbpflash.cpp:N"} +
              FAILED),
        WithoutLineNumbers(outcome.out));
    EXPECT_EQ("1", Reported(outcome, "messages"));
}

TEST(SystemUpdate, FailsOnAnImageThatEndsBeforeItsLabel) {
    const Outcome& outcome = runs->Of("short");
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(Lines(Words{"bbpflash ERROR: reading bin file label with result \"Success\" (0) "
                          "@bbpflash.cpp:N",
                          "bbpflash ERROR: Unable to get bin file version @bbpflash.cpp:N"} +
                    FAILED),
              WithoutLineNumbers(outcome.out));
    EXPECT_FALSE(runs->HasFlash("short"));
}

TEST(SystemUpdate, GivesAHintWithoutArgumentsAndTouchesNothing) {
    const Outcome& outcome = runs->Of("no-argument");
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(
        "bbpflash ERROR: Please try \"use bbpflash\" to get usage details\n @bbpflash.cpp:N\n",
        WithoutLineNumbers(outcome.out));
    EXPECT_EQ("0", Reported(outcome, "resets"));
    EXPECT_EQ("0", Reported(outcome, "messages"));
}

TEST(SystemUpdate, FailsWithoutDevices) {
    if (!runs->OutsideIsSafe()) {
        GTEST_SKIP() << "this machine has a /dev/i2c1 of its own";
    }
    const Outcome& outcome = runs->Of("outside");
    const std::string name = ProgramFolder() + "/bbpflash";
    EXPECT_EQ(1, outcome.status);
    const std::string out = WithoutLineNumbers(outcome.out);
    EXPECT_EQ(name + " MSG: HD tuner firmware updater\n", out.substr(0, out.find('\n') + 1));
    EXPECT_NE(std::string::npos, out.find(name + " ERROR: Opening special device /dev/i2c1"));
    EXPECT_EQ("ERROR\n", out.substr(out.size() - 6));
}

TEST(SystemUpdate, NeedsNoPrivileges) {
    const Outcome& outcome = runs->Of("nobody");
    EXPECT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ("", outcome.err);
    const std::string last = Lines(MATCHES);
    ASSERT_GE(outcome.out.size(), last.size());
    EXPECT_EQ(last, outcome.out.substr(outcome.out.size() - last.size()));
}

}  // namespace
}  // namespace system_test
