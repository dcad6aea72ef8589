// SPDX-License-Identifier: Apache-2.0
// What each fault does to a transfer.
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/unit/sim/Bench.h"

namespace sim {
namespace {

using std::chrono::milliseconds;

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
    EXPECT_EQ(0, bench.caller.Send(Poll().Build())) << "the command itself goes well";
    EXPECT_EQ(EINTR, bench.caller.Fetch().result);
    EXPECT_EQ(1u, bench.unit.GetReport().faults);
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

TEST(SimFaults, HappenTogetherToOneTransfer) {
    Bench bench({At(Event::Write, 1, Action::FailAfter, EIO),
                 At(Event::Version, 1, Action::Restart, 0, AFTER_THE_TRANSFER)});
    EXPECT_EQ(EIO, bench.caller.Send(VersionQuery().Build()));
    EXPECT_EQ(ENXIO, bench.caller.Fetch().result) << "it is starting";
    EXPECT_EQ(2u, bench.unit.GetReport().faults);
}

TEST(SimFaults, AreDecidedByTheFirstWhereTwoSetTheSame) {
    Bench bench({At(Event::Write, 1, Action::Fail, EIO), At(Event::Version, 1, Action::Nak),
                 At(Event::Write, 2, Action::Restart, 0, 9),
                 At(Event::Version, 2, Action::PowerLoss, 0, 3)});
    EXPECT_EQ(EIO, bench.caller.Send(VersionQuery().Build()));
    const Duration before = bench.unit.Now();
    EXPECT_EQ(EIO, bench.caller.Send(VersionQuery().Build()));
    EXPECT_EQ(WireTime(3, 400000), bench.unit.Now() - before) << "the earlier place counts";
    bench.caller.Reset();
    EXPECT_EQ(ENXIO, bench.caller.Send(VersionQuery().Build())) << "for good";
}

TEST(SimFaults, AreNotHiddenByABusyBurn) {
    Bench bench({FromThereOn(At(Event::Poll, 1, Action::Busy)), At(Event::Poll, 2, Action::Nak)});
    bench.caller.SendImage(Bytes(SMALL, 1));
    EXPECT_EQ(STATUS_ERASING, bench.caller.PollStatus());
    EXPECT_EQ(ENXIO, bench.caller.Ask(Poll()).result);
    EXPECT_EQ(3u, bench.unit.GetReport().faults);
}

}  // namespace
}  // namespace sim
