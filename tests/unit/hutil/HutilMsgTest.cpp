// SPDX-License-Identifier: Apache-2.0
#include <climits>
#include <type_traits>

#include "tests/support/CommandLine.h"
#include "tests/support/Layout.h"
#include "tests/unit/hutil/HutilMsgFixture.h"

TEST_F(HutilMsgFields, AreThePointerToTheOptionsBehindTheVirtualTable) {
    static_assert(std::is_same<decltype(HutilMsg::options), HutilOptions*>::value, "");
    EXPECT_EQ(OffsetIn(*messages_, messages_->options), sizeof(void*));
    EXPECT_EQ(sizeof(HutilMsg), 2 * sizeof(void*));
    EXPECT_TRUE(std::has_virtual_destructor<HutilMsg>::value);
}

TEST_F(HutilMsgFields, HaveTheLevelsAsTheirNumbersAndABufferOf752Bytes) {
    EXPECT_EQ(HutilMsg::PLAIN, 0);
    EXPECT_EQ(HutilMsg::CRITICAL, 1);
    EXPECT_EQ(HutilMsg::ERROR, 2);
    EXPECT_EQ(HutilMsg::WARNING, 3);
    EXPECT_EQ(HutilMsg::INFO, 5);
    EXPECT_EQ(HutilMsg::TEXT_SIZE, 752);
}

TEST_F(HutilMsgConstructor, KeepsTheOptionsThatItIsGiven) {
    HutilOptions options;
    const HutilMsg messages(&options);
    EXPECT_EQ(messages.options, &options);
}

TEST_F(HutilMsgConstructor, MakesOptionsFromACommandLine) {
    CommandLine line{"./updater", "-vv", "-l", "x", "image.bin"};
    const HutilMsg messages(line.Count(), line.Vector());
    EXPECT_EQ(messages.options->progName, "./updater");
    EXPECT_EQ(messages.options->verbosity, 2);
    EXPECT_EQ(messages.options->logFile, "x");
    delete messages.options;
}

TEST_F(HutilMsgConstructor, MakesDefaultOptionsFromNothing) {
    const HutilMsg messages;
    EXPECT_EQ(messages.options->progName, "hutil_default");
    EXPECT_EQ(messages.options->verbosity, 0);
    delete messages.options;
}

TEST_F(HutilMsgConstructor, LeavesTheOptionsNullWithoutMemory) {
    CommandLine line{"bbpflash"};
    g_out_of_memory = true;
    const HutilMsg by_default;
    const HutilMsg by_line(line.Count(), line.Vector());
    g_out_of_memory = false;
    EXPECT_EQ(by_default.options, nullptr);
    EXPECT_EQ(by_line.options, nullptr);
}

TEST_F(HutilMsgConstructor, LeavesTheOptionsToLiveOnAfterTheDestructor) {
    HutilOptions* made = nullptr;
    {
        const HutilMsg messages;
        made = messages.options;
    }
    EXPECT_EQ(made->progName, "hutil_default");
    delete made;
}

TEST_F(HutilMsgLevel, PlainShowsWithoutPosition) {
    EXPECT_EQ(Show(0), "bbpflash MSG: text\n");
}

TEST_F(HutilMsgLevel, CriticalShowsWithPosition) {
    EXPECT_EQ(Show(1), "bbpflash CRITICAL: text @File.cpp:7\n");
}

TEST_F(HutilMsgLevel, ErrorShowsWithPosition) {
    EXPECT_EQ(Show(2), "bbpflash ERROR: text @File.cpp:7\n");
}

TEST_F(HutilMsgLevel, WarningShowsWithoutPosition) {
    EXPECT_EQ(Show(3), "bbpflash WRN: text\n");
}

TEST_F(HutilMsgLevel, InformationDoesNotShow) {
    EXPECT_EQ(Show(5), "");
    EXPECT_TRUE(platform.log.empty());
}

TEST_F(HutilMsgLevel, FourAndAnythingOutsideZeroToFivePrintsAndLogsNothing) {
    for (const int level : {4, 6, 7, -1, -5, INT_MAX, INT_MIN}) {
        EXPECT_EQ(ShowAtVerbosity(10, level), "") << level;
        EXPECT_EQ(options_.verbosity, 10);
        EXPECT_EQ(ShowAtVerbosity(0, level), "") << level;
        EXPECT_EQ(options_.verbosity, 0);
    }
    EXPECT_TRUE(platform.log.empty());
}

