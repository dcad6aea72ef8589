// SPDX-License-Identifier: Apache-2.0
// How bbpsim ends, what it leaves behind, and the signals that it passes.
#include <gtest/gtest.h>

#include <csignal>

#include "tests/system/Bench.h"
#include "tests/system/Terminal.h"

namespace system_test {
namespace {

class SystemBenchEnd : public ::testing::TestWithParam<int> {
  protected:
    Words BenchHere(const Words& words) const {
        return Words{"env", "TMPDIR=" + folder_.Path("")} + Bench(words);
    }
    // Waits until what was there is gone, if it ever goes.
    void AwaitNothingLeft() const {
        while (folder_.Count() > 0) {
            PauseBriefly();
        }
    }

    TemporaryFolder folder_;
};

TEST_P(SystemBenchEnd, LeavesNothingBehindWhenItIsKilled) {
    Process bench(BenchHere(Shell("echo ready; exec sleep 1000")));
    AwaitOutput(bench, "ready");
    EXPECT_EQ(1, folder_.Count());
    kill(bench.Id(), GetParam());
    EXPECT_EQ(128 + GetParam(), bench.Wait().status);
    AwaitNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Signals, SystemBenchEnd,
                         ::testing::Values(SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGKILL));

TEST_F(SystemBenchEnd, LeavesNothingBehindWhenTheCommandEnds) {
    EXPECT_EQ(0, RunToEnd(BenchHere(Shell("exit 0"))).status);
    EXPECT_EQ(0, folder_.Count());
    EXPECT_EQ(137, RunToEnd(BenchHere(Shell("kill -KILL $$"))).status);
    EXPECT_EQ(0, folder_.Count());
    EXPECT_EQ(127, RunToEnd(BenchHere({"--", "no-such-command"})).status);
    EXPECT_EQ(0, folder_.Count());
}

TEST_F(SystemBenchEnd, LeavesNothingBehindWhenItsCleaningProcessIsKilled) {
    // The first of its children is the one that cleans up.
    const std::string kill_it =
        "read cleaner others </proc/$PPID/task/$PPID/children; kill -KILL $cleaner; exit 6";
    EXPECT_EQ(6, RunToEnd(BenchHere(Shell(kill_it))).status);
    EXPECT_EQ(0, folder_.Count());
}

TEST_F(SystemBenchEnd, AsksTheCommandToEndWhenTheDevicesFail) {
    // A request that no version of the preloaded library makes.
    const std::string confuse =
        "import os, signal, socket, struct\n"
        "device = socket.socket(socket.AF_UNIX)\n"
        "device.connect(os.environ['UMOCKDEV_DIR'] + '/ioctl/dev/i2c1')\n"
        "device.send(struct.pack('LLL', 99, 0, 0))\n"
        "signal.pause()\n";
    TemporaryFolder output;
    const Outcome outcome =
        RunToEnd(BenchHere({"--json", output.Path("report.json"), "--", "python3", "-c", confuse}));
    EXPECT_EQ(125, outcome.status);
    EXPECT_EQ(
        "bbpsim: a program's libumockdev-preload.so.0 is of a version unknown here: it makes a "
        "request of the kind 99\n",
        outcome.err);
    EXPECT_NE(std::string::npos, output.Read("report.json").find("\"command_status\": 143"));
    EXPECT_EQ(0, folder_.Count());
}

TEST(SystemBenchStart, WorksWhereSigchldIsIgnored) {
    EXPECT_EQ(3, RunToEnd(Words{"env", "--ignore-signal=CHLD"} + Bench(Shell("exit 3"))).status);
}

TEST_F(SystemBenchEnd, WaitsForNoTransferThatIsUnderWay) {
    // One process resets the chip all the time, and is left behind.
    const std::string busy = "(while :; do printf 1 >/dev/gpio/HD_DAB2Reset; " +
                             std::string(BBP_BUS_CLIENT) + "; done) >/dev/null 2>&1 & sleep 0.2";
    for (int i = 0; i < 5; ++i) {
        const Outcome outcome = RunToEnd(BenchHere(Shell(busy + "; kill $! ; exit 6")));
        EXPECT_EQ(6, outcome.status) << outcome.err;
        AwaitNothingLeft();
    }
}

// A command that tells which of the signals it gets.
const char TRAPS[] =
    "trap 'echo term; exit 5' TERM; trap 'echo hup; exit 6' HUP; echo ready; "
    "while :; do sleep 0.05; done";

TEST(SystemBenchSignals, GoToTheCommandWhichDecides) {
    Process bench(Bench(Shell(TRAPS)));
    AwaitOutput(bench, "ready");
    kill(bench.Id(), SIGTERM);
    const Outcome outcome = bench.Wait();
    EXPECT_EQ(5, outcome.status);
    EXPECT_EQ("ready\nterm\n", outcome.out);
}

TEST(SystemBenchSignals, KillACommandThatDoesNotHeedTheFirst) {
    Process bench(Bench(Shell("trap 'echo no' TERM; echo ready; while :; do sleep 0.05; done")));
    AwaitOutput(bench, "ready");
    kill(bench.Id(), SIGTERM);
    AwaitOutput(bench, "no\n");
    kill(bench.Id(), SIGTERM);
    EXPECT_EQ(137, bench.Wait().status);
}

TEST(SystemBenchSignals, TakeSeveralHangUpsForOne) {
    Process bench(Bench(Shell("trap 'echo hup' HUP; echo ready; while :; do sleep 0.05; done")));
    AwaitOutput(bench, "ready\n");
    kill(bench.Id(), SIGHUP);
    AwaitOutput(bench, "ready\nhup\n");
    kill(bench.Id(), SIGHUP);
    AwaitOutput(bench, "ready\nhup\nhup\n");
    kill(bench.Id(), SIGTERM);
    EXPECT_EQ(143, bench.Wait().status);
}

TEST(SystemBenchSignals, EndTheCommandWhenTheBenchIsKilled) {
    TemporaryFolder folder;
    const std::string file = folder.Write("said", "");
    Process bench(Bench(Shell("{ " + std::string(TRAPS) + "; } > " + file)));
    while (folder.Read("said") != "ready\n") {
        PauseBriefly();
    }
    kill(bench.Id(), SIGKILL);
    EXPECT_EQ(137, bench.Wait().status);
    while (folder.Read("said") != "ready\nhup\n") {
        PauseBriefly();
    }
}

TEST(SystemBenchSignals, ComeOnceFromTheTerminal) {
    Terminal terminal(Bench(Shell("trap 'echo int' INT; echo ready; read x; echo end; exit 4")));
    ASSERT_TRUE(terminal.Shows("ready"));
    terminal.Type("\x03");
    ASSERT_TRUE(terminal.Shows("^C"));
    terminal.Type("\n");
    EXPECT_EQ(4, terminal.Wait());
    const std::string& screen = terminal.Screen();
    const std::size_t first = screen.find("int\r\n");
    EXPECT_NE(std::string::npos, first);
    EXPECT_EQ(std::string::npos, screen.find("int\r\n", first + 1)) << screen;
}

TEST(SystemBenchSignals, EndTheCommandWhenTheTerminalGoes) {
    TemporaryFolder folder;
    const std::string file = folder.Write("said", "");
    {
        Terminal terminal(Bench(Shell("{ " + std::string(TRAPS) + "; } > " + file)));
        while (folder.Read("said") != "ready\n") {
            PauseBriefly();
        }
        terminal.HangUp();
        EXPECT_EQ(6, terminal.Wait());
    }
    EXPECT_EQ("ready\nhup\n", folder.Read("said"));
}

// The shell

TEST(SystemBenchShell, IsTheUsersWithAPromptThatSaysWhereHeIs) {
    TemporaryFolder home;
    home.Write(".bashrc", "PS1='mine> '\n");
    Terminal terminal(Words{"env", "SHELL=/bin/bash", "HOME=" + home.Path("")} + Bench({}));
    ASSERT_TRUE(terminal.Shows("(head unit) mine> "));
    terminal.Type("ls /dev/i2c*\n");
    EXPECT_TRUE(terminal.Shows("\n/dev/i2c1"));
    EXPECT_TRUE(terminal.Shows("(head unit) mine> "));
    terminal.Type("exit 7\n");
    EXPECT_EQ(7, terminal.Wait());
}

TEST(SystemBenchShell, MayBeAnyShell) {
    Terminal terminal(Words{"env", "SHELL=/bin/sh"} + Bench({}));
    ASSERT_TRUE(terminal.Shows("(head unit) $ "));
    terminal.Type("exit 2\n");
    EXPECT_EQ(2, terminal.Wait());
}

TEST(SystemBenchShell, GoesWhenTheBenchIsToldTo) {
    TemporaryFolder home;
    Terminal terminal(Words{"env", "SHELL=/bin/bash", "HOME=" + home.Path("")} + Bench({}));
    ASSERT_TRUE(terminal.Shows("(head unit) "));
    kill(terminal.Id(), SIGTERM);
    // A shell that was just about to wait for a key heeds the signal at the next one.
    EXPECT_EQ(128 + SIGHUP, terminal.WaitPressing("\n"));
}

}  // namespace
}  // namespace system_test
