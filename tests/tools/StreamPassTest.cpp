// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/stream/StreamParser.h"

namespace {

TEST(StreamPass, TwoMessagesOfOneDownloadBeginOnePass) {
    int pass = 0;
    tools::StreamParser parser(BBPFLASH_MODE_NARRATING,
                               [&pass](const bbpflash_event& event) { pass = event.pass; });
    const std::string output =
        "bbpflash INF: burning \"a.bin\" @HdChip.cpp:489\n"
        "bbpflash MSG: Sending \"a.bin\" to BBP\n";
    parser.Feed(output.data(), output.size());
    EXPECT_EQ(pass, 1);
    EXPECT_EQ(parser.Problems(), 0u);
}

}  // namespace