TEST_F(HutilMsgVerbosity, OfFiveChangesNothing) {
    EXPECT_EQ(ShowAtVerbosity(5, 0), "bbpflash MSG: text\n");
    EXPECT_EQ(ShowAtVerbosity(5, 1), "bbpflash CRITICAL: text @File.cpp:7\n");
    EXPECT_EQ(ShowAtVerbosity(5, 2), "bbpflash ERROR: text @File.cpp:7\n");
    EXPECT_EQ(ShowAtVerbosity(5, 3), "bbpflash WRN: text\n");
    EXPECT_EQ(ShowAtVerbosity(5, 5), "");
}

TEST_F(HutilMsgVerbosity, OfSixShowsInformationAndEveryPosition) {
    EXPECT_EQ(ShowAtVerbosity(6, 0), "bbpflash MSG: text @File.cpp:7\n");
    EXPECT_EQ(ShowAtVerbosity(6, 1), "bbpflash CRITICAL: text @File.cpp:7\n");
    EXPECT_EQ(ShowAtVerbosity(6, 2), "bbpflash ERROR: text @File.cpp:7\n");
    EXPECT_EQ(ShowAtVerbosity(6, 3), "bbpflash WRN: text @File.cpp:7\n");
    EXPECT_EQ(ShowAtVerbosity(6, 5), "bbpflash INF: text @File.cpp:7\n");
}

TEST_F(HutilMsgVerbosity, BelowZeroIsAsQuietAsZero) {
    EXPECT_EQ(ShowAtVerbosity(-1, 5), "");
    EXPECT_EQ(ShowAtVerbosity(-1, 0), "bbpflash MSG: text\n");
}

TEST_F(HutilMsgVerbosity, BecomesTenAfterACriticalOrAnErrorMessage) {
    for (const int level : {1, 2}) {
        for (const int before : {0, 6, 12}) {
            ShowAtVerbosity(before, level);
            EXPECT_EQ(options_.verbosity, 10) << level << " at " << before;
        }
    }
}

TEST_F(HutilMsgVerbosity, StaysAsItIsAfterAnyOtherMessage) {
    for (const int level : {0, 3, 5}) {
        for (const int before : {0, 6, 12}) {
            ShowAtVerbosity(before, level);
            EXPECT_EQ(options_.verbosity, before) << level;
        }
    }
}

TEST_F(HutilMsgVerbosity, AfterAnErrorShowsInformationAndEveryPosition) {
    Show(2);
    EXPECT_EQ(Show(5), "bbpflash INF: text @File.cpp:7\n");
    EXPECT_EQ(Show(0), "bbpflash MSG: text @File.cpp:7\n");
    EXPECT_EQ(Show(3), "bbpflash WRN: text @File.cpp:7\n");
}

TEST_F(HutilMsgVerbosity, AfterACriticalMessageShowsInformationAndEveryPosition) {
    Show(1);
    EXPECT_EQ(Show(5), "bbpflash INF: text @File.cpp:7\n");
    EXPECT_EQ(Show(0), "bbpflash MSG: text @File.cpp:7\n");
    EXPECT_EQ(Show(3), "bbpflash WRN: text @File.cpp:7\n");
}

TEST_F(HutilMsgPosition, ShowsAPathWithoutSlashWhole) {
    EXPECT_EQ(Output([&] { messages_->displayMessage(2, "File.cpp", 1, "text"); }),
              "bbpflash ERROR: text @File.cpp:1\n");
}

TEST_F(HutilMsgPosition, ShowsAnEmptyNameForAPathThatEndsInASlash) {
    EXPECT_EQ(Output([&] { messages_->displayMessage(2, "some/where/", 12, "text"); }),
              "bbpflash ERROR: text @:12\n");
}

TEST_F(HutilMsgPosition, TakesNoBackslashForASeparator) {
    EXPECT_EQ(Output([&] { messages_->displayMessage(2, "/a\\b\\File.cpp", 1, "text"); }),
              "bbpflash ERROR: text @a\\b\\File.cpp:1\n");
}

TEST_F(HutilMsgPosition, ShowsAPercentSignOfThePathAsItIs) {
    EXPECT_EQ(Output([&] { messages_->displayMessage(2, "src/%s%n.cpp", 1, "text"); }),
              "bbpflash ERROR: text @%s%n.cpp:1\n");
}
