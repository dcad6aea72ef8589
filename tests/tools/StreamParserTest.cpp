// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <vector>

#include "tools/stream/StreamParser.h"

namespace {

struct Event {
    bbpflash_event event;
    std::string text;
    std::string message;
};

// A reader that has read `output` and then the end of the run.
class Reading {
  public:
    Reading(bbpflash_mode mode, const std::string& output, int exit_status = 0)
        : parser_(mode, [this](const bbpflash_event& event) {
              const std::string message =
                  event.message == nullptr ? "" : std::string(event.message, event.message_size);
              events.push_back({event, std::string(event.text, event.size), message});
          }) {
        parser_.Feed(output.data(), output.size());
        verdict = parser_.Finish(exit_status);
    }

    std::vector<bbpflash_line> Kinds() const {
        std::vector<bbpflash_line> kinds;
        for (const Event& event : events) {
            kinds.push_back(event.event.line);
        }
        return kinds;
    }

    std::vector<bbpflash_phase> Phases() const {
        std::vector<bbpflash_phase> phases;
        for (const Event& event : events) {
            phases.push_back(event.event.phase);
        }
        return phases;
    }

    const bbpflash_event& Last() const { return events.back().event; }
    unsigned Problems() const { return parser_.Problems(); }

    std::vector<Event> events;
    bbpflash_verdict verdict = BBPFLASH_VERDICT_DOUBTFUL;

  private:
    tools::StreamParser parser_;
};

// The percentages of a download and, behind them, `rest`.
std::string Download(const std::string& rest = "") {
    std::string lines;
    for (int percent = 1; percent <= 80; ++percent) {
        lines += std::to_string(percent) + "\n";
    }
    return lines + rest;
}

const char BURN[] = "85\n90\n95\n99\n";
const char END[] = "100\nDONE\n";
const char FAILURE[] =
    "bbpflash ERROR: confirming BIN write @HdChip.cpp:278\n"
    "bbpflash ERROR: Unable to program file @bbpflash.cpp:212\n"
    "bbpflash CRITICAL: Programming terminated @bbpflash.cpp:121\n"
    "ERROR\n";

TEST(StreamOfStatusMode, SucceedsWithWholeUpdate) {
    const Reading reading(BBPFLASH_MODE_STATUS, Download(BURN) + END);
    EXPECT_EQ(BBPFLASH_VERDICT_SUCCESS, reading.verdict);
    EXPECT_EQ(0u, reading.Problems());
    EXPECT_EQ(1, reading.Last().pass);
    EXPECT_EQ(100, reading.Last().percent);
    EXPECT_EQ(BBPFLASH_PHASE_ENDED, reading.Last().phase);
}

TEST(StreamOfStatusMode, SucceedsWhenTheVersionsMatchAtOnce) {
    const Reading reading(BBPFLASH_MODE_STATUS, END);
    EXPECT_EQ(BBPFLASH_VERDICT_SUCCESS, reading.verdict);
    EXPECT_EQ(0, reading.Last().pass);
}

TEST(StreamOfStatusMode, FollowsThePhases) {
    const Reading reading(BBPFLASH_MODE_STATUS, std::string("79\n80\n") + BURN + END);
    const std::vector<bbpflash_phase> expected = {
        BBPFLASH_PHASE_DOWNLOAD, BBPFLASH_PHASE_BURN,  BBPFLASH_PHASE_ERASE, BBPFLASH_PHASE_PROGRAM,
        BBPFLASH_PHASE_VERIFY,   BBPFLASH_PHASE_CHECK, BBPFLASH_PHASE_CHECK, BBPFLASH_PHASE_ENDED};
    EXPECT_EQ(expected, reading.Phases());
}

TEST(StreamOfStatusMode, AcceptsTheBurnsPercentagesInAnyOrder) {
    const Reading reading(BBPFLASH_MODE_STATUS, "80\n95\n85\n90\n90\n95\n99\n100\nDONE\n");
    EXPECT_EQ(BBPFLASH_VERDICT_SUCCESS, reading.verdict);
}

TEST(StreamOfStatusMode, CountsUpToThreePasses) {
    const std::string pass = Download(BURN);
    const Reading three(BBPFLASH_MODE_STATUS, pass + pass + pass + END);
    EXPECT_EQ(BBPFLASH_VERDICT_SUCCESS, three.verdict);
    EXPECT_EQ(3, three.Last().pass);
    const Reading four(BBPFLASH_MODE_STATUS, pass + pass + pass + pass + END);
    EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, four.verdict);
    EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_PASSES}, four.Problems());
}

