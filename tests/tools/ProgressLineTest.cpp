// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/watch/ProgressLine.h"

namespace {

using tools::FormatProgress;
using tools::FormatTime;
using tools::Milliseconds;
using tools::Progress;

Progress Downloading() {
    Progress progress;
    progress.phase = BBPFLASH_PHASE_DOWNLOAD;
    progress.pass = 1;
    progress.done = 0.25;
    progress.elapsed = Milliseconds(12000);
    progress.remaining = Milliseconds(36000);
    return progress;
}

Progress Burning() {
    Progress progress = Downloading();
    progress.phase = BBPFLASH_PHASE_PROGRAM;
    progress.pass = 2;
    progress.writes_flash = true;
    return progress;
}

TEST(ProgressLine, HasPhaseBarPercentageAndTimes) {
    EXPECT_EQ("download [##########..............................]  25% 0:12 about 0:36 left",
              FormatProgress(Downloading(), 100, false));
}

TEST(ProgressLine, HasPassAndWarningWhileTheFlashIsWritten) {
    EXPECT_EQ("pass 2 program  [####.............]  25% 0:12 about 0:36 left do not switch off",
              FormatProgress(Burning(), 80, false));
}

TEST(ProgressLine, NeverFillsTheLastColumn) {
    for (int width = 0; width <= 200; ++width) {
        const std::size_t room = width > 0 ? static_cast<std::size_t>(width) - 1 : 0;
        EXPECT_LE(FormatProgress(Downloading(), width, false).size(), room) << width;
        EXPECT_LE(FormatProgress(Burning(), width, false).size(), room) << width;
    }
}

TEST(ProgressLine, GivesUpEverythingElseBeforeTheWarning) {
    for (int width = 18; width <= 200; ++width) {
        EXPECT_NE(std::string::npos,
                  FormatProgress(Burning(), width, false).find("do not switch off"))
            << width;
    }
    EXPECT_EQ(" 25% do not switch off", FormatProgress(Burning(), 24, false));
    EXPECT_EQ("do not switch off", FormatProgress(Burning(), 20, false));
}

TEST(ProgressLine, HasEscapeSequencesOnlyInColour) {
    EXPECT_EQ(std::string::npos, FormatProgress(Burning(), 80, false).find('\x1B'));
    EXPECT_NE(std::string::npos,
              FormatProgress(Burning(), 80, true).find("\x1B[1;31mdo not switch off\x1B[0m"));
    EXPECT_EQ(std::string::npos, FormatProgress(Downloading(), 80, true).find('\x1B'));
}

TEST(ProgressLine, ShowsTimesInMinutes) {
    EXPECT_EQ("0:00", FormatTime(Milliseconds(999)));
    EXPECT_EQ("1:05", FormatTime(Milliseconds(65000)));
    EXPECT_EQ("1:00:05", FormatTime(Milliseconds(3605000)));
}

}  // namespace
