// SPDX-License-Identifier: Apache-2.0
// What each fault does to the lock and the reset line.
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/unit/sim/Bench.h"

namespace sim {
namespace {

using std::chrono::seconds;

TEST(SimFaults, RefuseTheLock) {
    Bench bench({At(Event::Lock, 2, Action::Fail, EBUSY)});
    EXPECT_EQ(0, bench.unit.Lock());
    EXPECT_EQ(0, bench.unit.Unlock());
    EXPECT_EQ(EBUSY, bench.unit.Lock());
    EXPECT_FALSE(bench.unit.GetReport().locked);
}

TEST(SimFaults, NeverGrantTheLock) {
    Bench bench({At(Event::Lock, 1, Action::NeverGrant)});
    EXPECT_EQ(NEVER_RETURNS, bench.unit.Lock());
}

TEST(SimFaults, FailOrLoseTheUnlock) {
    Bench bench(
        {At(Event::Unlock, 1, Action::Fail, EPERM), At(Event::Unlock, 2, Action::LoseUnlock)});
    bench.unit.Lock();
    EXPECT_EQ(EPERM, bench.unit.Unlock());
    EXPECT_TRUE(bench.unit.GetReport().locked);
    EXPECT_EQ(0, bench.unit.Unlock());
    EXPECT_TRUE(bench.unit.GetReport().locked);
    EXPECT_EQ(0, bench.unit.Unlock());
    EXPECT_FALSE(bench.unit.GetReport().locked);
}

TEST(SimFaults, FailAWriteToTheResetLineWhichKeepsItsLevel) {
    Bench bench({At(Event::Reset, 1, Action::Fail, EIO), At(Event::Raise, 1, Action::Fail, EIO)});
    EXPECT_EQ(EIO, bench.unit.WriteReset("0", 1));
    EXPECT_TRUE(bench.unit.ResetLine());
    EXPECT_EQ(0, bench.unit.WriteReset("0", 1));
    EXPECT_EQ(EIO, bench.unit.WriteReset("1", 1));
    EXPECT_FALSE(bench.unit.ResetLine());
}

TEST(SimFaults, HaveADeadResetLine) {
    Bench bench({FromThereOn(At(Event::Reset, 1, Action::DeadLine))});
    bench.caller.Ask(VersionQuery());
    bench.caller.Reset();
    EXPECT_EQ(0u, bench.unit.GetReport().resets);
    const Reply reply = bench.caller.Ask(VersionQuery());
    EXPECT_EQ(RECEIVED | COUNT_MISMATCH, reply.Status()) << "the chip has not restarted";
}

TEST(SimFaults, MakeAStartSlowOrEndless) {
    Bench bench(
        {At(Event::Reset, 1, Action::SlowStart, 5000), At(Event::Reset, 2, Action::NeverReady)});
    bench.caller.Reset();
    EXPECT_EQ(ENXIO, bench.caller.Send(VersionQuery().Build()));
    bench.unit.Advance(seconds(2));
    EXPECT_EQ(0, bench.caller.Send(VersionQuery().Build()));
    bench.caller.Reset();
    bench.unit.Advance(seconds(1000000));
    EXPECT_EQ(ENXIO, bench.caller.Send(VersionQuery().Build()));
    bench.caller.Reset();
    EXPECT_EQ(0, bench.caller.Send(VersionQuery().Build()));
}

}  // namespace
}  // namespace sim
