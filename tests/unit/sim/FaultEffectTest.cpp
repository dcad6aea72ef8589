// SPDX-License-Identifier: Apache-2.0
// What each fault does to a head unit.
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/unit/sim/Bench.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Faults of a transfer

TEST(SimFaults, FailATransferOfWhichTheChipSeesNothing) {
    Bench bench({At(Event::Write, 2, Action::Fail, ETIMEDOUT)});
    EXPECT_EQ(0, bench.caller.Send(VersionQuery().Count(0).Build()));
    EXPECT_EQ(ETIMEDOUT, bench.caller.Send(VersionQuery().Count(1).Build()));
    EXPECT_EQ(RECEIVED, bench.caller.AskRaw(VersionQuery().Count(1).Build()).Status());
}

TEST(SimFaults, FailATransferThatTheChipHasSeen) {
    Bench bench({At(Event::Write, 1, Action::FailAfter, EIO)});
    EXPECT_EQ(EIO, bench.caller.Send(VersionQuery().Build()));
    bench.unit.Advance(REPLY_WAIT);
    EXPECT_EQ("1.0", bench.caller.Fetch().Text());
}

TEST(SimFaults, FailReads) {
    Bench bench({At(Event::Read, 1, Action::Fail, EBUSY),
                 At(Event::Read, 2, Action::FailAfter, EIO), At(Event::Read, 3, Action::Nak)});
    EXPECT_EQ(EBUSY, bench.caller.Ask(VersionQuery()).result);
    EXPECT_EQ(EIO, bench.caller.Fetch().result);
    EXPECT_EQ(ENXIO, bench.caller.Fetch().result);
    EXPECT_EQ("1.0", bench.caller.Fetch().Text());
    EXPECT_EQ(3u, bench.unit.GetReport().faults);
}

TEST(SimFaults, FailTheReplyToACommand) {
    Bench bench({OnReply(At(Event::Poll, 2, Action::Fail, EINTR))});
    EXPECT_EQ(0, bench.caller.Ask(Poll()).result);
    EXPECT_EQ(0, bench.caller.Ask(VersionQuery()).result);
    const Reply failed = bench.caller.Ask(Poll());
    EXPECT_EQ(EINTR, failed.result);
    EXPECT_EQ(0, bench.caller.Ask(Poll()).result);
}

TEST(SimFaults, CountEachKindOfMessageByItself) {
    Bench bench({At(Event::Segment, 2, Action::Nak), At(Event::Version, 1, Action::Nak),
                 At(Event::Unprotect, 2, Action::Nak)});
    EXPECT_EQ(ENXIO, bench.caller.Ask(VersionQuery()).result);
    EXPECT_EQ(ENXIO, bench.caller.SendImage(Bytes(SMALL, 1)).result);
    EXPECT_EQ(1u, bench.unit.GetReport().segments);
    EXPECT_EQ(ENXIO, bench.caller.Ask(Unprotect()).result);
    EXPECT_EQ(0, bench.caller.Ask(Unprotect()).result);
}

TEST(SimFaults, HappenFromThereOn) {
    Bench bench({FromThereOn(At(Event::Write, 2, Action::Nak))});
    EXPECT_EQ(0, bench.caller.Send(VersionQuery().Build()));
    EXPECT_EQ(ENXIO, bench.caller.Send(VersionQuery().Build()));
    EXPECT_EQ(ENXIO, bench.caller.Send(VersionQuery().Build()));
}

TEST(SimFaults, RestartTheChipBeforeInsideOrAfterAWrite) {
    const Bytes query = VersionQuery().Build();
    Bench before({At(Event::Write, 1, Action::Restart, 0, 0)});
    EXPECT_EQ(ENXIO, before.caller.Send(query));

    Bench inside({At(Event::Write, 1, Action::Restart, 0, 7)});
    EXPECT_EQ(EIO, inside.caller.Send(query));
    EXPECT_EQ(WireTime(7, 400000), inside.unit.Now());

    Bench after({At(Event::Write, 1, Action::Restart, 0, AFTER_THE_TRANSFER)});
    EXPECT_EQ(0, after.caller.Send(query));

    for (Bench* const bench : {&before, &inside, &after}) {
        EXPECT_EQ(ENXIO, bench->caller.Fetch().result) << "it is starting";
        bench->unit.Advance(milliseconds(1200));
        EXPECT_EQ(0u, bench->caller.Fetch().Count()) << "it has forgotten the query";
        EXPECT_EQ(RECEIVED, bench->caller.AskRaw(query).Status());
    }
}

TEST(SimFaults, LeaveTheIdleBusBehindWhereAReadBreaksOff) {
    Bench bench({At(Event::Read, 1, Action::PowerLoss, 0, 3)});
    const Reply reply = bench.caller.Ask(VersionQuery());
    EXPECT_EQ(0, reply.result);
    EXPECT_EQ(18, reply.read[0]);
    EXPECT_EQ(SYNC, reply.read[2]);
    EXPECT_EQ(0xFF, reply.read[3]);
    EXPECT_EQ(0xFF, reply.read[64]);
    bench.caller.Reset();
    EXPECT_EQ(ENXIO, bench.caller.Fetch().result);
}

