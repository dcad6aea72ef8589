// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "tests/tools/WatchedUpdate.h"
#include "tools/stream/StreamParser.h"
#include "tools/watch/Judgement.h"

namespace {

using tools::Content;
using tools::Ending;
using tools::Evidence;
using tools::Verdict;

const char REFUSAL[] = "b ERROR: image verification failed, CRC error @HdChip.cpp:1\n";
const char FAILED_POLL[] = "b ERROR: sending @HdChip.cpp:1\n";
const char BANNER[] = "b MSG: HD tuner firmware updater\n";
const char SENDING[] = "b MSG: Sending \"a.bin\" to BBP\n";
const char FAILED_SEND[] = "b ERROR: sending LM I2C buffers @HcLogical.cpp:203\n";

Ending JudgeLines(const std::string& lines, Evidence evidence) {
    tools::UpdateRecord record(SEGMENTS);
    tools::StreamParser parser(BBPFLASH_MODE_UNKNOWN,
                               [&record](const bbpflash_event& event) { record.Take(event); });
    parser.Feed(lines.data(), lines.size());
    evidence.stream = parser.Finish(evidence.status);
    return tools::Judge(record, evidence);
}

Ending JudgeEnd(const std::string& lines, int status) {
    Evidence evidence;
    evidence.status = status;
    return JudgeLines(lines, evidence);
}

// Ended by a person, or as the chip refuses the image.
Ending JudgeCut(const std::string& lines, bool is_over = false) {
    Evidence evidence;
    evidence.status = 130;
    evidence.was_requested = true;
    evidence.is_over = is_over;
    return JudgeLines(lines, evidence);
}

TEST(Judgement, KnowsUpdatesFromUpToDateUnitsAndQueries) {
    EXPECT_EQ(Verdict::Success, JudgeEnd("80\n99\n100\nDONE\n", 0).verdict);
    EXPECT_EQ(Verdict::Current, JudgeEnd("100\nDONE\n", 0).verdict);
    const std::string version = "b MSG: Installed firmware version is \"1.0\"\n\n";
    EXPECT_EQ(Verdict::Answered, JudgeEnd(version + "100\nDONE\n", 0).verdict);
    EXPECT_EQ(Verdict::Answered, JudgeEnd(BANNER + version, 0).verdict);
    const std::string match = "b MSG: Installed version matches BIN file label\n";
    EXPECT_EQ(Verdict::Current, JudgeEnd(BANNER + match, 0).verdict);
    EXPECT_EQ(
        Verdict::Success,
        JudgeEnd(std::string(BANNER) + SENDING +
                     "b MSG: BBP programming completed, resetting for version verification\n" +
                     match,
                 0)
            .verdict);
}

TEST(Judgement, TakesNoSilenceAndNoMixtureForSuccess) {
    for (const std::string& lines :
         {std::string(), std::string(BANNER), std::string(BANNER) + SENDING,
          std::string(BANNER) + "100\nDONE\n", std::string("80\n99\n"), std::string("100\n"),
          std::string("b MSG: Installed version matches BIN file label\n80\n99\n")}) {
        const Ending ending = JudgeEnd(lines, 0);
        EXPECT_EQ(Verdict::Doubtful, ending.verdict) << lines;
        EXPECT_EQ(76, ending.status) << lines;
        EXPECT_EQ(Content::Unknown, ending.content) << lines;
    }
}

TEST(Judgement, KnowsWhatTheChipHoldsAfterAnErrorInTheDownload) {
    const std::string dump = "\n\tLM Header information\n\n\t\t[8]  num segs: 516\n";
    const auto failing = [&](const std::string& before, const std::string& segment) {
        return JudgeEnd(before + FAILED_SEND + dump + "\t\t[10] curr seg: " + segment +
                            "\nb ERROR: sending @HdChip.cpp:107\nERROR\n",
                        1);
    };
    const Ending early = failing("1\n", "8");
    EXPECT_EQ(Content::Old, early.content);
    EXPECT_EQ(9, early.where.segment);
    EXPECT_EQ(516, early.segments);
    EXPECT_EQ("sending LM I2C buffers", early.what);
    EXPECT_EQ("download", early.reason);
    EXPECT_EQ(Content::Old, failing("79\n", "514").content);
    EXPECT_EQ(Content::Unknown, failing("79\n", "515").content);
    EXPECT_EQ(Content::Old, failing(std::string(BANNER) + SENDING, "8").content);
    EXPECT_EQ(Content::Unknown, failing(std::string(BANNER) + SENDING, "515").content);
}

TEST(Judgement, KnowsWhatTheChipHoldsInTheBurn) {
    EXPECT_EQ(Content::Old, JudgeCut("78\n").content);
    EXPECT_EQ(Content::Unknown, JudgeCut("79\n").content);
    EXPECT_EQ(Content::Unknown, JudgeCut("80\n").content);
    EXPECT_EQ(Content::Neither, JudgeCut("80\n85\n").content);
    EXPECT_EQ(Content::Neither, JudgeCut("80\n90\n95\n").content);
    EXPECT_EQ(Content::Unknown, JudgeCut("80\n95\n").content);
    EXPECT_EQ(Content::New, JudgeCut("80\n95\n99\n").content);
    EXPECT_EQ(Content::New, JudgeCut("80\n99\n20\n").content) << "a second pass downloads";
}

TEST(Judgement, KnowsWhatTheChipHoldsAfterARefusal) {
    EXPECT_EQ(Content::Old, JudgeCut(std::string("80\n") + REFUSAL, true).content);
    EXPECT_EQ(Content::Neither, JudgeCut(std::string("80\n85\n95\n") + REFUSAL, true).content);
    EXPECT_EQ(Content::Unknown, JudgeCut(std::string("80\n") + FAILED_POLL + REFUSAL, true).content)
        << "nobody saw whether it erased meanwhile";
    EXPECT_EQ(Content::Unknown, JudgeCut(std::string("80\n95\n") + REFUSAL, true).content);
    EXPECT_EQ(77, JudgeCut(std::string("80\n") + REFUSAL, true).status);
}

TEST(Judgement, KnowsNothingWhenTheLastLinesMayBeLost) {
    EXPECT_EQ(Content::Unknown, JudgeEnd(BANNER, 137).content);
    EXPECT_EQ(Content::Old, JudgeEnd("40\n", 137).content);
    Evidence evidence;
    evidence.status = 130;
    evidence.was_requested = true;
    evidence.is_only_heard = true;
    EXPECT_EQ(Content::Unknown, JudgeLines("40\n", evidence).content);
}

TEST(Judgement, NamesTheErrorThatTheUpdateDidNotLeaveBehind) {
    const Ending ending = JudgeEnd(
        std::string("80\n") + FAILED_POLL +
            "85\n99\nb CRITICAL: maximum number of programming tries exceeded @b.cpp:1\nERROR\n",
        1);
    EXPECT_EQ("tries", ending.reason);
    EXPECT_EQ(Content::New, ending.content);
}

TEST(Judgement, NamesSignalsAndAborts) {
    EXPECT_EQ("aborted", JudgeEnd("", 134).reason);
    EXPECT_EQ("signal", JudgeEnd("40\n", 137).reason);
    EXPECT_EQ("unknown", JudgeEnd("", 3).reason);
    EXPECT_EQ("contradiction", JudgeEnd("80\n99\n100\nDONE\n", 1).reason);
}

}  // namespace
