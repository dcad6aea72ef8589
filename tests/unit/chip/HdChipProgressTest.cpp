// SPDX-License-Identifier: Apache-2.0
#include <cerrno>

#include "tests/unit/chip/HdChipProgramBinFixture.h"

namespace {

using fake::Reply;

using HdChipProgramBinPercentage = HdChipProgramBin;
using HdChipProgramBinPolling = HdChipProgramBin;

TEST_F(HdChipProgramBinPercentage, CountsFrom1To80EachOnce) {
    const ImageFile image(1048576);
    g_options[OPTION_STATUS] = true;

    EXPECT_TRUE(Program(image.path));

    std::string expected;
    for (int i = 1; i <= 80; ++i) {
        expected += std::to_string(i) + "\n";
    }
    EXPECT_EQ(output_.out, expected + "99\n");
    EXPECT_EQ(output_.err, "");
    EXPECT_EQ(Segments().size(), 516u);
    EXPECT_EQ(Segments()[0][8] | Segments()[0][9] << 8, 516);
}

TEST_F(HdChipProgramBinPercentage, OfOneByteIs80) {
    const ImageFile image(1);
    g_options[OPTION_STATUS] = true;

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(output_.out, "80\n99\n");
}

TEST_F(HdChipProgramBinPercentage, IsTruncated) {
    const ImageFile image(5000);
    g_options[OPTION_STATUS] = true;

    EXPECT_TRUE(Program(image.path));

    // 2034, 4069 and 5000 of 5000 bytes.
    EXPECT_EQ(output_.out, "32\n65\n80\n99\n");
}

TEST_F(HdChipProgramBinPercentage, Of0IsNeverPrinted) {
    const ImageFile image(2034 * 81);
    g_options[OPTION_STATUS] = true;

    EXPECT_TRUE(Program(image.path));

    EXPECT_THAT(output_.out, testing::StartsWith("1\n2\n"));
}

TEST_F(HdChipProgramBinPercentage, IsFlushedAfterEachSegmentInBothModes) {
    const ImageFile image(5000);
    EXPECT_TRUE(Program(image.path));
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(), "flush"), 3);

    platform.trace.clear();
    g_options[OPTION_STATUS] = true;
    EXPECT_TRUE(Program(image.path));
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(), "flush"), 3 + 1)
        << "and after the changed status";
}

TEST_F(HdChipProgramBinPercentage, OfAnImageThatWasEmptyWhenItWasMeasuredIsNone) {
    ExpectPercentages(0, {10}, "99\n");
}

TEST_F(HdChipProgramBinPercentage, IsExactUpToAnImageOf26843545Bytes) {
    ExpectPercentages(26843545, {26843545}, "80\n99\n");
}

TEST_F(HdChipProgramBinPercentage, WrapsIn32BitsBeyond26843545Bytes) {
    // 26843546 times 80 is 2^31 + 32.
    ExpectPercentages(30000000, {26843545, 1, 3156454}, "71\n-71\n-63\n99\n");
}