TEST(SimFaults, RestartTheChipBeforeOrAfterARead) {
    Bench before({At(Event::Read, 1, Action::Restart, 0, 0)});
    EXPECT_EQ(ENXIO, before.caller.Ask(VersionQuery()).result);
    Bench after({At(Event::Read, 1, Action::Restart, 0, AFTER_THE_TRANSFER)});
    EXPECT_EQ("1.0", after.caller.Ask(VersionQuery()).Text());
    EXPECT_EQ(ENXIO, after.caller.Fetch().result);
}

TEST(SimFaults, LosePowerWhereverTheyAre) {
    for (const Event event : {Event::Lock, Event::Unlock, Event::Reset, Event::Raise}) {
        Bench bench({At(event, 1, Action::PowerLoss)});
        bench.unit.Lock();
        bench.unit.Unlock();
        bench.caller.Reset();
        EXPECT_EQ(ENXIO, bench.caller.Ask(VersionQuery()).result);
    }
}

// Faults of the lock and the reset line

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

// Faults of a reply

Reply VersionReplyWith(Action action, unsigned value, std::size_t offset = 0) {
    Bench bench({At(Event::Version, 1, action, value, offset)});
    return bench.caller.Ask(VersionQuery());
}

TEST(SimFaults, FlipABit) {
    const Reply sound = Bench({}).caller.Ask(VersionQuery());
    Reply reply = VersionReplyWith(Action::FlipBit, 6, 20);
    EXPECT_EQ(sound.read[20] ^ 0x40, reply.read[20]);
    reply.read[20] ^= 0x40;
    EXPECT_EQ(sound.read, reply.read);
}

TEST(SimFaults, SetAByteOfASoundReply) {
    const Reply reply = VersionReplyWith(Action::SetByte, 0x55, 1 + COUNT_AT);
    EXPECT_EQ(0x55u, reply.At(COUNT_AT));
    EXPECT_TRUE(reply.Sound());
}

TEST(SimFaults, SetTheCountByteOrTheLengthField) {
    EXPECT_EQ(200u, VersionReplyWith(Action::CountByte, 200).Count());
    EXPECT_EQ(0xABCDu, VersionReplyWith(Action::LengthField, 0xABCD).Field(LENGTH_AT));
}

TEST(SimFaults, MakeAReplyAllZeroOrAllOnes) {
    std::array<std::uint8_t, READ_SIZE> expected{};
    EXPECT_EQ(expected, VersionReplyWith(Action::AllZero, 0).read);
    expected.fill(0xFF);
    EXPECT_EQ(expected, VersionReplyWith(Action::AllOnes, 0).read);
}

TEST(SimFaults, RepeatThePreviousReply) {
    Bench bench({At(Event::Poll, 1, Action::PreviousReply)});
    const Reply version = bench.caller.Ask(VersionQuery());
    EXPECT_EQ(version.read, bench.caller.Ask(Poll()).read);
    EXPECT_EQ(STATUS_IDLE, bench.caller.PollStatus());
}

TEST(SimFaults, ReplyToAnotherCommand) {
    const Reply reply = VersionReplyWith(Action::OtherReply, 0);
    EXPECT_EQ(OPCODE_FLASH, reply.At(OPCODE_AT));
    EXPECT_TRUE(reply.Sound());
    Bench bench({At(Event::Poll, 1, Action::OtherReply)});
    EXPECT_EQ(OPCODE_VERSION, bench.caller.Ask(Poll()).At(OPCODE_AT));
}

TEST(SimFaults, MakeTheChecksumWrongAndNothingElse) {
    const Reply sound = Bench({}).caller.Ask(VersionQuery());
    Reply reply = VersionReplyWith(Action::WrongChecksum, 0);
    EXPECT_FALSE(reply.Sound());
    reply.read[reply.Count()] = sound.read[sound.Count()];
    EXPECT_EQ(sound.read, reply.read);
}

TEST(SimFaults, SetTheReceptionStatusOfASoundReply) {
    const Reply reply = VersionReplyWith(Action::StatusByte, 0x0C);
    EXPECT_EQ(0x0Cu, reply.Status());
    EXPECT_TRUE(reply.Sound());
}

TEST(SimFaults, SetTheProgrammingStatusOfASoundReply) {
    Bench bench({At(Event::Poll, 2, Action::ProgramStatus, 9),
                 At(Event::Read, 3, Action::ProgramStatus, 8)});
    EXPECT_EQ(STATUS_IDLE, bench.caller.PollStatus());
    const Reply poll = bench.caller.Ask(Poll());
    EXPECT_EQ(9u, poll.Payload(1));
    EXPECT_TRUE(poll.Sound());
    EXPECT_EQ(8u, bench.caller.Ask(FlashStatus()).Payload(0));
}

TEST(SimFaults, ChangeTheReplyOfTheKthWriteOrTheKthRead) {
    Bench bench({At(Event::Write, 2, Action::AllZero), At(Event::Read, 3, Action::AllOnes)});
    EXPECT_EQ("1.0", bench.caller.Version());
    EXPECT_EQ(0u, bench.caller.Ask(VersionQuery()).Count());
    EXPECT_EQ(255u, bench.caller.Ask(VersionQuery()).Count());
    EXPECT_EQ("1.0", bench.caller.Version());
}

// Faults of the chip

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
    EXPECT_EQ(Bench::Config().flash.back(), flash.back());
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
        for (unsigned action = 0; action <= static_cast<unsigned>(Action::SlowStart); ++action) {
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

}  // namespace
}  // namespace sim
