// SPDX-License-Identifier: Apache-2.0
// bbpsim's faults and what it shows.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/system/Bench.h"

namespace system_test {
namespace {

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
    std::istringstream list(RunToEnd({BbpSim(), "--list-faults"}).out);
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
        "bbpsim: --fault: an action is needed here, one of: reject die-erasing die-programming "
        "verify-fails\n"
        "  burn 2 explode\n"
        "         ^^^^^^^\n"
        "Run with --help for more information.\n",
        outcome.err);

    TemporaryFolder folder;
    const std::string file = folder.Write("faults", "read nak\n\n  poll x busy\n");
    const Outcome in_file = RunToEnd(Bench({"--faults", file, "--", "true"}));
    EXPECT_EQ(125, in_file.status);
    EXPECT_EQ(0u, in_file.err.find("bbpsim: " + file + ":3:8: ")) << in_file.err;
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

TEST(SystemBenchViews, AreWrittenThoughOneOfThemFails) {
    TemporaryFolder folder;
    const Outcome outcome =
        RunToEnd(Bench({"--pcap", "/dev/full", "--log-file", "/dev/full", "--report", "--json",
                        folder.Path("json"), "--", BBP_BUS_CLIENT}));
    EXPECT_EQ(125, outcome.status);
    EXPECT_EQ(0u,
              outcome.err.find("bbpsim: writing the log /dev/full: No space left on device\n"
                               "bbpsim: writing the capture /dev/full: No space left on device\n"
                               "resets     1\n"))
        << outcome.err;
    EXPECT_EQ(0, nlohmann::json::parse(folder.Read("json"))["command_status"]);
}

TEST(SystemBenchViews, MayGoToDevicesAndPipes) {
    TemporaryFolder folder;
    const std::string pipe = folder.Path("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    const Outcome piped =
        RunToEnd({"sh", "-c", BbpSim() + " --json " + pipe + " -- true & exec cat " + pipe});
    EXPECT_EQ(0, nlohmann::json::parse(piped.out)["command_status"]);
    const Outcome full = RunToEnd(Bench({"--json", "/dev/full", "--", "true"}));
    EXPECT_EQ(125, full.status);
    EXPECT_EQ("bbpsim: writing /dev/full: No space left on device\n", full.err);
}

TEST(SystemBenchViews, AreRefusedBeforeTheStartWhereTheyCannotBeWritten) {
    for (const char* const option : {"--pcap", "--vcd", "--log-file", "--json"}) {
        const Outcome outcome = RunToEnd(Bench({option, "/nowhere/x", "--", "echo", "started"}));
        EXPECT_EQ(125, outcome.status) << option;
        EXPECT_EQ("", outcome.out) << option;
        EXPECT_NE(std::string::npos, outcome.err.find("/nowhere/x: ")) << outcome.err;
        EXPECT_NE(std::string::npos, outcome.err.find("No such file or directory\n"));
    }
}

}  // namespace
}  // namespace system_test
