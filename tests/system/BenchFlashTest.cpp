// SPDX-License-Identifier: Apache-2.0
// bbpsim's flash file.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "tests/system/Bench.h"

namespace system_test {
namespace {

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

TEST_F(SystemBenchFlash, IsToldOfBeforeTheStartWhenItCannotBeKept) {
    const Outcome outcome = RunToEnd(Bench({"--flash", "/nowhere/flash", "--", "echo", "started"}));
    EXPECT_EQ(125, outcome.status);
    EXPECT_EQ("", outcome.out);
    EXPECT_EQ("bbpsim: the flash's file /nowhere/flash: its folder: No such file or directory\n",
              outcome.err);
}

TEST_F(SystemBenchFlash, IsKeptThoughTheBurnEndsAfterTheLastTransfer) {
    const std::string flash = folder_.Path("flash");
    const std::string script = std::string(BBP_BUS_CLIENT) + " download; while ! grep -qs UUU " +
                               flash + "; do sleep 0.05; done; exec wc -c <" + flash;
    const Outcome outcome = RunToEnd(BenchOn("0.3,0.3,0") + Shell(script));
    EXPECT_EQ("100\n", outcome.out);
}

TEST_F(SystemBenchFlash, FailsTheRunWhenItCouldNotBeKept) {
    std::filesystem::create_directory(folder_.Path("there"));
    const Words bench = Bench({"--burn", "0,0,0", "--flash", folder_.Path("there/flash")});
    const Outcome outcome =
        RunToEnd(bench + Shell("rm -r " + folder_.Path("there") + "; " + BBP_BUS_CLIENT + " burn"));
    EXPECT_EQ(125, outcome.status);
    EXPECT_EQ("bbpsim: creating a temporary file beside " + folder_.Path("there/flash") +
                  ": No such file or directory\n",
              outcome.err);
}

TEST_F(SystemBenchFlash, IsOneBenchsAtATime) {
    Process first(BenchOn("0,0,0") + Shell("echo ready; exec sleep 1000"));
    AwaitOutput(first, "ready");
    const Outcome second = RunToEnd(BenchOn("0,0,0") + Words{"--", "echo", "started"});
    EXPECT_EQ(125, second.status);
    EXPECT_EQ("", second.out);
    EXPECT_NE(std::string::npos, second.err.find("is in use by another bbpsim"));
}

}  // namespace
}  // namespace system_test
