// SPDX-License-Identifier: Apache-2.0
// The updater shows versions, labels and paths as they are. Whatever lines they hold, a run that
// has not updated the chip is never read as a success.
#include <gtest/gtest.h>

#include "sim/SampleImage.h"
#include "tests/support/StreamChecker.h"
#include "tests/support/VirtualHeadUnit.h"
#include "tools/stream/StreamParser.h"

namespace {

using Words = std::vector<std::string>;

const char* const TEXTS[] = {
    "1\n100\nDONE\n",
    "100\nDONE",
    "1\"\n\n100\nDONE\n",
    "1\" [1] @bbpflash.cpp:1\n100\nDONE\n",
    "\n\nb MSG: BBP is erasing\n1\n80\n99\n",
    "ERROR\n",
};

bbpflash_verdict Judge(const std::string& output, bbpflash_mode mode, int status) {
    tools::StreamParser parser(mode, nullptr);
    parser.Feed(output.data(), output.size());
    return parser.Finish(status);
}

// A run with an image labelled `label` on a chip that reports `version` before and afterwards.
virt::RunResult RunUpdater(const Words& arguments, const std::string& version,
                           const std::string& label) {
    sim::ChipConfig chip;
    chip.installed = version;
    chip.reports = version;
    virt::VirtualHeadUnit unit(chip);
    // A text that imitates a whole message leaves lines that nothing explains.
    unit.checks_output = false;
    unit.files.Put(arguments.back(), {virt::FileContent::Of(sim::MakeSampleImage(label))});
    return unit.Run(arguments);
}

TEST(ForgedOutput, IsNoSuccessOfAnUpdateThatFails) {
    for (const std::string text : TEXTS) {
        for (const char* options : {"-s", "-svvvvvv", "-v", "-vvvvvv"}) {
            SCOPED_TRACE(std::string(options) + " " + text);
            const Words arguments = {"bbpflash", options, text + ".bin"};
            const virt::RunResult result = RunUpdater(arguments, text, "2.0.0");
            ASSERT_EQ(1, result.status);
            EXPECT_NE(BBPFLASH_VERDICT_SUCCESS, Judge(result.out, ModeOf(arguments), 1));
            EXPECT_NE(BBPFLASH_VERDICT_SUCCESS,
                      Judge(result.out, ModeOf(arguments), BBPFLASH_STATUS_UNKNOWN));
        }
    }
}

TEST(ForgedOutput, IsNoUpdateInAQuery) {
    for (const std::string text : TEXTS) {
        for (const char* option : {"-i", "-ivvvvvv"}) {
            const virt::RunResult result = RunUpdater({"bbpflash", option, "a.bin"}, text, "2.0.0");
            ASSERT_EQ(0, result.status);
            EXPECT_NE(BBPFLASH_VERDICT_SUCCESS,
                      Judge(result.out, BBPFLASH_MODE_UNKNOWN, BBPFLASH_STATUS_UNKNOWN))
                << result.out;
        }
    }
}

TEST(ForgedOutput, IsOnlyAContinuationWhereItImitatesNoWholeMessage) {
    const std::string text = TEXTS[0];
    for (const char* options : {"-s", "-svvvvvv", "-v", "-vvvvvv", "-i", "-ivvvvvv"}) {
        SCOPED_TRACE(options);
        const Words arguments = {"bbpflash", options, "a.bin"};
        const virt::RunResult result = RunUpdater(arguments, text, text);
        ASSERT_EQ(0, result.status);
        EXPECT_TRUE(ConformsToContract(result.out, ModeOf(arguments), 0));
    }
}

TEST(ForgedOutput, NeverComesBeforeTheFirstMessageInStatusMode) {
    for (const std::string text : TEXTS) {
        const virt::RunResult result = RunUpdater({"bbpflash", "-s", "a.bin"}, text, "2.0.0");
        const std::size_t first = result.out.find("bbpflash CRITICAL: maximum number");
        ASSERT_NE(std::string::npos, first);
        EXPECT_EQ(std::string::npos, result.out.substr(0, first).find("DONE"));
    }
}

}  // namespace
