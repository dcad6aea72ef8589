// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/tools/StreamReading.h"

namespace {

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

TEST(StreamLines, AreNoPercentagesWithLeadingZeros) {
    for (const char* line : {"01\n", "080\n", "00\n", "-01\n"}) {
        const Reading reading(BBPFLASH_MODE_STATUS, line, 137);
        EXPECT_EQ(BBPFLASH_LINE_UNKNOWN, reading.Last().line) << line;
    }
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

    const Reading longer(BBPFLASH_MODE_STATUS,
                         start + std::string(752 - start.size(), 'x') + "\nERROR\n", 1);
    EXPECT_EQ(BBPFLASH_LINE_UNKNOWN, longer.Kinds()[1]) << "no message is so long";
}

TEST(StreamForging, TakesNothingBehindAMessageThatIsAsLongAsCanBe) {
    // A program may have a name as long as this.
    const std::string start = " INF: == options start ===========";
    const Reading reading(BBPFLASH_MODE_STATUS,
                          std::string(751 - start.size(), 'x') + start + "\nERROR\n", 1);
    EXPECT_EQ(BBPFLASH_LINE_MESSAGE, reading.Kinds()[0]);
    EXPECT_EQ(BBPFLASH_LINE_ERROR, reading.Last().line);
}

TEST(StreamForging, TakesNoOtherWordsForTheEndOfAMessage) {
    const Reading reading(BBPFLASH_MODE_STATUS,
                          "bbp ERROR: opening bin file x @a-b.cpp:1\n"
                          "DONE\n"
                          "y @bbpflash.cpp:5\n"
                          "ERROR\n",
                          1);
    EXPECT_EQ(std::vector<bbpflash_line>({BBPFLASH_LINE_MESSAGE, BBPFLASH_LINE_CONTINUATION,
                                          BBPFLASH_LINE_CONTINUATION, BBPFLASH_LINE_ERROR}),
              reading.Kinds());
}

}  // namespace