TEST(StreamOfStatusMode, CountsPassesOnceWhenTheyAreAnnounced) {
    const std::string pass = "bbpflash INF: burning \"a.bin\" @HdChip.cpp:438\n" + Download(BURN) +
                             "bbpflash INF: Checking HD update versions @bbpflash.cpp:188\n";
    const Reading reading(BBPFLASH_MODE_STATUS, pass + pass + END);
    EXPECT_EQ(0u, reading.Problems());
    EXPECT_EQ(2, reading.Last().pass);
}

TEST(StreamOfStatusMode, FindsAPercentageThatFallsWithoutANewPass) {
    for (const char* fall : {"10\n9\n", "10\n10\n", "80\n85\n40\n", "80\n1\n", "80\n95\n80\n"}) {
        const Reading reading(BBPFLASH_MODE_STATUS, fall, 137);
        EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_FALLING}, reading.Problems()) << fall;
        EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, reading.verdict);
    }
}

TEST(StreamOfStatusMode, FindsAPassThatBeginsInsideAnother) {
    const Reading reading(BBPFLASH_MODE_STATUS,
                          "10\nbbpflash INF: burning \"a.bin\" @HdChip.cpp:438\n1\n", 137);
    EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_ORDER}, reading.Problems());
}

TEST(StreamOfStatusMode, FindsNumbersThatAreNoPercentages) {
    for (const char* number : {"0\n", "81\n", "98\n", "101\n", "-5\n", "99999999999999999999\n"}) {
        const Reading reading(BBPFLASH_MODE_STATUS, number, 137);
        EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_NUMBER}, reading.Problems()) << number;
    }
}

TEST(StreamOfStatusMode, FindsStagesOutOfOrder) {
    for (const char* stages :
         {"85\n", "79\n85\n", "99\n", "80\n100\nDONE\n", "100\n1\n", "100\nERROR\n"}) {
        const Reading reading(BBPFLASH_MODE_STATUS, stages, 137);
        EXPECT_NE(0u, reading.Problems() & BBPFLASH_PROBLEM_ORDER) << stages;
    }
}

TEST(StreamOfStatusMode, FindsDoneWithout100) {
    for (const char* output : {"DONE\n", "80\n99\nDONE\n"}) {
        const Reading reading(BBPFLASH_MODE_STATUS, output);
        EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_DONE_WITHOUT_100}, reading.Problems());
        EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, reading.verdict);
    }
}

TEST(StreamOfStatusMode, FindsALineAfterTheLastOne) {
    const Reading reading(BBPFLASH_MODE_STATUS, std::string(END) + "\n");
    EXPECT_NE(0u, reading.Problems() & BBPFLASH_PROBLEM_AFTER_END);
    EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, reading.verdict);
}

TEST(StreamOfStatusMode, NeedsItsEndForASuccess) {
    for (const std::string& output : {std::string(), Download(BURN), Download(BURN) + "100\n"}) {
        const Reading reading(BBPFLASH_MODE_STATUS, output);
        EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_NO_END}, reading.Problems()) << output;
        EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, reading.verdict);
    }
}

TEST(StreamOfStatusMode, NeedsTheLastLinesEnd) {
    const Reading reading(BBPFLASH_MODE_STATUS, "100\nDONE");
    EXPECT_NE(0u, reading.Problems() & BBPFLASH_PROBLEM_UNFINISHED_LINE);
    EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, reading.verdict);
}

TEST(StreamAndStatus, FailTogether) {
    const Reading reading(BBPFLASH_MODE_STATUS, std::string("1\n") + FAILURE, 1);
    EXPECT_EQ(BBPFLASH_VERDICT_FAILURE, reading.verdict);
    EXPECT_EQ(0u, reading.Problems());
}

TEST(StreamAndStatus, AreDoubtedWhenTheyContradictEachOther) {
    const Reading done(BBPFLASH_MODE_STATUS, END, 1);
    EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_STATUS}, done.Problems());
    EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, done.verdict);
    const Reading error(BBPFLASH_MODE_STATUS, FAILURE, 0);
    EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_STATUS}, error.Problems());
    EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, error.verdict);
}

TEST(StreamAndStatus, AreAFailureWhenASignalEndsTheRunAnywhere) {
    const Reading reading(BBPFLASH_MODE_STATUS, "1\n2\n3", 128 + 6);
    EXPECT_EQ(BBPFLASH_VERDICT_FAILURE, reading.verdict);
}

