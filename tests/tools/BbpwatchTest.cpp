// SPDX-License-Identifier: Apache-2.0
// The program bbpwatch as it is, over a stand-in for the updater that goes on when it is told to,
// and over the updater itself in the simulated head unit.
#include <csignal>

#include "tests/tools/BbpwatchFixture.h"

namespace {

using system_test::ProgramFolder;
using system_test::operator+;

class Bbpwatch : public BbpwatchFixture {};

TEST_F(Bbpwatch, WatchesAWholeUpdateInTheSimulatedHeadUnit) {
    const Words unit = {ProgramFolder() + "/bbpsim", "--pace", "none", "--burn", "1,1,1", "--flash",
                        folder_.Path("flash"),       "--"};
    const Outcome outcome =
        system_test::RunToEnd(unit + Command({"--log", folder_.Path("log")},
                                             {"bbpflash", "-s", folder_.Path("image.bin")}));
    EXPECT_EQ(0, outcome.status) << outcome.out << outcome.err;
    EXPECT_NE(std::string::npos, outcome.out.find("bbpwatch: program: do not switch off\n"));
    EXPECT_NE(std::string::npos, outcome.out.find("bbpwatch: updated and verified"));
    EXPECT_NE(std::string::npos, folder_.Read("log").find(" DONE\n"));
    EXPECT_EQ(folder_.Read("image.bin"), folder_.Read("flash"));
}

TEST_F(Bbpwatch, EndsTheUpdateWhenItIsInterruptedDuringTheDownload) {
    Process process(Command({}, StandIn("1\\n20\\n", BURNT)));
    Await(process, "20%");
    // The reset line must be up, which takes a second from the start on.
    kill(process.Id(), SIGINT);
    const Outcome outcome = process.Wait();
    EXPECT_EQ(128 + SIGINT, outcome.status);
    EXPECT_NE(std::string::npos, outcome.out.find("ended on request"));
    EXPECT_FALSE(Exists("end"));
}

TEST_F(Bbpwatch, LetsNoSignalEndTheUpdateDuringTheBurn) {
    Process process(Command({}, StandIn(BURNING, BURNT)));
    Await(process, "erase");
    kill(process.Id(), SIGINT);
    Await(process, "not now: the chip is writing its flash");
    kill(process.Id(), SIGTERM);
    Await(process, "terminate received");
    kill(process.Id(), SIGHUP);
    Await(process, "hung up");
    kill(process.Id(), SIGPIPE);
    Go();
    const Outcome outcome = process.Wait();
    EXPECT_EQ(0, outcome.status);
    EXPECT_TRUE(Exists("end"));
}

TEST_F(Bbpwatch, LeavesTheUpdaterAndItsLockAliveWhenItIsKilled) {
    Process process(Command({}, StandIn(BURNING, BURNT)));
    Await(process, "erase");
    kill(process.Id(), SIGKILL);
    EXPECT_EQ(128 + SIGKILL, process.Wait().status);
    const Outcome second = system_test::RunToEnd(Command({}, {"true"}));
    EXPECT_EQ(75, second.status);
    EXPECT_NE(std::string::npos, second.err.find("another update runs"));
    Go();
    while (!Exists("end")) {
        usleep(2000);
    }
}

TEST_F(Bbpwatch, OutlivesTheReaderOfItsOutput) {
    const std::string pipeline = ProgramFolder() + "/bbpwatch --lock " + folder_.Path("lock") +
                                 " --log " + folder_.Path("log") +
                                 " -- sh -c \"$SCRIPT\" bbpflash "
                                 "-s " +
                                 folder_.Path("image.bin") + " | head -n 1";
    const std::string script = StandIn(BURNING, BURNT)[2];
    Process process({"env", "SCRIPT=" + script, "sh", "-c", pipeline});
    Await(process, "download");
    Go();
    process.Wait();
    while (folder_.Read("log").find("updated and verified") == std::string::npos) {
        usleep(2000);
    }
    EXPECT_TRUE(Exists("end"));
}

TEST_F(Bbpwatch, DoubtsASuccessThatTheOutputContradicts) {
    Process process(Command({}, StandIn("79\\n80\\n", "99\\nDONE\\n")));
    Go();
    const Outcome outcome = process.Wait();
    EXPECT_EQ(76, outcome.status);
    EXPECT_NE(std::string::npos, outcome.out.find("bbpwatch: DONE came without 100"));
}

TEST_F(Bbpwatch, ReportsMissingProgressAndTrustsTheSuccessAfterIt) {
    Process process(Command({"--stall", "0.1"}, StandIn(BURNING, BURNT)));
    Await(process, "no progress");
    Go();
    EXPECT_EQ(0, process.Wait().status);
}

TEST_F(Bbpwatch, StartsNoUpdateThatCannotSucceed) {
    folder_.Write("short.bin", "too short");
    const Words updater = {"touch", folder_.Path("started"), folder_.Path("short.bin")};
    EXPECT_EQ(65, system_test::RunToEnd(Command({}, updater)).status);
    EXPECT_FALSE(Exists("started"));
    EXPECT_EQ(76, system_test::RunToEnd(Command({"--no-check"}, updater)).status);
    EXPECT_TRUE(Exists("started"));
}

TEST_F(Bbpwatch, NeedsNoImageForAQuery) {
    const std::string script =
        "echo 'b MSG: HD tuner firmware updater'; "
        "echo 'b MSG: Installed firmware version is \"1.0\"'; echo";
    const Outcome outcome =
        system_test::RunToEnd(Command({}, {"sh", "-c", script, "bbpflash", "-i", "no image"}));
    EXPECT_EQ(0, outcome.status) << outcome.err;
    EXPECT_NE(std::string::npos, outcome.out.find("bbpwatch: done after"));
}

TEST_F(Bbpwatch, TellsEventsAsJson) {
    Process process(Command({"--json"}, StandIn(BURNING, BURNT)));
    Go();
    const std::vector<nlohmann::json> events = Events(process.Wait().out);
    EXPECT_EQ("success", events.back()["verdict"]);
    EXPECT_EQ(1, events.back()["done"]);
}

TEST_F(Bbpwatch, JudgesLinesFromStandardInput) {
    const auto judge = [](const std::string& lines) {
        return system_test::RunToEnd(
                   {"sh", "-c", "printf '" + lines + "' | " + ProgramFolder() + "/bbpwatch"})
            .status;
    };
    EXPECT_EQ(0, judge("80\\n99\\n100\\nDONE\\n"));
    EXPECT_EQ(1, judge("80\\nERROR\\n"));
    EXPECT_EQ(76, judge("80\\n"));
}

TEST_F(Bbpwatch, SaysWhyItDidNotStart) {
    EXPECT_EQ(64, system_test::RunToEnd({ProgramFolder() + "/bbpwatch", "--nonsense"}).status);
    EXPECT_EQ(127, system_test::RunToEnd(Command({"--no-check"}, {"no-such-program"})).status);
    EXPECT_EQ(126, system_test::RunToEnd(Command({"--no-check"}, {"/etc/passwd"})).status);
    EXPECT_EQ(71, system_test::RunToEnd(
                      {ProgramFolder() + "/bbpwatch", "--lock", "/nowhere/x", "--", "true"})
                      .status);
}

}  // namespace