TEST_F(HdChipProgramBinPolling, StatusModePrintsAPercentageForEachChangedState) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({4, 4, 4, 5, 5, 6, 6, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(output_.out, "80\n85\n90\n95\n99\n");
    EXPECT_EQ(platform.delays, std::vector<unsigned>(8, 350));
}

TEST_F(HdChipProgramBinPolling, StatusModePrintsAStateAgainWhenAnotherCameBetween) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({4, 3, 4, 5, 4, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(output_.out, "80\n85\n85\n90\n85\n99\n");
}

TEST_F(HdChipProgramBinPolling, StatusModePrintsNothingForTheOtherStatesButTheQuerysErrors) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({3, 2, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(fake::WithoutPositions(output_.out),
              "80\nbbpflash ERROR: image verification failed, CRC error\n99\n");
}

TEST_F(HdChipProgramBinPolling, StatusModeFlushesAfterEachChangedState) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({3, 4, 4, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_THAT(BusTrace(), testing::ElementsAreArray(Concatenate({UNPROTECT_TRACE,
                                                                   SegmentTrace(24),
                                                                   {"flush"},
                                                                   POLL_TRACE,
                                                                   {"flush"},
                                                                   POLL_TRACE,
                                                                   {"flush"},
                                                                   POLL_TRACE,
                                                                   POLL_TRACE,
                                                                   {"flush"}})));
}

TEST_F(HdChipProgramBinPolling, PlainModeTellsEachChangedState) {
    const ImageFile image(10);
    AnswerStatuses({4, 4, 5, 5, 6, 6, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(output_.out,
              "bbpflash MSG: Sending \"" + image.path +
                  "\" to BBP\n"
                  "bbpflash MSG: BBP is erasing old flash contents (do not interrupt!)\n"
                  "bbpflash MSG: BBP is programming new flash contents (do not interrupt!)\n"
                  "bbpflash MSG: BBP is verifying new flash contents (do not interrupt!)\n"
                  "bbpflash MSG: BBP programming completed, resetting for version verification\n");
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(), "flush"), 1)
        << "after the segment alone";
}

TEST_F(HdChipProgramBinPolling, PlainModeTellsAStateAgainWhenAnotherCameBetween) {
    const ImageFile image(10);
    AnswerStatuses({5, 3, 5, 1});

    EXPECT_TRUE(Program(image.path));

    const std::string programming =
        "MSG: BBP is programming new flash contents (do not interrupt!)";
    EXPECT_THAT(
        platform.Messages(),
        testing::ElementsAre("MSG: Sending \"" + image.path + "\" to BBP", programming, programming,
                             "MSG: BBP programming completed, resetting for version verification"));
}

TEST_F(HdChipProgramBinPolling, GoesOnThroughErrorStatesIdlenessAndReservedCodes) {
    const ImageFile image(10);
    AnswerStatuses({3, 2, 7, 8, 9, 0, 10, 255, 3, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(platform.delays, std::vector<unsigned>(10, 350));
    EXPECT_THAT(
        platform.Messages(),
        testing::ElementsAre("MSG: Sending \"" + image.path + "\" to BBP",
                             "ERROR: image verification failed, CRC error",
                             "ERROR: flash image and NVM security status mismatch",
                             "ERROR: using single tuner image on dual tuner flash",
                             "ERROR: using dual tuner image on single tuner flash",
                             "ERROR: unknown or reserved Pgm_Write_Status",
                             "ERROR: unknown or reserved Pgm_Write_Status",
                             "ERROR: unknown or reserved Pgm_Write_Status",
                             "INF: idle, not in programming mode",
                             "MSG: BBP programming completed, resetting for version verification"));
}

TEST_F(HdChipProgramBinPolling, GoesOnWhenQueriesFail) {
    const ImageFile image(10);
    platform.Fail(DCMD_I2C_LOCK, EBUSY, 4);  // the first query's request
    platform.Fail(DCMD_I2C_RECV, EIO, 2);    // the second query's reply
    platform.Answer(Reply());
    platform.Answer(Reply());
    platform.Answer(Reply({0, 1}).Status(0x10));  // the third query's

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(platform.delays, std::vector<unsigned>(4, 350));
    const std::vector<std::string> messages = platform.Messages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "ERROR: sending"), 1);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "ERROR: confirming"), 2);
}

TEST_F(HdChipProgramBinPolling, GoesOnWhenAQuerysSegmentsCannotBeSet) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({4, 4, 1});
    Script("SetNumSegs", 0, 2);  // before any state: as it starts
    Script("SetNumSegs", 0, 4);  // after a 4: another state

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(fake::WithoutPositions(output_.out),
              "80\nbbpflash ERROR: setting total number of segments\n"
              "bbpflash INF: erasing old flash contents\n85\n"
              "bbpflash ERROR: setting total number of segments\n"
              "bbpflash INF: erasing old flash contents\n85\n99\n");
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(), "flush"), 1 + 4);
}

TEST_F(HdChipProgramBinPolling, HasNoBound) {
    const ImageFile image(10);
    AnswerStatuses(fake::Bytes(2000, 4));
    platform.Answer(Reply({0, 1}));

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(platform.delays.size(), 2001u);
    EXPECT_EQ(platform.Messages().size(), 3u);
}

TEST_F(HdChipProgramBinPolling, TakesNoNoticeOfADelayCutShort) {
    const ImageFile image(10);
    platform.delay_result = 349;
    AnswerStatuses({4, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(platform.delays, std::vector<unsigned>(2, 350));
}

}  // namespace