TEST(StreamAndStatus, NeedNoErrorLineAfterTheUsageHint) {
    const char hint[] =
        "bbpflash ERROR: Please try \"use bbpflash\" to get usage details\n @bbpflash.cpp:76\n";
    const Reading reading(BBPFLASH_MODE_NARRATING, hint, 1);
    EXPECT_EQ(BBPFLASH_VERDICT_FAILURE, reading.verdict);
    EXPECT_EQ(0u, reading.Problems());
    const Reading other(BBPFLASH_MODE_NARRATING, "bbpflash MSG: HD tuner firmware updater\n", 1);
    EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_NO_END}, other.Problems());
}

TEST(StreamWithoutStatus, IsJudgedByItsLastLine) {
    const int unknown = BBPFLASH_STATUS_UNKNOWN;
    EXPECT_EQ(BBPFLASH_VERDICT_SUCCESS,
              Reading(BBPFLASH_MODE_UNKNOWN, Download(BURN) + END, unknown).verdict);
    EXPECT_EQ(BBPFLASH_VERDICT_FAILURE, Reading(BBPFLASH_MODE_UNKNOWN, FAILURE, unknown).verdict);
    EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL,
              Reading(BBPFLASH_MODE_UNKNOWN, Download(BURN), unknown).verdict);
}

const char NARRATION[] =
    "bbpflash MSG: HD tuner firmware updater\n"
    "bbpflash MSG: Sending \"a.bin\" to BBP\n"
    "bbpflash MSG: BBP is erasing old flash contents (do not interrupt!)\n"
    "bbpflash MSG: BBP is programming new flash contents (do not interrupt!)\n"
    "bbpflash MSG: BBP is verifying new flash contents (do not interrupt!)\n"
    "bbpflash MSG: BBP programming completed, resetting for version verification\n"
    "bbpflash MSG: Installed version matches BIN file label\n";

TEST(StreamOfNarratingMode, FollowsThePhases) {
    const Reading reading(BBPFLASH_MODE_NARRATING, NARRATION);
    const std::vector<bbpflash_phase> expected = {BBPFLASH_PHASE_RESET,  BBPFLASH_PHASE_DOWNLOAD,
                                                  BBPFLASH_PHASE_ERASE,  BBPFLASH_PHASE_PROGRAM,
                                                  BBPFLASH_PHASE_VERIFY, BBPFLASH_PHASE_CHECK,
                                                  BBPFLASH_PHASE_CHECK};
    EXPECT_EQ(expected, reading.Phases());
    EXPECT_EQ(BBPFLASH_VERDICT_SUCCESS, reading.verdict);
    EXPECT_EQ(1, reading.Last().pass);
}

TEST(StreamOfNarratingMode, HasNoLinesOfStatusMode) {
    for (const char* line : {"1\n", "100\n"}) {
        const Reading reading(BBPFLASH_MODE_NARRATING, line);
        EXPECT_NE(0u, reading.Problems() & BBPFLASH_PROBLEM_UNKNOWN_LINE) << line;
    }
}

TEST(StreamLines, AreSortedByKind) {
    const Reading reading(BBPFLASH_MODE_UNKNOWN,
                          "bbp INF: == options start ===========\n"
                          " (l = )\n"
                          " (t = )\n"
                          " (v = 6)\n"
                          "bbp INF: == options end =============\n"
                          "bbp WRN: LM count mismatch (NOT FATAL)\n"
                          "\n"
                          "\tLM Header information\n"
                          "\t\t[0]  sync:     0xA5 (valid)\n"
                          "I2C message chunk, addr[0]=0x17  fmt[4]=0x01  stop[8]=no  len[12]=0x0E\n"
                          "something else\n"
                          "12x\n");
    const std::vector<bbpflash_line> expected = {
        BBPFLASH_LINE_OPTIONS, BBPFLASH_LINE_OPTIONS, BBPFLASH_LINE_OPTIONS, BBPFLASH_LINE_OPTIONS,
        BBPFLASH_LINE_OPTIONS, BBPFLASH_LINE_MESSAGE, BBPFLASH_LINE_DUMP,    BBPFLASH_LINE_DUMP,
        BBPFLASH_LINE_DUMP,    BBPFLASH_LINE_DUMP,    BBPFLASH_LINE_UNKNOWN, BBPFLASH_LINE_UNKNOWN};
    EXPECT_EQ(expected, reading.Kinds());
}

TEST(StreamLines, KeepLevelAndTextOfAMessage) {
    const Reading reading(BBPFLASH_MODE_UNKNOWN, "./my ERROR: WRN: x @a.cpp:1\n", 137);
    EXPECT_EQ(BBPFLASH_LEVEL_ERROR, reading.Last().level);
    EXPECT_EQ("WRN: x @a.cpp:1", reading.events[0].message);
}

