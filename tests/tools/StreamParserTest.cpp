// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/tools/StreamReading.h"

namespace {

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
    for (const char* number : {"0\n", "81\n", "98\n", "101\n", "-5\n", "336\n", "4294967376\n",
                               "99999999999999999999\n"}) {
        const Reading reading(BBPFLASH_MODE_STATUS, number, 137);
        EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_NUMBER}, reading.Problems()) << number;
    }
}

TEST(StreamOfStatusMode, FindsStagesOutOfOrder) {
    for (const char* stages : {"85\n", "79\n85\n", "99\n", "80\n100\nDONE\n", "80\n99\n95\n",
                               "100\n1\n", "100\nERROR\n"}) {
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

TEST(StreamOfStatusMode, HasNoEndWhereSomethingUnfinishedFollowsIt) {
    const Reading reading(BBPFLASH_MODE_STATUS, "100\nDONE\nE");
    EXPECT_EQ(unsigned{BBPFLASH_PROBLEM_UNFINISHED_LINE | BBPFLASH_PROBLEM_NO_END},
              reading.Problems());
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

}  // namespace
