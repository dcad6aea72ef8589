// SPDX-License-Identifier: Apache-2.0
// The captures of the bus, byte by byte.
#include <gtest/gtest.h>

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