TEST(StreamLines, AreTheSameHoweverTheBytesArrive) {
    const std::string output = Download(BURN) + FAILURE;
    tools::StreamParser parser(BBPFLASH_MODE_STATUS, nullptr);
    for (const char byte : output) {
        parser.Feed(&byte, 1);
    }
    EXPECT_EQ(BBPFLASH_VERDICT_FAILURE, parser.Finish(1));
}

TEST(StreamLines, AreCutAtTheLongestLine) {
    const Reading reading(BBPFLASH_MODE_UNKNOWN, std::string(100000, 'x') + "\nERROR\n", 1);
    EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_UNKNOWN_LINE}, reading.Problems());
    EXPECT_EQ(std::size_t{BBPFLASH_LONGEST_LINE}, reading.events[0].event.size);
}

TEST(StreamLines, TellWhenTheChipRefusesTheImage) {
    const Reading reading(
        BBPFLASH_MODE_STATUS,
        "80\n95\nbbpflash ERROR: image verification failed, CRC error @HdChip.cpp:170\n", 137);
    EXPECT_EQ(0, reading.events[1].event.refused);
    EXPECT_NE(0, reading.events[2].event.refused);
}

TEST(StreamLines, ForgetARefusalWhenTheChipGoesOn) {
    const Reading reading(
        BBPFLASH_MODE_STATUS,
        "80\nbbpflash ERROR: image verification failed, CRC error @HdChip.cpp:170\n85\n", 137);
    EXPECT_EQ(0, reading.Last().refused);
}

// Texts from outside with line breaks in them.

TEST(StreamForging, NeverEndsTheInformationOnTheInstalledVersion) {
    const Reading reading(BBPFLASH_MODE_NARRATING,
                          "bbp MSG: HD tuner firmware updater\n"
                          "bbp MSG: Installed firmware version is \"1\n"
                          "100\n"
                          "DONE\n"
                          "\"\n"
                          "\n");
    EXPECT_EQ(0u, reading.Problems());
    EXPECT_EQ(std::vector<bbpflash_line>({BBPFLASH_LINE_MESSAGE, BBPFLASH_LINE_MESSAGE,
                                          BBPFLASH_LINE_CONTINUATION, BBPFLASH_LINE_CONTINUATION,
                                          BBPFLASH_LINE_CONTINUATION, BBPFLASH_LINE_CONTINUATION}),
              reading.Kinds());
    EXPECT_EQ(BBPFLASH_PHASE_RESET, reading.Last().phase);
}

TEST(StreamForging, IsAContinuationInEveryMessageWithItsPosition) {
    const Reading reading(BBPFLASH_MODE_STATUS,
                          "bbp INF: BIN file firmware version is \"1\n"
                          "99\n"
                          "\" [5] @bbpflash.cpp:193\n"
                          "100\n"
                          "DONE\n");
    EXPECT_EQ(0u, reading.Problems());
    EXPECT_EQ(BBPFLASH_LINE_CONTINUATION, reading.Kinds()[1]);
    EXPECT_EQ(BBPFLASH_VERDICT_SUCCESS, reading.verdict);
}

TEST(StreamForging, IsAContinuationInTheNameOfTheImage) {
    const Reading reading(BBPFLASH_MODE_NARRATING,
                          "bbp MSG: Sending \"x\nDONE\ny\" to BBP\n"
                          "bbp MSG: BBP is erasing old flash contents (do not interrupt!)\n",
                          137);
    EXPECT_EQ(0u, reading.Problems());
    EXPECT_EQ(BBPFLASH_PHASE_ERASE, reading.Last().phase);
}

TEST(StreamForging, IsNeverASuccessWhenItImitatesAWholeMessage) {
    const Reading reading(BBPFLASH_MODE_STATUS,
                          "bbp INF: Installed firmware version is \"1\" [1] @bbpflash.cpp:178\n"
                          "100\n"
                          "DONE\n"
                          "x\" [39] @bbpflash.cpp:178\n",
                          137);
    EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, reading.verdict);
}

TEST(StreamForging, EndsWhereTheUpdaterCutsAMessage) {
    const std::string start = "bbp ERROR: opening bin file x\n";
    const Reading reading(BBPFLASH_MODE_STATUS,
                          start + std::string(751 - start.size(), 'x') + "\nERROR\n", 1);
    EXPECT_EQ(0u, reading.Problems());
    EXPECT_EQ(BBPFLASH_LINE_ERROR, reading.Last().line);
}

}  // namespace
