// SPDX-License-Identifier: Apache-2.0
// The head unit round the chip: the bus's time and lock, the reset line, observers.
#include <gtest/gtest.h>

#include <cerrno>

#include "sim/HeadUnit.h"
#include "tests/unit/sim/Bench.h"

namespace sim {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Time

TEST(SimWireTime, IsNineBitsAByteAndAddressStartAndStop) {
    EXPECT_EQ(Duration(27500), WireTime(0, 400000));
    EXPECT_EQ(microseconds(1490), WireTime(65, 400000));
    EXPECT_EQ(Duration(46107500), WireTime(2048, 400000));
    EXPECT_EQ(Duration(184430000), WireTime(2048, 100000));
    EXPECT_EQ(Duration(0), WireTime(2048, 0));
}

TEST(SimHeadUnit, TakesTheWiresTimeForATransfer) {
    Bench bench({});
    bench.caller.Send(VersionQuery().Build());
    EXPECT_EQ(WireTime(14, 400000), bench.unit.Now());
    bench.caller.Fetch();
    EXPECT_EQ(WireTime(14, 400000) + WireTime(65, 400000), bench.unit.Now());
}

TEST(SimHeadUnit, TakesNoTimeOnABusOf0Hz) {
    Bench bench({});
    bench.unit.SetBusHz(0);
    bench.caller.Send(VersionQuery().Build());
    EXPECT_EQ(Duration(0), bench.unit.Now());
}

TEST(SimHeadUnit, HasNobodyAtOtherAddresses) {
    Bench bench({});
    std::uint8_t byte = 0;
    EXPECT_EQ(ENXIO, bench.unit.Send(0x18, &byte, 1));
    EXPECT_EQ(ENXIO, bench.unit.Receive(0x2E, &byte, 1));
    EXPECT_EQ(WireTime(0, 400000) * 2, bench.unit.Now());
}

// The lock and the reset line

TEST(SimHeadUnit, KnowsWhetherTheLockIsHeld) {
    Bench bench({});
    EXPECT_EQ(0, bench.unit.Lock());
    EXPECT_TRUE(bench.unit.GetReport().locked);
    EXPECT_EQ(0, bench.unit.Unlock());
    EXPECT_FALSE(bench.unit.GetReport().locked);
}

TEST(SimHeadUnit, TakesLevelsOnly) {
    Bench bench({});
    EXPECT_EQ(EINVAL, bench.unit.WriteReset("", 0));
    EXPECT_EQ(EINVAL, bench.unit.WriteReset("x", 1));
    EXPECT_EQ(0, bench.unit.WriteReset("0\n", 2));
    EXPECT_FALSE(bench.unit.ResetLine());
    EXPECT_EQ(0, bench.unit.WriteReset("1", 1));
    EXPECT_TRUE(bench.unit.ResetLine());
}

TEST(SimHeadUnit, ReportsWhatItSaw) {
    Bench bench({});
    bench.caller.Reset();
    bench.caller.SendImage(MakeSampleImage("2.0"));
    bench.unit.Advance(seconds(15));
    bench.caller.PollStatus();
    bench.caller.Reset();

    const Report report = bench.unit.GetReport();
    EXPECT_EQ(2u, report.resets);
    EXPECT_EQ(1u + 516u + 1u, report.messages);
    EXPECT_EQ(report.messages, report.reads);
    EXPECT_EQ(516u, report.segments);
    EXPECT_EQ(1u, report.burns);
    EXPECT_EQ(1u, report.polls);
    EXPECT_EQ(0u, report.faults);
    EXPECT_EQ(1048576u, report.image_size);
    EXPECT_EQ("2.0", report.version);
    EXPECT_EQ(&bench.unit.Chip().Flash(), report.flash);
}

// Observers

struct Recorder : Observer {
    std::vector<Transfer> transfers;
    std::vector<Bytes> bytes;
    std::vector<std::pair<bool, Duration>> levels;
    std::vector<Bytes> flashes;

    void OnTransfer(const Transfer& transfer) override {
        transfers.push_back(transfer);
        bytes.emplace_back(transfer.bytes, transfer.bytes + transfer.moved);
    }
    void OnReset(bool high, Duration at) override { levels.emplace_back(high, at); }
    void OnFlash(const FlashBytes& flash) override { flashes.push_back(flash); }
};

TEST(SimHeadUnit, ShowsTheFlashWhenItChangesByItself) {
    Bench bench({});
    Recorder recorder;
    bench.unit.AddObserver(&recorder);
    bench.caller.SendImage(Bytes(SMALL, 1));
    bench.unit.Advance(std::chrono::seconds(11));
    EXPECT_EQ(0u, recorder.flashes.size());
    bench.unit.Advance(std::chrono::seconds(2));
    EXPECT_EQ((std::vector<Bytes>{Bytes(SMALL, 1)}), recorder.flashes);
}

TEST(SimHeadUnit, ShowsTheFlashWhenItIsSwitchedOffInTheBurn) {
    Bench bench({});
    Recorder recorder;
    bench.unit.AddObserver(&recorder);
    bench.caller.SendImage(Bytes(SMALL, 1));
    bench.unit.SwitchOff();
    ASSERT_EQ(1u, recorder.flashes.size());
    EXPECT_EQ(0xFF, recorder.flashes[0].front());
    bench.unit.Advance(std::chrono::seconds(60));
    EXPECT_EQ(1u, recorder.flashes.size());
}

TEST(SimHeadUnit, ShowsEachTransferAndLevelToItsObservers) {
    Bench bench({At(Event::Read, 1, Action::Nak)});
    Recorder recorder;
    bench.unit.AddObserver(&recorder);
    const Bytes query = VersionQuery().Build();
    bench.caller.Send(query);
    bench.unit.Advance(REPLY_WAIT);
    bench.caller.Fetch();
    const Reply reply = bench.caller.Fetch();
    bench.caller.Reset();

    ASSERT_EQ(3u, recorder.transfers.size());
    EXPECT_EQ(Direction::Write, recorder.transfers[0].direction);
    EXPECT_EQ(0x17u, recorder.transfers[0].address);
    EXPECT_EQ(Duration(0), recorder.transfers[0].start);
    EXPECT_EQ(WireTime(14, 400000), recorder.transfers[0].end);
    EXPECT_EQ(query, recorder.bytes[0]);
    EXPECT_FALSE(recorder.transfers[0].faulty);
    EXPECT_EQ(Direction::Read, recorder.transfers[1].direction);
    EXPECT_FALSE(recorder.transfers[1].acknowledged);
    EXPECT_EQ(ENXIO, recorder.transfers[1].result);
    EXPECT_EQ(0u, recorder.transfers[1].moved);
    EXPECT_TRUE(recorder.transfers[1].faulty);
    EXPECT_EQ(Bytes(reply.read.begin(), reply.read.end()), recorder.bytes[2]);
    ASSERT_EQ(2u, recorder.levels.size());
    EXPECT_FALSE(recorder.levels[0].first);
    EXPECT_EQ(milliseconds(200), recorder.levels[1].second - recorder.levels[0].second);
}

}  // namespace
}  // namespace sim
