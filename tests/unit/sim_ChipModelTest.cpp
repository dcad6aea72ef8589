// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "sim/ChipModel.h"
#include "sim/HeadUnit.h"
#include "sim/SampleImage.h"
#include "tests/unit/sim_Requests.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(SimChip, IsUpdatedByAWholeDownload) {
    HeadUnit unit(ChipConfig{});
    Caller caller(unit);
    const Bytes image = MakeSampleImage("2.0.0");

    caller.Reset();
    EXPECT_EQ("1.0.0", caller.Version());
    EXPECT_EQ(RECEIVED, caller.SendImage(image).Status());
    EXPECT_EQ(STATUS_ERASING, caller.PollStatus());
    unit.Advance(seconds(4));
    EXPECT_EQ(STATUS_PROGRAMMING, caller.PollStatus());
    unit.Advance(seconds(8));
    EXPECT_EQ(STATUS_VERIFYING, caller.PollStatus());
    unit.Advance(seconds(3));
    EXPECT_EQ(STATUS_COMPLETE, caller.PollStatus());
    EXPECT_EQ("1.0.0", caller.Version());
    caller.Reset();
    EXPECT_EQ("2.0.0", caller.Version());
    EXPECT_EQ(image, unit.Chip().Flash());
    EXPECT_EQ(STATUS_IDLE, caller.PollStatus());
}

}  // namespace
}  // namespace sim
