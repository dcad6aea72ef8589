// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/tools/WatchedUpdate.h"
#include "tools/watch/UpdateProgress.h"

namespace {

using tools::Milliseconds;
using tools::Progress;

// Updates whose download should take 20 seconds.
class UpdateProgressTest : public testing::Test {
  protected:
    WatchedUpdate update_{Milliseconds(20000)};
};

TEST_F(UpdateProgressTest, BeginsWithTheReset) {
    const Progress progress = update_.At(0);
    EXPECT_EQ(BBPFLASH_PHASE_RESET, progress.phase);
    EXPECT_EQ(0, progress.done);
    // Reset, download, burn, reset: 3.25 + 20 + 15.5 + 3.25 seconds.
    EXPECT_EQ(Milliseconds(42000), progress.remaining);
}

TEST_F(UpdateProgressTest, MovesOnWhileNothingIsHeardButNeverIntoTheNextPhase) {
    update_.Hear(20000, "80\n85\n");
    double before = update_.At(20000).done;
    for (int now = 20500; now < 60000; now += 500) {
        const double done = update_.At(now).done;
        EXPECT_GT(done, before) << now;
        before = done;
    }
    const double after_erase = (3250 + 20000 + 500 + 4000) / 42000.0;
    EXPECT_LT(before, after_erase + 1e-6);
}

TEST_F(UpdateProgressTest, NeverGoesBackInAPass) {
    double before = 0;
    int now = 3000;
    for (const char* line :
         {"1\n", "2\n", "30\n", "79\n", "80\n", "85\n", "90\n", "95\n", "99\n"}) {
        now += 700;
        update_.Hear(now, line);
        EXPECT_GE(update_.At(now).done, before) << line;
        before = update_.At(now).done;
    }
}

TEST_F(UpdateProgressTest, NeverGoesBackWhenItsGuessOfTheWholeChanges) {
    double before = 0;
    int now = 0;
    const auto hear = [&](int later, const std::string& line) {
        now += later;
        EXPECT_GE(update_.At(now).done, before) << line;
        before = update_.At(now).done;
        update_.Hear(now, line);
        EXPECT_GE(update_.At(now).done, before) << line;
        before = update_.At(now).done;
    };
    hear(3300, "b INF: Checking HD update versions @bbpflash.cpp:190\n");
    EXPECT_LT(0, before);
    hear(100, "1\n");
    for (int percent = 2; percent <= 80; ++percent) {
        hear(percent < 20 ? 10 : 5000, std::to_string(percent) + "\n");
    }
    hear(100, "85\n");
    hear(100, "b ERROR: sending @HdChip.cpp:1\nERROR\n");
}

TEST_F(UpdateProgressTest, TakesTheDownloadsPaceAsItIsMeasured) {
    update_.Hear(3000, "1\n");
    update_.Hear(13000, "11\n");
    // A second per cent: 69 are left, then the burn and the reset.
    const Progress progress = update_.At(13000);
    EXPECT_EQ(Milliseconds(69000 + 15500 + 3250), progress.remaining);
}

TEST_F(UpdateProgressTest, StartsAgainWithEveryPass) {
    update_.Hear(20000, "80\n85\n99\n");
    update_.Hear(24000, "1\n");
    const Progress progress = update_.At(24000);
    EXPECT_EQ(2, progress.pass);
    EXPECT_EQ(BBPFLASH_PHASE_DOWNLOAD, progress.phase);
    EXPECT_LT(progress.done, 0.02);
}

TEST_F(UpdateProgressTest, WritesTheFlashFromTheLastSegmentToTheChipsWord) {
    update_.Hear(3000, "79\n");
    EXPECT_FALSE(update_.At(3000).writes_flash);
    for (const char* line : {"80\n", "85\n", "90\n", "95\n"}) {
        update_.Hear(4000, line);
        EXPECT_TRUE(update_.At(4000).writes_flash) << line;
    }
    update_.Hear(5000, "99\n");
    EXPECT_FALSE(update_.At(5000).writes_flash);
}

TEST_F(UpdateProgressTest, GuessesNothingWhenTheChipRefusesTheImage) {
    update_.Hear(3000, "80\nb ERROR: image verification failed, CRC error @HdChip.cpp:1\n");
    EXPECT_FALSE(update_.At(3000).remaining.has_value());
}

TEST_F(UpdateProgressTest, IsDoneAtItsEnd) {
    update_.Hear(3000, "100\nDONE\n");
    EXPECT_EQ(1, update_.At(3000).done);
}

}  // namespace
