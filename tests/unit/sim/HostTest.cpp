// SPDX-License-Identifier: Apache-2.0
// The parts of bbpsim that stand by themselves.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "sim/host/FlashFile.h"
#include "sim/host/RealTimeUnit.h"
#include "sim/host/ReportText.h"
#include "sim/host/Shell.h"
#include "tests/tools/TemporaryFolder.h"
#include "tests/unit/sim/Requests.h"

namespace sim {
namespace {

TEST(SimFlashFile, IsEmptyUntilThereIsOne) {
    TemporaryFolder folder;
    EXPECT_TRUE(FlashFile(folder.Path("flash")).Load().empty());
    EXPECT_TRUE(FlashFile("").Load().empty());
}

TEST(SimFlashFile, KeepsTheBytesAndNothingElse) {
    TemporaryFolder folder;
    const FlashFile file(folder.Path("flash"));
    EXPECT_TRUE(file.Save({0x00, 0x0A, 0xFF}));
    EXPECT_EQ((Bytes{0x00, 0x0A, 0xFF}), file.Load());
    EXPECT_TRUE(file.Save({0x01}));
    EXPECT_EQ((Bytes{0x01}), file.Load());
    EXPECT_EQ(1, folder.Count());
}

TEST(SimFlashFile, KeepsNothingWithoutAName) {
    EXPECT_TRUE(FlashFile("").Save({1}));
}

TEST(SimFlashFile, TellsWhenItCannotBeReadOrWritten) {
    TemporaryFolder folder;
    EXPECT_THROW(FlashFile(folder.Path("")).Load(), std::system_error);
    EXPECT_FALSE(FlashFile("/nowhere/flash").Save({1}));
    EXPECT_EQ(ENOENT, errno);
}

Report Seen(const std::vector<std::uint8_t>& flash) {
    Report report;
    report.resets = 1;
    report.messages = 2;
    report.reads = 3;
    report.segments = 4;
    report.polls = 5;
    report.burns = 6;
    report.faults = 7;
    report.image_size = 8;
    report.version = "9\xFF";
    report.flash = &flash;
    return report;
}

TEST(SimReport, IsText) {
    const std::vector<std::uint8_t> flash = {'a', 'b', 'c'};
    EXPECT_EQ(
        "resets     1\n"
        "messages   2\n"
        "segments   4\n"
        "polls      5\n"
        "burns      6\n"
        "image      8 bytes\n"
        "flash      3 bytes, SHA-256 "
        "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n"
        "version    9\xFF\n"
        "faults     7\n",
        ReportText(Seen(flash)));
}

TEST(SimReport, IsJsonWhateverTheVersionsBytesAre) {
    const std::vector<std::uint8_t> flash = {'a', 'b', 'c'};
    EXPECT_EQ(
        "{\n"
        "  \"command_status\": 10,\n"
        "  \"resets\": 1,\n"
        "  \"messages\": 2,\n"
        "  \"reads\": 3,\n"
        "  \"segments\": 4,\n"
        "  \"polls\": 5,\n"
        "  \"burns\": 6,\n"
        "  \"faults\": 7,\n"
        "  \"image_size\": 8,\n"
        "  \"version\": \"9\xEF\xBF\xBD\",\n"
        "  \"flash\": {\n"
        "    \"size\": 3,\n"
        "    \"sha256\": "
        "\"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\"\n"
        "  }\n"
        "}\n",
        ReportJson(Seen(flash), 10));
}

class SimRealTime : public ::testing::Test {
  protected:
    HeadUnit unit_{ChipConfig{}};
    const Bytes query_ = VersionQuery().Build();
    std::array<std::uint8_t, READ_SIZE> reply_{};
};

TEST_F(SimRealTime, TakesTheWiresTimeWhenPaced) {
    // At this clock, the transfer takes 137 milliseconds.
    constexpr int SLOW_BUS_HZ = 1000;
    unit_.SetBusHz(SLOW_BUS_HZ);
    RealTimeUnit real_time(unit_, true);
    const auto start = RealTimeUnit::Clock::now();
    EXPECT_EQ(0, real_time.WriteBus(CHIP_ADDRESS, query_.data(), query_.size()));
    EXPECT_LE(WireTime(query_.size(), SLOW_BUS_HZ) - std::chrono::milliseconds(1),
              RealTimeUnit::Clock::now() - start);
}

TEST_F(SimRealTime, HasTransfersOfNoTimeWhenNotPaced) {
    RealTimeUnit real_time(unit_, false);
    Duration before{0};
    real_time.With([&](HeadUnit& unit) { before = unit.Now(); });
    unit_.Send(CHIP_ADDRESS, query_.data(), query_.size());
    EXPECT_EQ(before, unit_.Now());
}

TEST_F(SimRealTime, LetsTheChipsTimeBeTheRealOne) {
    ChipConfig config;
    config.response = std::chrono::milliseconds(20);
    HeadUnit unit(config);
    RealTimeUnit real_time(unit, false);
    real_time.WriteBus(CHIP_ADDRESS, query_.data(), query_.size());
    do {
        EXPECT_EQ(0, real_time.ReadBus(CHIP_ADDRESS, reply_.data(), reply_.size()));
    } while (reply_[0] == 0);
    EXPECT_LE(config.response, unit.Now());
}

TEST_F(SimRealTime, ShowsTheHeadUnitAfterEachEvent) {
    RealTimeUnit real_time(unit_, false);
    unsigned looks = 0;
    real_time.AfterEach([&](HeadUnit&) { looks += 1; });
    real_time.WriteBus(CHIP_ADDRESS, query_.data(), query_.size());
    real_time.ReadBus(CHIP_ADDRESS, reply_.data(), reply_.size());
    EXPECT_EQ(0, real_time.WriteReset("0", 1));
    EXPECT_EQ(EINVAL, real_time.WriteReset("?", 1));
    EXPECT_EQ(4u, looks);
}

TEST(SimShell, IsTheOneOfTheEnvironment) {
    TemporaryFolder folder;
    setenv("HOME", "/home/somebody", 1);
    setenv("SHELL", "/opt/bin/bash", 1);
    const std::vector<std::string> bash = {"/opt/bin/bash", "--rcfile", folder.Path("bashrc"),
                                           "-i"};
    EXPECT_EQ(bash, MakeShell(folder.Path("")).command);
    EXPECT_EQ(
        "if [ -r '/home/somebody/.bashrc' ]; then . '/home/somebody/.bashrc'; fi\n"
        "PS1='(head unit) '\"$PS1\"\n",
        folder.Read("bashrc"));

    setenv("SHELL", "/bin/zsh", 1);
    setenv("ZDOTDIR", "/home/somebody/z", 1);
    const Shell zsh = MakeShell(folder.Path(""));
    EXPECT_EQ((std::vector<std::string>{"/bin/zsh", "-i"}), zsh.command);
    ASSERT_EQ(1u, zsh.environment.size());
    EXPECT_EQ("ZDOTDIR", zsh.environment[0].name);
    EXPECT_EQ(0u, folder.Read(".zshrc").find("if [ -r '/home/somebody/z/.zshrc' ]"));

    unsetenv("SHELL");
    const Shell other = MakeShell(folder.Path(""));
    EXPECT_EQ((std::vector<std::string>{"/bin/sh", "-i"}), other.command);
    ASSERT_EQ(1u, other.environment.size());
    EXPECT_EQ("(head unit) $ ", other.environment[0].value);
}

}  // namespace
}  // namespace sim
