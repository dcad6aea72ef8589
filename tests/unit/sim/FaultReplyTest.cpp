// SPDX-License-Identifier: Apache-2.0
// What each fault does to a reply.
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/unit/sim/Bench.h"

namespace sim {
namespace {

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

TEST(SimFaults, LeaveARepliesBytesAloneUnlessTheyChangeReplies) {
    ReadBytes previous;
    previous.fill(0x11);
    for (std::size_t action = 0; action < ACTIONS; ++action) {
        Fault fault = At(Event::Read, 1, static_cast<Action>(action), 0x5A, 20);
        ReadBytes bytes{};
        bytes[0] = 18;
        const ReadBytes before = bytes;
        MakeReply(fault, previous, bytes.data());
        EXPECT_EQ(!ChangesReply(fault.action), bytes == before) << action;
    }
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

TEST(SimFaults, RepeatThePreviousReplyAsTheChipHasSentIt) {
    const Reply sound = Bench({}).caller.Ask(VersionQuery());
    Bench bench(
        {At(Event::Version, 1, Action::AllOnes), At(Event::Poll, 1, Action::PreviousReply)});
    bench.caller.Ask(VersionQuery());
    EXPECT_EQ(sound.read, bench.caller.Ask(Poll()).read);
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

TEST(SimFaults, KeepAReplySoundWhoseCountByteIsSet) {
    const Reply sound = Bench({}).caller.Ask(VersionQuery());
    for (const Action action : {Action::SetByte, Action::CountByte}) {
        Reply reply = VersionReplyWith(action, 13, 0);
        EXPECT_EQ(13u, reply.Count());
        reply.read[0] = sound.read[0];
        EXPECT_EQ(sound.read, reply.read);
    }
}

}  // namespace
}  // namespace sim
