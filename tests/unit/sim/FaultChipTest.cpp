// SPDX-License-Identifier: Apache-2.0
// What each fault does to the chip.
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/unit/sim/Bench.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(SimFaults, RefuseASegment) {
    Bench bench({At(Event::Segment, 2, Action::RefuseSegment)});
    const Reply reply = bench.caller.SendImage(Bytes(SMALL, 1));
    EXPECT_EQ(0u, reply.Status());
    EXPECT_EQ(1u, reply.Field(SEGMENT_AT));
    EXPECT_EQ(1u, bench.unit.GetReport().segments);
}

TEST(SimFaults, ForgetASegmentAndFindTheImageBad) {
    Bench bench({At(Event::Segment, 2, Action::ForgetSegment)});
    EXPECT_EQ(RECEIVED, bench.caller.SendImage(Bytes(SMALL, 1)).Status());
    EXPECT_EQ(STATUS_VERIFICATION_FAILED, bench.caller.PollStatus());
    EXPECT_EQ(Bench::Config().flash, bench.unit.Chip().Flash());
}

TEST(SimFaults, RejectTheReceivedImageOfTheKthBurnOnly) {
    Bench bench({At(Event::Burn, 1, Action::RejectImage)});
    bench.caller.SendImage(Bytes(SMALL, 1));
    EXPECT_EQ(STATUS_VERIFICATION_FAILED, bench.caller.PollStatus());
    EXPECT_EQ(Bench::Config().flash, bench.unit.Chip().Flash());
    bench.caller.SendImage(Bytes(SMALL, 1));
    EXPECT_EQ(STATUS_ERASING, bench.caller.PollStatus());
}

TEST(SimFaults, ReadBackAnotherImageThanWasProgrammed) {
    Bench bench({At(Event::Burn, 1, Action::VerifyFails)});
    bench.caller.SendImage(Bytes(SMALL, 1));
    bench.unit.Advance(seconds(14));
    EXPECT_EQ(STATUS_VERIFYING, bench.caller.PollStatus());
    bench.unit.Advance(seconds(1));
    EXPECT_EQ(STATUS_VERIFICATION_FAILED, bench.caller.PollStatus());
    bench.caller.Reset();
    EXPECT_EQ(LOADER_VERSION, bench.caller.Version());
}

TEST(SimFaults, HangInEraseUntilTheNextReset) {
    Bench bench({At(Event::Burn, 1, Action::DieErasing, 50)});
    bench.caller.SendImage(Bytes(SMALL, 1));
    bench.unit.Advance(milliseconds(1900));
    EXPECT_EQ(STATUS_ERASING, bench.caller.PollStatus());
    bench.unit.Advance(milliseconds(100));
    EXPECT_EQ(ENXIO, bench.caller.Ask(Poll()).result);
    bench.unit.Advance(seconds(60));
    EXPECT_EQ(ENXIO, bench.caller.Ask(Poll()).result);
    bench.caller.Reset();
    EXPECT_EQ(LOADER_VERSION, bench.caller.Version());
    const Bytes& flash = bench.unit.Chip().Flash();
    EXPECT_EQ(0xFF, flash[flash.size() / 2 - 1]);
    EXPECT_EQ(Bench::Config().flash->back(), flash.back());
}

TEST(SimFaults, HangInProgrammingUntilTheNextReset) {
    Bench bench({At(Event::Burn, 1, Action::DieProgramming, 25)});
    bench.caller.SendImage(Bytes(SMALL, 1));
    bench.unit.Advance(seconds(5));
    EXPECT_EQ(STATUS_PROGRAMMING, bench.caller.PollStatus());
    bench.unit.Advance(seconds(1));
    EXPECT_EQ(ENXIO, bench.caller.Ask(Poll()).result);
    bench.caller.Reset();
    EXPECT_EQ(LOADER_VERSION, bench.caller.Version());
    const Bytes& flash = bench.unit.Chip().Flash();
    EXPECT_EQ(SMALL, flash.size());
    EXPECT_EQ(1, flash[SMALL / 4 - 1]);
    EXPECT_EQ(0xFF, flash[SMALL / 4]);
}

TEST(SimFaults, HoldABurnForSomePolls) {
    Fault busy = At(Event::Poll, 2, Action::Busy);
    busy.times = 2;
    Bench bench({busy});
    bench.caller.SendImage(Bytes(SMALL, 1));
    EXPECT_EQ(STATUS_ERASING, bench.caller.PollStatus());
    for (int poll = 2; poll <= 3; ++poll) {
        bench.unit.Advance(seconds(60));
        EXPECT_EQ(STATUS_ERASING, bench.caller.PollStatus());
    }
    bench.unit.Advance(seconds(60));
    EXPECT_EQ(STATUS_COMPLETE, bench.caller.PollStatus());
}

TEST(SimFaults, HoldABurnForEver) {
    Bench bench({FromThereOn(At(Event::Poll, 1, Action::Busy))});
    bench.caller.SendImage(Bytes(SMALL, 1));
    bench.unit.Advance(seconds(1000));
    EXPECT_EQ(STATUS_ERASING, bench.caller.PollStatus());
}

TEST(SimFaults, DoNotCrashTheHeadUnitWhereTheyMakeNoSense) {
    for (unsigned event = 0; event < EVENTS; ++event) {
        for (unsigned action = 0; action < ACTIONS; ++action) {
            const Fault fault = FromThereOn(
                At(static_cast<Event>(event), 1, static_cast<Action>(action), 70000, 70000));
            Bench bench({fault, OnReply(fault)});
            bench.unit.Lock();
            bench.unit.Unlock();
            bench.caller.Reset();
            bench.caller.SendImage(Bytes(100, 1));
            bench.unit.Advance(seconds(20));
            bench.caller.PollStatus();
            std::uint8_t bytes[3];
            bench.unit.Receive(CHIP_ADDRESS, bytes, sizeof bytes);
            bench.unit.Send(CHIP_ADDRESS, nullptr, 0);
        }
    }
}

TEST(SimFaults, OfABurnAreCountedWhenItComes) {
    Bench bench({At(Event::Burn, 2, Action::RejectImage), At(Event::Burn, 2, Action::VerifyFails)});
    bench.caller.SendImage(Bytes(SMALL, 1));
    EXPECT_EQ(0u, bench.unit.GetReport().faults);
    bench.unit.Advance(seconds(15));
    bench.caller.SendImage(Bytes(SMALL, 1));
    EXPECT_EQ(2u, bench.unit.GetReport().faults);
}

TEST(SimFaults, CutAWriteShortDuringWhichTheChipHangs) {
    Bench bench({At(Event::Burn, 1, Action::DieErasing, 50)});
    bench.caller.SendImage(Bytes(SMALL, 1));
    const unsigned messages = bench.unit.GetReport().messages;
    const Duration death = bench.unit.Now() + *bench.unit.Chip().UntilNextPhase();
    bench.unit.Advance(death - WireTime(7, 400000) - bench.unit.Now());
    EXPECT_EQ(EIO, bench.caller.Send(Poll().Build()));
    EXPECT_EQ(death, bench.unit.Now());
    EXPECT_EQ(messages, bench.unit.GetReport().messages);
    EXPECT_EQ(ENXIO, bench.caller.Send(Poll().Build()));
}

}  // namespace
}  // namespace sim
