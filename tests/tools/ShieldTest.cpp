// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/tools/WatchedUpdate.h"
#include "tools/watch/Shield.h"

namespace {

using tools::Milliseconds;
using tools::Ruling;
using tools::Shield;

// What becomes of a request `later` milliseconds after these lines came.
Ruling::What Judge(const std::string& lines, int later = 5000,
                   bbpflash_mode mode = BBPFLASH_MODE_STATUS, int segments = SEGMENTS) {
    WatchedUpdate update(Milliseconds(25000));
    update.Hear(10000, lines);
    return Shield(segments).Judge(update.progress, mode, Milliseconds(10000 + later)).what;
}

TEST(Shield, LetsAnUpdateEndBeforeAndDuringItsDownload) {
    for (const char* lines : {"", "1\n", "40\n", "78\n"}) {
        EXPECT_EQ(Ruling::What::End, Judge(lines)) << lines;
    }
}

TEST(Shield, HoldsFromTheLastSegmentsToTheChipsWord) {
    for (const char* lines : {"79\n", "80\n", "80\n85\n", "80\n90\n", "80\n95\n"}) {
        EXPECT_EQ(Ruling::What::Wait, Judge(lines)) << lines;
    }
    EXPECT_EQ(Ruling::What::End, Judge("80\n99\n"));
}

TEST(Shield, HoldsEarlierWhenTheImageHasFewSegments) {
    // After 50 of 80 per cent of 6 segments, 2 are left, of which one may have gone out.
    EXPECT_EQ(Ruling::What::Wait, Judge("54\n", 5000, BBPFLASH_MODE_STATUS, 6));
    EXPECT_EQ(Ruling::What::End, Judge("40\n", 5000, BBPFLASH_MODE_STATUS, 6));
    EXPECT_EQ(Ruling::What::Wait, Judge("1\n", 5000, BBPFLASH_MODE_STATUS, 0));
}

TEST(Shield, LetsTheResetLineGoUpFirst) {
    EXPECT_EQ(Ruling::What::Later, Judge("80\n99\n", 900));
    EXPECT_EQ(Ruling::What::End, Judge("80\n99\n", 1000));
    const WatchedUpdate update(Milliseconds(25000));
    const Shield shield(SEGMENTS);
    EXPECT_EQ(Ruling::What::Later,
              shield.Judge(update.progress, BBPFLASH_MODE_STATUS, Milliseconds(500)).what);
}

TEST(Shield, HoldsADownloadOfFewSegmentsThatNoLineHasToldOf) {
    EXPECT_EQ(Ruling::What::Wait, Judge("", -7000, BBPFLASH_MODE_UNKNOWN, 2));
    EXPECT_EQ(Ruling::What::End, Judge("", -7500, BBPFLASH_MODE_UNKNOWN, 2));
    EXPECT_EQ(Ruling::What::End, Judge("", -7000, BBPFLASH_MODE_UNKNOWN, 3));
    EXPECT_EQ(Ruling::What::End, Judge("", 170001, BBPFLASH_MODE_UNKNOWN, 2));
}

TEST(Shield, LetsGoOfADownloadThatStandsStill) {
    EXPECT_EQ(Ruling::What::Wait, Judge("79\n", 180000));
    EXPECT_EQ(Ruling::What::End, Judge("79\n", 180001));
}

TEST(Shield, LetsGoWhenTheChipRefusesTheImage) {
    EXPECT_EQ(Ruling::What::End,
              Judge("80\n95\nb ERROR: image verification failed, CRC error @HdChip.cpp:1\n"));
}

TEST(Shield, LetsGoWhenTheChipTakesLongerThanAnyDoes) {
    EXPECT_EQ(Ruling::What::Wait, Judge("80\n85\n", 180000));
    EXPECT_EQ(Ruling::What::End, Judge("80\n85\n", 180001));
}

TEST(Shield, HoldsTheWholeDownloadOfAnUpdateThatTellsNoPercentage) {
    const std::string sending = "b MSG: Sending \"a.bin\" to BBP\n";
    EXPECT_EQ(Ruling::What::End, Judge("", 5000, BBPFLASH_MODE_NARRATING));
    EXPECT_EQ(Ruling::What::Wait, Judge(sending, 5000, BBPFLASH_MODE_NARRATING));
    EXPECT_EQ(Ruling::What::Wait, Judge(sending, 230000, BBPFLASH_MODE_NARRATING));
    EXPECT_EQ(Ruling::What::End, Judge(sending, 230001, BBPFLASH_MODE_NARRATING));
}

TEST(Shield, SaysWhyItHolds) {
    WatchedUpdate update(Milliseconds(25000));
    update.Hear(10000, "80\n");
    const Ruling ruling =
        Shield(SEGMENTS).Judge(update.progress, BBPFLASH_MODE_STATUS, Milliseconds(11000));
    EXPECT_NE(std::string::npos, ruling.reason.find("writing its flash"));
}

}  // namespace
