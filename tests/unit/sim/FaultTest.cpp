// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "sim/Fault.h"

namespace sim {
namespace {

Fault At(unsigned nth, unsigned times) {
    Fault fault;
    fault.nth = nth;
    fault.times = times;
    return fault;
}

TEST(SimFault, HappensOnceUnlessToldOtherwise) {
    const Fault fault = At(3, Fault().times);
    EXPECT_FALSE(Covers(fault, 2));
    EXPECT_TRUE(Covers(fault, 3));
    EXPECT_FALSE(Covers(fault, 4));
}

TEST(SimFault, HappensSeveralTimesInARow) {
    const Fault fault = At(2, 3);
    EXPECT_FALSE(Covers(fault, 1));
    EXPECT_TRUE(Covers(fault, 2));
    EXPECT_TRUE(Covers(fault, 4));
    EXPECT_FALSE(Covers(fault, 5));
}

TEST(SimFault, HappensFromThereOn) {
    const Fault fault = At(2, FOR_EVER);
    EXPECT_FALSE(Covers(fault, 1));
    EXPECT_TRUE(Covers(fault, 2));
    EXPECT_TRUE(Covers(fault, 4000000000u));
}

TEST(SimFault, KnowsWhichActionsChangeAReply) {
    EXPECT_TRUE(ChangesReply(Action::FlipBit));
    EXPECT_TRUE(ChangesReply(Action::ProgramStatus));
    EXPECT_FALSE(ChangesReply(Action::Nak));
    EXPECT_FALSE(ChangesReply(Action::RefuseSegment));
}

}  // namespace
}  // namespace sim
