// SPDX-License-Identifier: Apache-2.0
// vsnprintf is replaced, so that a formatting step can fail and the text's buffer can be seen.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "hutil/HutilMsg.h"
#include "tests/support/CommandLine.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Layout.h"

namespace {

const int PREFIX_STEP = 0;
const int MESSAGE_STEP = 1;
const int SUFFIX_STEP = 2;

// What a message is formatted into, and which of the steps is to fail.
struct Formatting {
    int failing_step = -1;
    bool poison = false;  // fill the buffer before the first step
    int steps = 0;
    const char* buffer = nullptr;
    std::vector<char> seen;  // the buffer when the system logger was called
};
Formatting g_formatting;

bool g_out_of_memory = false;

// The longest text that the 752 bytes hold.
const std::size_t LONGEST = 751;

// Every level that prints.
const int LEVELS[] = {HutilMsg::PLAIN, HutilMsg::CRITICAL, HutilMsg::ERROR, HutilMsg::WARNING,
                      HutilMsg::INFO};

std::string Prefix(int level) {
    const char* const words[] = {"MSG", "CRITICAL", "ERROR", "WRN", "", "INF"};
    return std::string(" ") + words[level] + ": ";
}

class HutilMsgTest : public fake::PlatformTest {
  protected:
    HutilMsgTest() : options_(*g_p_hutil_opt), messages_(g_p_hutil_msg) {
        g_formatting = Formatting();
    }

    // What a message with the text "text" writes, from line 7 of "some/where/File.cpp".
    std::string Show(int level) {
        return Output(
            [&] { messages_->displayMessage(level, "some/where/File.cpp", 7, "%s", "text"); });
    }

    std::string ShowAtVerbosity(int verbosity, int level) {
        options_.verbosity = verbosity;
        return Show(level);
    }

    // What `code` writes to standard output; it must leave standard error alone.
    static std::string Output(const std::function<void()>& code) {
        const fake::Output output = fake::Capture(code);
        EXPECT_EQ(output.err, "");
        return output.out;
    }

    HutilOptions& options_;
    HutilMsg* messages_;
};

class HutilMsgFields : public HutilMsgTest {};
class HutilMsgConstructor : public HutilMsgTest {};
class HutilMsgLevel : public HutilMsgTest {};
class HutilMsgVerbosity : public HutilMsgTest {};
class HutilMsgPosition : public HutilMsgTest {};
class HutilMsgText : public HutilMsgTest {};
class HutilMsgLog : public HutilMsgTest {};
class HutilMsgFailure : public HutilMsgTest {};
class HutilMsgLongText : public HutilMsgTest {};

}  // namespace

extern "C" {

int __real_vsnprintf(char* buffer, size_t size, const char* format, va_list arguments);
int __wrap_vsnprintf(char* buffer, size_t size, const char* format, va_list arguments);

int __wrap_vsnprintf(char* buffer, size_t size, const char* format, va_list arguments) {
    Formatting& formatting = g_formatting;
    if (buffer != nullptr && formatting.buffer == nullptr) {
        formatting.buffer = buffer;
        if (formatting.poison) {
            memset(buffer, 'x', size);
        }
    } else if (buffer == nullptr && formatting.poison) {
        formatting.seen.assign(formatting.buffer, formatting.buffer + HutilMsg::TEXT_SIZE);
    }
    if (formatting.steps++ == formatting.failing_step) {
        errno = EILSEQ;
        return -1;
    }
    return __real_vsnprintf(buffer, size, format, arguments);
}
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return g_out_of_memory ? nullptr : ::operator new(size);
}

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
