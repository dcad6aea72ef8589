// SPDX-License-Identifier: Apache-2.0
// vsnprintf is replaced, so that a formatting step can fail and the text's buffer can be seen.
#ifndef BBPFLASH_TESTS_UNIT_HUTIL_HUTILMSGFIXTURE_H
#define BBPFLASH_TESTS_UNIT_HUTIL_HUTILMSGFIXTURE_H

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "hutil/HutilMsg.h"
#include "tests/support/FakePlatform.h"

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
extern Formatting g_formatting;

extern bool g_out_of_memory;

// The longest text that the 752 bytes hold.
const std::size_t LONGEST = 751;

// Every level that prints.
const int LEVELS[] = {HutilMsg::PLAIN, HutilMsg::CRITICAL, HutilMsg::ERROR, HutilMsg::WARNING,
                      HutilMsg::INFO};

inline std::string Prefix(int level) {
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

#endif
