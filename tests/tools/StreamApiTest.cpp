// SPDX-License-Identifier: Apache-2.0
// The stream library as a program in C uses it.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tools/stream/bbpflash_stream.h"

namespace {

const char UPDATE[] = "40\n80\n85\n90\n95\n99\n100\nDONE\n";

// Keeps the last line in the string that is its context.
void KeepLine(const bbpflash_event* event, void* context) {
    static_cast<std::string*>(context)->assign(event->text, event->size);
}

TEST(StreamApi, CallsTheHandlerWithItsContext) {
    std::string last;
    bbpflash_stream* const stream = bbpflash_stream_create(BBPFLASH_MODE_STATUS, KeepLine, &last);
    ASSERT_NE(nullptr, stream);
    bbpflash_stream_feed(stream, UPDATE, 5);
    EXPECT_EQ("40", last);
    bbpflash_stream_feed(stream, UPDATE + 5, sizeof UPDATE - 1 - 5);
    EXPECT_EQ("DONE", last);
    EXPECT_EQ(0u, bbpflash_stream_problems(stream));
    EXPECT_EQ(BBPFLASH_VERDICT_SUCCESS, bbpflash_stream_finish(stream, 0));
    bbpflash_stream_destroy(stream);
}

TEST(StreamApi, JudgesWithoutAHandler) {
    bbpflash_stream* const stream = bbpflash_stream_create(BBPFLASH_MODE_STATUS, nullptr, nullptr);
    ASSERT_NE(nullptr, stream);
    bbpflash_stream_feed(stream, UPDATE, sizeof UPDATE - 1);
    EXPECT_EQ(BBPFLASH_VERDICT_DOUBTFUL, bbpflash_stream_finish(stream, 1));
    EXPECT_EQ(static_cast<unsigned>(BBPFLASH_PROBLEM_STATUS), bbpflash_stream_problems(stream));
    bbpflash_stream_destroy(stream);
    bbpflash_stream_destroy(nullptr);
}

TEST(StreamApi, HasItsOwnWordsForEachProblemAndEachPhase) {
    std::set<std::string> words;
    for (unsigned bit = BBPFLASH_PROBLEM_FALLING; bit <= BBPFLASH_PROBLEM_STATUS; bit <<= 1) {
        words.insert(bbpflash_problem_text(static_cast<bbpflash_problem>(bit)));
    }
    EXPECT_EQ(10u, words.size());
    for (int phase = BBPFLASH_PHASE_RESET; phase <= BBPFLASH_PHASE_ENDED; ++phase) {
        words.insert(bbpflash_phase_name(static_cast<bbpflash_phase>(phase)));
    }
    EXPECT_EQ(18u, words.size());
    EXPECT_EQ(0u, words.count("unknown"));
    EXPECT_EQ(0u, words.count("unknown problem"));
}

}  // namespace
