// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "tests/support/CommandLine.h"
#include "tests/unit/hutil/HutilMsgFixture.h"

TEST_F(HutilMsgText, BeginsWithTheProgramAsTyped) {
    options_.progName = "./some/bbpflash";
    EXPECT_EQ(Show(0), "./some/bbpflash MSG: text\n");
    EXPECT_EQ(Show(3), "./some/bbpflash WRN: text\n");
    EXPECT_EQ(Show(2), "./some/bbpflash ERROR: text @File.cpp:7\n");
    EXPECT_EQ(Show(1), "./some/bbpflash CRITICAL: text @File.cpp:7\n");
    EXPECT_EQ(Show(5), "./some/bbpflash INF: text @File.cpp:7\n");
}

TEST_F(HutilMsgText, BeginsWithHutilDefaultForDefaultOptions) {
    HutilMsg messages;
    EXPECT_EQ(Output([&] { messages.displayMessage(0, "File.cpp", 7, "text"); }),
              "hutil_default MSG: text\n");
    delete messages.options;
}

TEST_F(HutilMsgText, IsTheFormatFilledWithItsArguments) {
    EXPECT_EQ(Output([&] {
                  messages_->displayMessage(0, "File.cpp", 7, "%s at 0x%02X is %d%%", "addr", 0x2Eu,
                                            -3);
              }),
              "bbpflash MSG: addr at 0x2E is -3%\n");
}

TEST_F(HutilMsgText, ShowsPercentSignsOfNamesAndArgumentsAsTheyAre) {
    options_.progName = "%n%s";
    EXPECT_EQ(Output([&] { messages_->displayMessage(0, "File.cpp", 7, "%s", "%d%n"); }),
              "%n%s MSG: %d%n\n");
    ASSERT_EQ(platform.log.size(), 1u);
    EXPECT_EQ(platform.log[0].text, "%n%s MSG: %d%n");
}

TEST_F(HutilMsgText, KeepsItsOwnNewlineBeforeThePosition) {
    EXPECT_EQ(Output([&] { messages_->displayMessage(2, "File.cpp", 7, "text\n"); }),
              "bbpflash ERROR: text\n @File.cpp:7\n");
}

TEST_F(HutilMsgText, MayBeEmpty) {
    EXPECT_EQ(Output([&] { messages_->displayMessage(0, "File.cpp", 7, "%s", ""); }),
              "bbpflash MSG: \n");
}

// Relied on: the second NUL lies as far behind the first as the message without prefix is long.
TEST_F(HutilMsgText, MayBeOneCharacter) {
    EXPECT_EQ(Output([&] { messages_->displayMessage(2, "File.cpp", 7, "%s", "a"); }),
              "bbpflash ERROR: a @File.cpp:7\n");
}

TEST_F(HutilMsgText, IsEndedTwiceWhereNoPositionFollows) {
    const std::string line = "bbpflash MSG: text";
    g_formatting.poison = true;
    EXPECT_EQ(Show(0), line + "\n");
    ASSERT_EQ(g_formatting.seen.size(), 752u);

    std::string expected(752, 'x');
    expected.replace(0, line.size(), line);
    expected[line.size()] = '\0';
    expected[line.size() + std::string("text").size()] = '\0';
    EXPECT_EQ(std::string(g_formatting.seen.begin(), g_formatting.seen.end()), expected);
}

TEST_F(HutilMsgText, IsEndedOnceWhereAPositionFollows) {
    const std::string line = "bbpflash ERROR: text @File.cpp:7";
    g_formatting.poison = true;
    EXPECT_EQ(Show(2), line + "\n");

    std::string expected(752, 'x');
    expected.replace(0, line.size(), line);
    expected[line.size()] = '\0';
    EXPECT_EQ(std::string(g_formatting.seen.begin(), g_formatting.seen.end()), expected);
}

TEST_F(HutilMsgLog, ReceivesTheSameTextWithoutItsLineBreak) {
    for (const int level : LEVELS) {
        platform.log.clear();
        const std::string shown = ShowAtVerbosity(6, level);
        ASSERT_EQ(platform.log.size(), 1u);
        EXPECT_EQ(platform.log[0].text + "\n", shown);
    }
}

TEST_F(HutilMsgLog, ReceivesTheLevelAsSeverity) {
    for (const int level : LEVELS) {
        platform.log.clear();
        ShowAtVerbosity(6, level);
        ASSERT_EQ(platform.log.size(), 1u);
        EXPECT_EQ(platform.log[0].severity, level);
    }
}

TEST_F(HutilMsgLog, ReceivesTheLineAbove11000AsOpcode) {
    for (const int level : LEVELS) {
        platform.log.clear();
        ShowAtVerbosity(6, level);
        ASSERT_EQ(platform.log.size(), 1u);
        EXPECT_EQ(platform.log[0].opcode, 11007);
    }
}

