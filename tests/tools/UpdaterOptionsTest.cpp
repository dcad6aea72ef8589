// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "driver/bbpflash.h"
#include "tests/support/VirtualHeadUnit.h"
#include "tools/stream/UpdaterOptions.h"

namespace {

using Words = std::vector<std::string>;

// The flags that the updater itself has taken when it opens the bus, and its image.
class FlagsOfUpdater : public virt::CallHook {
  public:
    explicit FlagsOfUpdater(const Words& words) {
        unit.SetHook(this);
        unit.has_reset_device = false;
        unit.Run(words);
    }

    virt::Strike OnCall(const virt::Call& call, int, int nth) override {
        if (call.kind == virt::CallKind::Open && nth == 0) {
            taken.force = g_options[OPTION_FORCE];
            taken.info_only = g_options[OPTION_INFO_ONLY];
            taken.status = g_options[OPTION_STATUS];
            image = filename.c_str();
        }
        return {};
    }

    virt::VirtualHeadUnit unit;
    tools::UpdaterOptions taken;
    std::string image;
};

TEST(UpdaterOptions, AreReadAsTheUpdaterReadsThem) {
    const std::vector<Words> lines = {
        {"bbpflash", "image.bin"},
        {"bbpflash", "-s", "image.bin"},
        {"bbpflash", "-sfi", "image.bin"},
        {"bbpflash", "-vvs", "-f", "image.bin"},
        {"bbpflash", "-l", "name", "-s", "image.bin"},
        {"bbpflash", "-s", "-l", "name", "-f", "image.bin"},
        {"bbpflash", "-lfis", "image.bin"},
        {"bbpflash", "-tname", "-x", "image.bin"},
        {"bbpflash", "image.bin", "-s"},
        {"bbpflash", "--", "-s"},
        {"bbpflash", "-", "-s"},
        {"bbpflash", "--s", "-i"},
        {"bbpflash", "-i"},
        {"bbpflash", ""},
    };
    for (const Words& line : lines) {
        SCOPED_TRACE(testing::PrintToString(line));
        const FlagsOfUpdater updater(line);
        const tools::UpdaterOptions options = tools::ParseUpdaterOptions(line);
        EXPECT_EQ(updater.taken.force, options.force);
        EXPECT_EQ(updater.taken.info_only, options.info_only);
        EXPECT_EQ(updater.taken.status, options.status);
        EXPECT_EQ(updater.image, options.image);
    }
}

TEST(UpdaterOptions, AreNoneWithoutArguments) {
    const tools::UpdaterOptions options = tools::ParseUpdaterOptions({"bbpflash"});
    EXPECT_FALSE(options.status);
    EXPECT_EQ("", options.image);
}

}  // namespace
