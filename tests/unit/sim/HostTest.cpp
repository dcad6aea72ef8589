// SPDX-License-Identifier: Apache-2.0
// The parts of bbpsim that stand by themselves.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "common/Failure.h"
#include "sim/host/FlashFile.h"
#include "sim/host/RealTimeUnit.h"
#include "sim/host/ReportText.h"
#include "sim/host/Shell.h"
#include "tests/tools/TemporaryFolder.h"
#include "tests/unit/sim/Requests.h"

namespace sim {
namespace {

using std::chrono::milliseconds;

TEST(SimFlashFile, IsNothingUntilThereIsOne) {
    TemporaryFolder folder;
    const FlashFile file(folder.Path("flash"));
    EXPECT_FALSE(file.Load());
    folder.Write("flash", "");
    ASSERT_TRUE(file.Load());
    EXPECT_TRUE(file.Load()->empty());
}

TEST(SimFlashFile, KeepsTheBytesAndNothingElse) {
    TemporaryFolder folder;
    const FlashFile file(folder.Path("flash"));
    file.Save({0x00, 0x0A, 0xFF});
    EXPECT_EQ((Bytes{0x00, 0x0A, 0xFF}), file.Load());
    file.Save({0x01});
    EXPECT_EQ((Bytes{0x01}), file.Load());
    EXPECT_EQ(1, folder.Count());
}

TEST(SimFlashFile, TouchesNoOtherFileAndFollowsLinks) {
    TemporaryFolder folder;
    folder.Write("flash.new", "somebody's");
    std::filesystem::create_symlink("real", folder.Path("flash"));
    FlashFile(folder.Path("flash")).Save({'x'});
    EXPECT_EQ("somebody's", folder.Read("flash.new"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder.Path("flash")));
    EXPECT_EQ("x", folder.Read("real"));
}

std::string ReasonAgainst(const std::string& path) {
    try {
        const FlashFile file(path);
    } catch (const common::Failure& failure) {
        return failure.what();
    }
    return "";
}

TEST(SimFlashFile, IsOneSimulatorsAtATime) {
    TemporaryFolder folder;
    std::filesystem::create_symlink("flash", folder.Path("link"));
    {
        const FlashFile file(folder.Path("flash"));
        EXPECT_EQ("the flash's file " + folder.Path("flash") + " is in use by another bbpsim",
                  ReasonAgainst(folder.Path("link")));
        EXPECT_EQ("", ReasonAgainst(folder.Path("other")));
    }
    EXPECT_EQ("", ReasonAgainst(folder.Path("flash")));
}

TEST(SimFlashFile, TellsBeforeTheStartThatItCannotBeWritten) {
    TemporaryFolder folder;
    EXPECT_EQ("the flash's file /nowhere/flash: its folder: No such file or directory",
              ReasonAgainst("/nowhere/flash"));
    EXPECT_EQ("the flash's file " + folder.Path("") + ": Is a directory",
              ReasonAgainst(folder.Path("")));
    EXPECT_EQ("the flash's file /dev/null is no regular file", ReasonAgainst("/dev/null"));
    EXPECT_EQ(0u, ReasonAgainst("/proc/flash").find("the flash's file /proc/flash: its folder: "))
        << "where nobody can make a file";
    EXPECT_EQ("", ReasonAgainst(folder.Path("flash")));
    EXPECT_EQ(0, folder.Count());
}

TEST(SimFlashSaver, TellsWhetherTheFileHasWhatTheFlashHas) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder.Path("there"));
    const FlashFile file(folder.Path("there/flash"));
    FlashSaver saver(file);
    saver.OnFlash({'a'});
    EXPECT_TRUE(saver.IsSaved());
    EXPECT_EQ("a", folder.Read("there/flash"));
    std::filesystem::remove_all(folder.Path("there"));
    testing::internal::CaptureStderr();
    saver.OnFlash({'b'});
    EXPECT_EQ("bbpsim: creating a temporary file beside " + folder.Path("there/flash") +
                  ": No such file or directory\n",
              testing::internal::GetCapturedStderr());
    EXPECT_FALSE(saver.IsSaved());
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

TEST_F(SimRealTime, HoldsAResultBackForTheWiresTimeWhenPaced) {
    // At this clock, the transfer takes 137 milliseconds.
    constexpr int SLOW_BUS_HZ = 1000;
    unit_.SetBusHz(SLOW_BUS_HZ);
    RealTimeUnit real_time(unit_, true);
    const auto start = RealTimeUnit::Clock::now();
    EXPECT_EQ(0, real_time.WriteBus(CHIP_ADDRESS, query_.data(), query_.size()));
    EXPECT_LE(WireTime(query_.size(), SLOW_BUS_HZ) - milliseconds(1), real_time.Release() - start);
}

TEST_F(SimRealTime, HasTransfersOfNoTimeWhenNotPaced) {
    RealTimeUnit real_time(unit_, false);
    EXPECT_LE(real_time.Release(), RealTimeUnit::Clock::now());
    const Duration before = unit_.Now();
    unit_.Send(CHIP_ADDRESS, query_.data(), query_.size());
    EXPECT_EQ(before, unit_.Now());
    real_time.WriteBus(CHIP_ADDRESS, query_.data(), query_.size());
    EXPECT_LE(real_time.Release(), RealTimeUnit::Clock::now());
}

TEST_F(SimRealTime, LetsTheChipsTimeBeTheRealOne) {
    ChipConfig config;
    config.response = milliseconds(20);
    HeadUnit unit(config);
    RealTimeUnit real_time(unit, false);
    real_time.WriteBus(CHIP_ADDRESS, query_.data(), query_.size());
    do {
        EXPECT_EQ(0, real_time.ReadBus(CHIP_ADDRESS, reply_.data(), reply_.size()));
    } while (reply_[0] == 0);
    EXPECT_LE(config.response, unit.Now());
}

struct FlashWaiter : Observer {
    FlashBytes flash;

