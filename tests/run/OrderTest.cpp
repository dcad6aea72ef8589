// SPDX-License-Identifier: Apache-2.0
// The order of everything on the bus, the reset line and the clock.
#include <chrono>
#include <set>

#include "tests/run/RunTest.h"

namespace run {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

const Strings RESET = {"open /dev/gpio/HD_DAB2Reset", "line 0", "delay 200", "line 1",
                       "delay 3000"};

Strings Exchange(const std::string& request, const std::string& wait) {
    return {"lock", request, "unlock", wait, "lock", "read", "unlock"};
}

const Strings VERSION = Exchange("write 80 01", "usleep 5000");
const Strings UNPROTECT = Exchange("write 84 0B", "usleep 5000");
const Strings POLL = Strings{"delay 350"} + Exchange("write 84 05", "usleep 1000");

class OrderTest : public RunTest {
  protected:
    // The trace's part that is the download: what stands between the unprotect and the first poll.
    Strings Download() const {
        const Strings trace = Trace();
        const auto start = 2 + RESET.size() + VERSION.size() + UNPROTECT.size();
        Strings part;
        for (std::size_t i = start; i < trace.size() && trace[i] != "delay 350"; ++i) {
            part.push_back(trace[i]);
        }
        return part;
    }
};

}  // namespace

TEST_F(OrderTest, InfoOnlyOpensPulsesAndAsksOnce) {
    Run("-i");
    EXPECT_EQ(Strings({"open /dev/i2c1", "speed 400000"}) + RESET + VERSION, Trace());
}

TEST_F(OrderTest, UpdateWithoutWaitingForTheChipTakesOnePollAndComesBackToTheVersion) {
    chip.burn = {milliseconds(0), milliseconds(0), milliseconds(0)};
    Unit().files.Put("image.bin", {virt::FileContent::WithLabelOnly("2.0.0xx")});
    chip.reports = "2.0.0";
    Run("-s image.bin");
    const Strings trace = Trace();
    const Strings download = Download();
    EXPECT_EQ(Strings({"open /dev/i2c1", "speed 400000"}) + RESET + VERSION + UNPROTECT + download +
                  POLL + RESET + VERSION,
              trace);
}

TEST_F(OrderTest, EachSegmentIsLockWriteUnlockWaitLockReadUnlock) {
    Run("-s image.bin");
    const Strings download = Download();
    ASSERT_EQ(516U * 7, download.size());
    for (std::size_t at = 0; at < download.size(); at += 7) {
        const std::string request = download[at + 1];
        ASSERT_EQ("write 84", request.substr(0, 8)) << "segment " << at / 7;
        EXPECT_EQ(Exchange(request, "usleep 750"),
                  Strings(download.begin() + static_cast<long>(at),
                          download.begin() + static_cast<long>(at) + 7))
            << "segment " << at / 7;
    }
}

TEST_F(OrderTest, FirstSegmentSaysProgramAndTheOthersAreFileBytesOnly) {
    Run("-s image.bin");
    const virt::CallLog& log = Unit().Log();
    virt::Bytes sent;
    int segment = 0;
    for (const virt::Call& call : log.Calls()) {
        const std::string_view bytes = log.Data(call);
        // A full segment or, by its number, the last one.
        if (call.kind != CallKind::Send || (bytes.size() < 2048 && segment != 515)) {
            continue;
        }
        const std::string_view payload = bytes.substr(12, bytes.size() - 13);
        if (segment == 0) {
            EXPECT_EQ(0x04, payload[0]);
        }
        sent.insert(sent.end(), payload.begin() + (segment == 0 ? 1 : 0), payload.end());
        EXPECT_EQ(segment & 0xFF, static_cast<unsigned char>(bytes[10]));
        EXPECT_EQ(segment >> 8, static_cast<unsigned char>(bytes[11]));
        if (++segment == 516) {
            break;
        }
    }
    EXPECT_EQ(*SampleImage().bytes, sent);
}

TEST_F(OrderTest, PollsComeEvery350MillisecondsPlusTheExchange) {
    Run("-s image.bin");
    const Strings trace = Trace();
    const Strings polls(trace.end() - static_cast<long>((RESET + VERSION).size() + 6 * 8),
                        trace.end() - static_cast<long>((RESET + VERSION).size()));
    EXPECT_EQ(Repeat(POLL, 6), polls);
}

