// SPDX-License-Identifier: Apache-2.0
// The captures of the bus, byte by byte.
#include <gtest/gtest.h>

#include <bitset>
#include <functional>
#include <sstream>

#include "common/Failure.h"
#include "sim/PcapWriter.h"
#include "sim/VcdWriter.h"
#include "tests/tools/TemporaryFolder.h"
#include "tests/unit/sim/Bench.h"

namespace sim {
namespace {

constexpr std::size_t FILE_HEADER = 24;
constexpr std::size_t FRAME_HEADER = 16;

// The frames of a capture in the byte order of this machine, without their headers.
std::vector<std::string> FramesOf(const std::string& capture) {
    std::vector<std::string> frames;
    for (std::size_t at = FILE_HEADER; at + FRAME_HEADER <= capture.size();) {
        std::uint32_t size = 0;
        capture.copy(reinterpret_cast<char*>(&size), sizeof size, at + 8);
        frames.push_back(capture.substr(at + FRAME_HEADER, size));
        at += FRAME_HEADER + size;
    }
    return frames;
}

TEST(SimCaptures, TellWritesFromReads) {
    const TemporaryFolder folder;
    Bench bench({});
    PcapWriter writer(folder.Path("a.pcap"));
    bench.unit.AddObserver(&writer);
    const Bytes query = VersionQuery().Build();
    const Reply reply = bench.caller.AskRaw(query);
    writer.Close();

    const auto text = [](const auto& bytes) { return std::string(bytes.begin(), bytes.end()); };
    const std::vector<std::string> frames = FramesOf(folder.Read("a.pcap"));
    ASSERT_EQ(2u, frames.size());
    // The bus, the flags, the address byte: the last bit of both is set in a read.
    const char address = static_cast<char>(CHIP_ADDRESS << 1);
    const std::string write = {1, 0, 0, 0, 0, address};
    const std::string read = {1, 0, 0, 0, 1, static_cast<char>(address | 1)};
    EXPECT_EQ(write + text(query), frames[0]);
    EXPECT_EQ(read + text(reply.read), frames[1]);
}

TEST(SimCaptures, HaveTheTimeOfEachTransferToTheNanosecond) {
    const TemporaryFolder folder;
    Bench bench({});
    bench.unit.SetBusHz(0);
    bench.unit.Advance(std::chrono::nanoseconds(1500000003));
    PcapWriter writer(folder.Path("a.pcap"), std::chrono::seconds(7));
    bench.unit.AddObserver(&writer);
    bench.caller.Send(VersionQuery().Build());
    writer.Close();
    std::uint32_t time[2] = {};
    folder.Read("a.pcap").copy(reinterpret_cast<char*>(time), sizeof time, FILE_HEADER);
    EXPECT_EQ(8u, time[0]);
    EXPECT_EQ(500000003u, time[1]);
}

// The levels of SDA at the rising edges of SCL, as a logic analyser finds them in the waveform.
std::string BitsOf(const std::string& waveform) {
    std::istringstream lines(waveform);
    std::string bits;
    char data = '1';
    for (std::string line; std::getline(lines, line);) {
        if (line == "0d" || line == "1d") {
            data = line[0];
        } else if (line == "1c") {
            bits += data;
        }
    }
    return bits.substr(1);  // the bus was idle before
}

// A byte and the receiver's answer to it.
std::string BitsOf(unsigned byte, bool acknowledged) {
    return std::bitset<8>(byte).to_string() + (acknowledged ? "0" : "1");
}

TEST(SimCaptures, ShowEachBitAndEachAcknowledgement) {
    const TemporaryFolder folder;
    Bench bench({});
    VcdWriter writer(folder.Path("a.vcd"), BUS_HZ, {});
    bench.unit.AddObserver(&writer);
    const Bytes query = VersionQuery().Build();
    bench.caller.Send(query);
    const std::uint8_t byte = 0;
    bench.unit.Send(CHIP_ADDRESS + 1, &byte, 1);
    writer.Close();

    std::string expected = BitsOf(CHIP_ADDRESS << 1, true);
    for (const std::uint8_t sent : query) {
        expected += BitsOf(sent, true);
    }
    expected += "0";  // the stop
    expected += BitsOf((CHIP_ADDRESS + 1) << 1, false) + "0";
    EXPECT_EQ(expected, BitsOf(folder.Read("a.vcd")));
}

TEST(SimCaptures, SayWhenTheyCannotBeWritten) {
    EXPECT_THROW(PcapWriter("/nowhere/a.pcap"), common::Failure);
    EXPECT_THROW(VcdWriter("/nowhere/a.vcd", BUS_HZ, {}), common::Failure);
    Bench bench({});
    PcapWriter capture("/dev/full");
    VcdWriter waveform("/dev/full", BUS_HZ, {});
    bench.unit.AddObserver(&capture);
    bench.unit.AddObserver(&waveform);
    // More than is kept before it is written.
    for (int i = 0; i < 200; ++i) {
        bench.caller.Ask(VersionQuery());
    }
    const std::string wanted = "No space left on device";
    for (const auto& close : {std::function<void()>([&] { capture.Close(); }),
                              std::function<void()>([&] { waveform.Close(); })}) {
        try {
            close();
            ADD_FAILURE() << "nothing is said";
        } catch (const common::Failure& failure) {
            EXPECT_NE(std::string::npos, std::string(failure.what()).find(wanted))
                << failure.what();
        }
    }
}

}  // namespace
}  // namespace sim