    void OnFlash(const FlashBytes& now) override { flash = now; }
};

TEST_F(SimRealTime, EndsABurnThoughNobodyUsesTheBus) {
    ChipConfig config;
    config.burn.erase = config.burn.program = milliseconds(20);
    config.burn.verify = Duration::zero();
    config.start_up = config.response = Duration::zero();
    HeadUnit unit(config);
    FlashWaiter waiter;
    unit.AddObserver(&waiter);
    RealTimeUnit real_time(unit, false);
    EXPECT_FALSE(real_time.NextEvent());
    std::vector<Bytes> messages = Download(Bytes(100, 'U'), 1);
    messages.insert(messages.begin(), Unprotect().Build());
    for (const Bytes& message : messages) {
        real_time.WriteBus(CHIP_ADDRESS, message.data(), message.size());
    }
    while (const auto event = real_time.NextEvent()) {
        std::this_thread::sleep_until(*event);
        real_time.KeepTime();
    }
    EXPECT_EQ(Bytes(100, 'U'), waiter.flash);
}

TEST_F(SimRealTime, TakesLevelsOfTheLine) {
    RealTimeUnit real_time(unit_, false);
    EXPECT_EQ(0, real_time.WriteReset("0", 1));
    EXPECT_EQ(EINVAL, real_time.WriteReset("?", 1));
    EXPECT_FALSE(unit_.ResetLine());
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
    ASSERT_EQ(1u, zsh.variables.size());
    EXPECT_EQ("ZDOTDIR", zsh.variables[0].name);
    EXPECT_EQ(0u, folder.Read(".zshrc").find("if [ -r '/home/somebody/z/.zshrc' ]"));

    setenv("SHELL", "bash", 1);
    setenv("HOME", "/home/o'neill", 1);
    MakeShell(folder.Path(""));
    EXPECT_EQ(0u, folder.Read("bashrc").find("if [ -r '/home/o'\\''neill/.bashrc' ]"));

    unsetenv("SHELL");
    const Shell other = MakeShell(folder.Path(""));
    EXPECT_EQ((std::vector<std::string>{"/bin/sh", "-i"}), other.command);
    ASSERT_EQ(1u, other.variables.size());
    EXPECT_EQ("(head unit) $ ", other.variables[0].value);
}

}  // namespace
}  // namespace sim
