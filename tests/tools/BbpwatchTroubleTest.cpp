// SPDX-License-Identifier: Apache-2.0
// bbpwatch where its surroundings are not as usual: closed streams, other starters, other users of
// the bus.
#include <csignal>

#include "tests/system/Terminal.h"
#include "tests/tools/BbpwatchFixture.h"

namespace {

using system_test::Terminal;
using system_test::operator+;

class BbpwatchTrouble : public BbpwatchFixture {
  protected:
    // Runs the words in a shell that has done `preparation` before.
    static Outcome RunAfter(const std::string& preparation, const Words& words) {
        return system_test::RunToEnd(Words{"sh", "-c", preparation + "; exec \"$0\" \"$@\""} +
                                     words);
    }
};

// A poll on a closed pipe returns at once; there were megabytes of redraws in a second.
TEST_F(BbpwatchTrouble, DoesNotRunWildWhenTheUpdaterClosesItsErrorOutput) {
    Words updater = Saying("79\\n80\\n85\\n", 0);
    updater[2] = "exec 2>&-; printf '79\\n80\\n85\\n'; sleep 2; printf '99\\n100\\nDONE\\n'";
    Terminal terminal(Words{"env", "TERM=xterm"} + Command({}, updater));
    EXPECT_TRUE(terminal.Shows("updated and verified"));
    EXPECT_EQ(0, terminal.Wait());
    EXPECT_GT(200000u, terminal.Screen().size());
}

TEST_F(BbpwatchTrouble, ShowsItsUsageAtATerminalWhenItHasNothingToDo) {
    Terminal terminal({system_test::ProgramFolder() + "/bbpwatch"});
    EXPECT_TRUE(terminal.Shows("bbpwatch image.bin"));
    EXPECT_TRUE(terminal.Shows("bbpwatch: no image and no command"));
    EXPECT_EQ(64, terminal.Wait());
}

TEST_F(BbpwatchTrouble, KeepsItsLockWhenItIsStartedWithoutStandardStreams) {
    for (const char* closed : {"exec <&-", "exec >&-", "exec <&- >&- 2>&-"}) {
        std::filesystem::remove(folder_.Path("lock"));
        Process process(Words{"sh", "-c", std::string(closed) + "; exec \"$0\" \"$@\""} +
                        Command({}, StandIn(BURNING, BURNT)));
        while (!Exists("lock") || folder_.Read("lock").empty()) {
            usleep(2000);
        }
        const Outcome second = system_test::RunToEnd(Command({}, {"true"}));
        EXPECT_EQ(75, second.status) << closed;
        Go();
        EXPECT_EQ(0, process.Wait().status) << closed;
        EXPECT_EQ(std::string::npos, folder_.Read("lock").find_first_not_of("0123456789\n"));
    }
}

TEST_F(BbpwatchTrouble, NamesTheHolderOfTheLock) {
    Process process(Command({}, StandIn(BURNING, BURNT)));
    Await(process, "erase");
    const Outcome second = system_test::RunToEnd(Command({"--json"}, {"true"}));
    EXPECT_EQ(75, second.status);
    EXPECT_NE(std::string::npos, second.err.find(folder_.Path("lock") + " is locked by processes " +
                                                 std::to_string(process.Id()) + " and "))
        << second.err;
    EXPECT_EQ("taken", Events(second.out).back()["reason"]);
    Go();
    process.Wait();
}

TEST_F(BbpwatchTrouble, LearnsOfTheEndWhenTheEndsOfChildrenAreIgnored) {
    const Outcome outcome = system_test::RunToEnd(
        Words{"env", "--ignore-signal=CHLD"} + Command({}, Saying("80\\n99\\n100\\nDONE\\n", 0)));
    EXPECT_EQ(0, outcome.status) << outcome.out;
}

TEST_F(BbpwatchTrouble, LetsSimulatedUnitsUpdateSideBySide) {
    const std::string watch = system_test::ProgramFolder() + "/bbpwatch";
    const Words update = Simulated({}, {watch, folder_.Path("image.bin")});
    Process first(update);
    Process second(update);
    EXPECT_EQ(0, first.Wait().status);
    EXPECT_EQ(0, second.Wait().status);
}

TEST_F(BbpwatchTrouble, NamesItselfInEveryMistake) {
    for (const Words& words :
         {Watch({"--bogus"}), Watch({"--stall", "0"}), Watch({"a", "b"}), Watch({"--"}),
          Watch({"--force"}), Watch({"--check", "--", "true"})}) {
        const Outcome outcome = system_test::RunToEnd(words);
        EXPECT_EQ(64, outcome.status);
        EXPECT_EQ(0u, outcome.err.find("bbpwatch: ")) << outcome.err;
        EXPECT_GT(160u, outcome.err.size()) << outcome.err;
        EXPECT_EQ(std::string::npos, outcome.err.find("expected: --\n"));
    }
}

}  // namespace