TEST_F(HutilMsgLog, MayFailWithoutAnyEffect) {
    platform.slogf_result = -1;
    EXPECT_EQ(Show(2), "bbpflash ERROR: text @File.cpp:7\n");
    EXPECT_EQ(options_.verbosity, 10);
}

TEST_F(HutilMsgFailure, OfAnyFormattingStepLeavesOnlyTheSystemsErrorText) {
    for (const int step : {PREFIX_STEP, MESSAGE_STEP, SUFFIX_STEP}) {
        for (const int level : LEVELS) {
            options_.verbosity = 6;
            g_formatting = Formatting();
            g_formatting.failing_step = step;
            const fake::Output output = fake::Capture(
                [&] { messages_->displayMessage(level, "File.cpp", 7, "%s", "text"); });
            EXPECT_EQ(output.out, "") << step << ' ' << level;
            EXPECT_EQ(output.err,
                      "hutil error: Invalid or incomplete multibyte or wide character\n")
                << step << ' ' << level;
            EXPECT_EQ(options_.verbosity, 6) << step << ' ' << level;
        }
    }
    EXPECT_TRUE(platform.log.empty());
}

TEST_F(HutilMsgLongText, IsWholeUpTo751Characters) {
    for (const int level : LEVELS) {
        options_.verbosity = level == HutilMsg::INFO ? 6 : 0;
        const bool has_position = level != HutilMsg::PLAIN && level != HutilMsg::WARNING;
        const std::string head = "bbpflash" + Prefix(level);
        const std::string tail = has_position ? " @File.cpp:7" : "";
        const std::string message(LONGEST - head.size() - tail.size(), 'm');
        EXPECT_EQ(
            Output([&] { messages_->displayMessage(level, "File.cpp", 7, "%s", message.c_str()); }),
            head + message + tail + "\n");
    }
}

TEST_F(HutilMsgLongText, LosesItsEndFromTheCharacter752On) {
    for (const int verbosity : {0, 6}) {
        for (const int level : {0, 1, 2, 3}) {
            options_.verbosity = verbosity;
            const std::string head = "bbpflash" + Prefix(level);
            const std::string message(LONGEST - head.size(), 'm');
            EXPECT_EQ(Output([&] {
                          messages_->displayMessage(level, "File.cpp", 7, "%s!", message.c_str());
                      }),
                      head + message + "\n");
        }
    }
}

// The name, the message or the source file alone exceeds the buffer, by one character and by many.
TEST_F(HutilMsgLongText, IsCutAtTheBuffersEndWhateverMakesItLong) {
    for (const std::size_t size : {700u, 740u, 745u, 750u, 751u, 752u, 753u, 1504u, 100000u}) {
        const std::string part(size, 'p');
        for (const int verbosity : {0, 6}) {
            for (const int level : LEVELS) {
                if (verbosity == 0 && level == HutilMsg::INFO) {
                    continue;
                }
                options_.verbosity = verbosity;
                const bool has_position =
                    verbosity > 5 || level == HutilMsg::CRITICAL || level == HutilMsg::ERROR;
                const std::string tail = has_position ? " @File.cpp:7" : "";

                options_.progName = part;
                EXPECT_EQ(Show(level),
                          (part + Prefix(level) + "text" + tail).substr(0, LONGEST) + "\n");

                options_.progName = "bbpflash";
                options_.verbosity = verbosity;
                EXPECT_EQ(Output([&] {
                              messages_->displayMessage(level, "File.cpp", 7, "%s", part.c_str());
                          }),
                          ("bbpflash" + Prefix(level) + part + tail).substr(0, LONGEST) + "\n");

                options_.verbosity = verbosity;
                const std::string long_tail = has_position ? " @" + part + ":7" : "";
                EXPECT_EQ(
                    Output(
                        [&] { messages_->displayMessage(level, ("/" + part).c_str(), 7, "text"); }),
                    ("bbpflash" + Prefix(level) + "text" + long_tail).substr(0, LONGEST) + "\n");
            }
        }
    }
}

// A message of every length, so that the second NUL falls on every place inside and behind the
// buffer.
TEST_F(HutilMsgLongText, IsEndedTwiceOnlyInsideTheBuffer) {
    for (std::size_t size = 0; size <= 800; ++size) {
        const std::string message(size, 'm');
        EXPECT_EQ(
            Output([&] { messages_->displayMessage(0, "File.cpp", 7, "%s", message.c_str()); }),
            ("bbpflash MSG: " + message).substr(0, LONGEST) + "\n");
    }
}

TEST_F(HutilMsgLongText, IsLoggedAsItIsShown) {
    options_.progName = std::string(2000, 'p');
    const std::string shown = Show(0);
    ASSERT_EQ(platform.log.size(), 1u);
    EXPECT_EQ(platform.log[0].text + "\n", shown);
    EXPECT_EQ(platform.log[0].text.size(), LONGEST);
}

TEST_F(HutilMsgLongText, OfAnErrorRaisesTheVerbosityToo) {
    options_.progName = std::string(2000, 'p');
    Show(2);
    EXPECT_EQ(options_.verbosity, 10);
}