TEST_F(OrderTest, ResetPulseIsLow200MillisecondsAndTheChipGetsThreeSeconds) {
    Run("-i");
    virt::Duration lowered{};
    virt::Duration raised{};
    virt::Duration first_lock{};
    for (const virt::Call& call : Unit().Log().Calls()) {
        if (call.kind == CallKind::WriteReset) {
            (Unit().Log().Data(call) == "0" ? lowered : raised) = call.at;
        } else if (call.kind == CallKind::Lock && first_lock == virt::Duration::zero()) {
            first_lock = call.at;
        }
    }
    EXPECT_EQ(milliseconds(200), raised - lowered);
    EXPECT_EQ(milliseconds(3000), first_lock - raised);
}

TEST_F(OrderTest, CounterStartsAtZeroAfterEachResetAndFollowsTheMessages) {
    Run("-s image.bin");
    const virt::CallLog& log = Unit().Log();
    int expected = 0;
    for (const virt::Call& call : log.Calls()) {
        if (call.kind == CallKind::WriteReset) {
            expected = 0;
        } else if (call.kind == CallKind::Send) {
            EXPECT_EQ(expected & 0xFF, static_cast<unsigned char>(log.Data(call)[2]));
            ++expected;
        }
    }
}

TEST_F(OrderTest, EachResetOpensTheLineAnewAndKeepsTheOldOneOpen) {
    chip.reports = "never";
    Run("-s image.bin");
    std::vector<long> opened;
    std::vector<long> written;
    for (const virt::Call& call : Unit().Log().Calls()) {
        if (call.kind == CallKind::Open) {
            opened.push_back(static_cast<long>(call.result));
        } else if (call.kind == CallKind::WriteReset) {
            written.push_back(static_cast<long>(call.argument));
        }
    }
    EXPECT_EQ((std::vector<long>{3, 4, 5, 6, 7}), opened);
    EXPECT_EQ((std::vector<long>{4, 4, 5, 5, 6, 6, 7, 7}), written);
}

TEST_F(OrderTest, FileIsOpenedAndMeasuredBeforeTheFlashIsUnprotected) {
    Run("-s image.bin");
    const std::set<CallKind> of_interest = {CallKind::Fopen, CallKind::Fseek, CallKind::Ftell,
                                            CallKind::Fread, CallKind::Send};
    std::vector<CallKind> kinds;
    for (const virt::Call& call : Unit().Log().Calls()) {
        if (of_interest.count(call.kind) != 0) {
            kinds.push_back(call.kind);
        }
    }
    const std::vector<CallKind> start = {
        CallKind::Send,                                     // version
        CallKind::Fopen, CallKind::Fseek, CallKind::Fread,  // label
        CallKind::Fopen, CallKind::Fseek, CallKind::Ftell,  // measured
        CallKind::Fseek, CallKind::Send,                    // unprotect
        CallKind::Fread, CallKind::Send,  CallKind::Fread, CallKind::Send};
    ASSERT_GT(kinds.size(), start.size());
    kinds.resize(start.size());
    EXPECT_EQ(start, kinds);
}

TEST_F(OrderTest, EachPercentageIsWrittenAfterItsSegmentIsAcknowledged) {
    Run("-s image.bin");
    int acknowledged = 0;
    Strings written;
    const virt::CallLog& log = Unit().Log();
    for (const virt::Call& call : log.Calls()) {
        if (call.kind == CallKind::Receive) {
            ++acknowledged;
        } else if (call.kind == CallKind::Output && written.size() < 80) {
            // Replies before the download's: version, unprotect.
            const int segments = acknowledged - 2;
            const int percentage = std::stoi(std::string(log.Data(call)));
            const int sent = std::min(segments * 2035 - 1, 1048576);
            EXPECT_EQ(static_cast<long>(sent) * 80 / 1048576, percentage);
            written.push_back(std::to_string(percentage));
        }
    }
    EXPECT_EQ(Numbers(1, 80), written);
}

}  // namespace run
