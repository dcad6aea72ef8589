// SPDX-License-Identifier: Apache-2.0
// bbpsim itself: what runs in it, how it ends, what it leaves behind and what it shows.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "tests/system/Process.h"
#include "tests/system/Terminal.h"

namespace system_test {
namespace {

const std::string BBPSIM = ProgramFolder() + "/bbpsim";

Words Bench(const Words& words) {
    return Words{BBPSIM, "--pace", "none"} + words;
}

Words Shell(const std::string& script) {
    return {"--", "sh", "-c", script};
}

// Waits until a program has said the text.
void AwaitOutput(const Process& process, const std::string& text) {
    while (process.Output().find(text) == std::string::npos) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// The command

TEST(SystemBench, PassesTheCommandsOutputAndExitStatusThrough) {
    const Outcome outcome = RunToEnd(Bench(Shell("echo out; echo err >&2; exit 3")));
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ("out\n", outcome.out);
    EXPECT_EQ("err\n", outcome.err);
}

TEST(SystemBench, NeedsNoDashesBeforeACommandWithoutOptions) {
    EXPECT_EQ("a b\n", RunToEnd(Bench({"echo", "a", "b"})).out);
}

TEST(SystemBench, TellsByItsStatusHowTheCommandEnded) {
    EXPECT_EQ(128 + SIGSEGV, RunToEnd(Bench(Shell("kill -SEGV $$"))).status);
    const Outcome missing = RunToEnd(Bench({"--", "no-such-command"}));
    EXPECT_EQ(127, missing.status);
    EXPECT_EQ("bbpsim: no-such-command: No such file or directory\n", missing.err);
    const Outcome no_program = RunToEnd(Bench({"--", "/etc/passwd"}));
    EXPECT_EQ(126, no_program.status);
    EXPECT_EQ("bbpsim: /etc/passwd: Permission denied\n", no_program.err);
}

TEST(SystemBench, FailsWithAStatusOfItsOwn) {
    EXPECT_EQ(125, RunToEnd({BBPSIM, "--pace", "fast", "--", "true"}).status);
    EXPECT_EQ(125, RunToEnd({BBPSIM, "--no-such-option"}).status);
    EXPECT_EQ(125, RunToEnd(Bench({"--flash", "/", "--", "true"})).status);
    EXPECT_EQ(125, RunToEnd(Bench({"--pcap", "/nowhere/x", "--", "true"})).status);
    EXPECT_EQ(125, RunToEnd(Bench({"--log-file", "/nowhere/x", "--", "true"})).status);
    EXPECT_EQ(125, RunToEnd(Bench({"--json", "/nowhere/x", "--", "true"})).status);
}

TEST(SystemBench, NeedsAFolderForTemporaryFiles) {
    const Outcome outcome = RunToEnd(Words{"env", "TMPDIR=/nowhere"} + Bench({"--", "true"}));
    EXPECT_EQ(125, outcome.status);
    EXPECT_EQ(
        "bbpsim: the devices need a folder for temporary files, and /nowhere is none: No such file "
        "or directory\n",
        outcome.err);
}

TEST(SystemBench, TellsWhatItIsAskedAndEnds) {
    const Outcome help = RunToEnd({BBPSIM, "--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.out.find("--installed"));
    const Outcome faults = RunToEnd({BBPSIM, "--list-faults"});
    EXPECT_EQ(0, faults.status);
    EXPECT_NE(std::string::npos, faults.out.find("die-programming [PERCENT]"));
    EXPECT_EQ(0, RunToEnd({BBPSIM, "--version"}).status);
}

TEST(SystemBench, ShowsTheDevicesToTheCommandAndAllThatItStarts) {
    const Outcome outcome =
        RunToEnd(Bench(Shell("ls /dev/i2c1; sh -c 'ls /dev/gpio/HD_DAB2Reset'")));
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("/dev/i2c1\n/dev/gpio/HD_DAB2Reset\n", outcome.out);
}

TEST(SystemBench, FindsTheUpdaterBesideItself) {
    EXPECT_EQ(ProgramFolder() + "/bbpflash\n", RunToEnd(Bench(Shell("command -v bbpflash"))).out);
}

TEST(SystemBench, IsABusAndAResetLineForAnyProgram) {
    const Outcome outcome = RunToEnd(Bench({"--", BBP_BUS_CLIENT}));
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(
        "query: 1\n"
        "reply: 1\n"
        "20 1.0.0\n"
        "both at once: 2\n"
        "nothing: 0\n"
        "an empty write: 1\n"
        "another address: -1 ENXIO\n"
        "too many messages: -1 EINVAL\n"
        "too long a message: -1 EINVAL\n"
        "the longest message: 1\n"
        "another command: -1 ENOTTY\n"
        "no level: -1 EINVAL\n"
        "low: 1\n"
        "in reset: -1 ENXIO\n"
        "high, with a newline: 2\n",
        outcome.out);
}

// Its end

class SystemBenchEnd : public ::testing::TestWithParam<int> {
  protected:
    Words BenchHere(const Words& words) const {
        return Words{"env", "TMPDIR=" + folder_.Path("")} + Bench(words);
    }
    // Waits until what was there is gone, if it ever goes.
    void AwaitNothingLeft() const {
        while (folder_.Count() > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
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

TEST(SystemBenchSignals, EndTheCommandWhenTheBenchIsKilled) {
    TemporaryFolder folder;
    const std::string file = folder.Write("said", "");
    Process bench(Bench(Shell("{ " + std::string(TRAPS) + "; } > " + file)));
    while (folder.Read("said") != "ready\n") {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(bench.Id(), SIGKILL);
    EXPECT_EQ(137, bench.Wait().status);
    while (folder.Read("said") != "ready\nhup\n") {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
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
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
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

// The flash

class SystemBenchFlash : public ::testing::Test {
  protected:
    Words BenchOn(const std::string& burn) const {
        return Bench({"--burn", burn, "--flash", folder_.Path("flash")});
    }

    TemporaryFolder folder_;
};

TEST_F(SystemBenchFlash, CanBeLookedAtWhileTheBenchRuns) {
    const std::string script = std::string(BBP_BUS_CLIENT) + " burn; cat " + folder_.Path("flash");
    const Outcome outcome = RunToEnd(BenchOn("0,0,0") + Shell(script));
    EXPECT_EQ("status 1\n" + std::string(100, 'U'), outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST_F(SystemBenchFlash, HoldsNoFirmwareAfterTheBenchIsEndedInErase) {
    Process bench(BenchOn("1000,0,0") + Words{"--", BBP_BUS_CLIENT, "burn"});
    AwaitOutput(bench, "status 4");
    kill(bench.Id(), SIGTERM);
    EXPECT_EQ(143, bench.Wait().status);
    EXPECT_EQ(std::string(100, '\xFF'), folder_.Read("flash"));

    const Outcome next = RunToEnd(BenchOn("0,0,0") + Words{"--", BBP_BUS_CLIENT});
    EXPECT_NE(std::string::npos, next.out.find("\n26 LOADER ONLY\n")) << next.out;
}

TEST_F(SystemBenchFlash, IsToldOfWhenItCannotBeKept) {
    const Words bench = Bench({"--burn", "0,0,0", "--flash", "/nowhere/flash"});
    const Outcome outcome = RunToEnd(bench + Words{"--", BBP_BUS_CLIENT, "burn"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("bbpsim: /nowhere/flash: No such file or directory\n", outcome.err);
}

// Faults and views

TEST(SystemBenchFaults, ComeFromTheCommandLineAndFromFiles) {
    TemporaryFolder folder;
    const std::string file = folder.Write("faults", "# the reply is lost\nread 1 nak\n");
    const std::string json = folder.Path("json");
    const Outcome outcome =
        RunToEnd(Bench({"--fault", "write 1 nak", "--fault", "write 2 fail EIO", "--faults", file,
                        "--json", json, "--", BBP_BUS_CLIENT}));
    EXPECT_EQ("query: -1 ENXIO\nreply: -1 ENXIO\n", outcome.out.substr(0, 32));
    EXPECT_NE(std::string::npos, outcome.out.find("both at once: -1 EIO\n")) << outcome.out;
    EXPECT_EQ(3, nlohmann::json::parse(folder.Read("json"))["faults"]);
}

TEST(SystemBenchFaults, AreListedInTheDocumentation) {
    std::istringstream list(RunToEnd({BBPSIM, "--list-faults"}).out);
    std::string block;
    std::string line;
    while (std::getline(list, line)) {
        block += line.empty() ? "\n" : "    " + line + "\n";
    }
    std::ifstream page(BBP_DOCUMENTATION "/bbpsim.md");
    const std::string text{std::istreambuf_iterator<char>(page), {}};
    EXPECT_NE(std::string::npos, text.find(block)) << block;
}

TEST(SystemBenchFaults, AreToldWithTheWordThatIsWrong) {
    const Outcome outcome = RunToEnd(Bench({"--fault", "burn 2 explode", "--", "true"}));
    EXPECT_EQ(125, outcome.status);
    EXPECT_EQ(
        "--fault: an action is needed here, one of: reject die-erasing die-programming "
        "verify-fails\n"
        "  burn 2 explode\n"
        "         ^^^^^^^\n"
        "Run with --help for more information.\n",
        outcome.err);

    TemporaryFolder folder;
    const std::string file = folder.Write("faults", "read nak\n\n  poll x busy\n");
    const Outcome in_file = RunToEnd(Bench({"--faults", file, "--", "true"}));
    EXPECT_EQ(125, in_file.status);
    EXPECT_EQ(file + ":3:8: ", in_file.err.substr(0, file.size() + 6));
    EXPECT_NE(std::string::npos, in_file.err.find("\n    poll x busy\n         ^\n"))
        << in_file.err;

    EXPECT_EQ(125, RunToEnd(Bench({"--faults", "/nowhere/x", "--", "true"})).status);
}

TEST(SystemBenchFaults, KeepTheLockFromTheStartOrNotAtAll) {
    const Words lock = {"--", "flock", "--nonblock", "/dev/i2c1", "true"};
    EXPECT_EQ(0, RunToEnd(Bench(lock)).status);
    EXPECT_EQ(1, RunToEnd(Bench(Words{"--fault", "lock never-grant"} + lock)).status);
    EXPECT_EQ(125, RunToEnd(Bench(Words{"--fault", "lock 3 never-grant"} + lock)).status);
    EXPECT_EQ(125, RunToEnd(Bench(Words{"--fault", "unlock fail EIO"} + lock)).status);
}

TEST(SystemBenchViews, TellEachTransferOnALine) {
    TemporaryFolder folder;
    const Outcome outcome =
        RunToEnd(Bench({"--log", "--log-file", folder.Path("log"), "--", BBP_BUS_CLIENT}));
    EXPECT_EQ(outcome.err, folder.Read("log"));
    EXPECT_NE(std::string::npos, outcome.err.find(" write version query #0, 1 byte, 01\n"));
    EXPECT_NE(std::string::npos, outcome.err.find(" read  reply to version query #0, \"1.0.0\"\n"));
    EXPECT_NE(std::string::npos, outcome.err.find(" reset low\n"));
}

TEST(SystemBenchViews, AreFilesForOtherPrograms) {
    TemporaryFolder folder;
    RunToEnd(Bench({"--pcap", folder.Path("pcap"), "--vcd", folder.Path("vcd"), "--vcd-first", "2",
                    "--vcd-count", "1", "--", BBP_BUS_CLIENT}));
    EXPECT_EQ("\x4D\x3C\xB2\xA1", folder.Read("pcap").substr(0, 4));
    EXPECT_NE(std::string::npos, folder.Read("vcd").find("$var wire 1 d SDA $end"));
}

TEST(SystemBenchViews, ReportWhatTheHeadUnitSaw) {
    TemporaryFolder folder;
    const Outcome outcome = RunToEnd(Bench({"--installed", "7.7", "--report", "--json",
                                            folder.Path("json"), "--", "sh", "-c", "exit 9"}));
    EXPECT_EQ(
        "resets     0\nmessages   0\nsegments   0\npolls      0\nburns      0\nimage      0 bytes\n"
        "flash      never written\nversion    7.7\nfaults     0\n",
        outcome.err);
    EXPECT_EQ(nlohmann::json::parse(
                  R"({"command_status": 9, "resets": 0, "messages": 0, "reads": 0, "segments": 0,
                      "polls": 0, "burns": 0, "faults": 0, "image_size": 0, "version": "7.7",
                      "flash": null})"),
              nlohmann::json::parse(folder.Read("json")));
}

}  // namespace
}  // namespace system_test
