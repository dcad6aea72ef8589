// SPDX-License-Identifier: Apache-2.0
// The state machine of main alone: its four steps are replaced by ones that return what a test
// says, states that the real ones never return among them.
#include <gmock/gmock.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <stdexcept>
#include <string>
#include <vector>

#include "driver/bbpflash.h"
#include "tests/support/CommandLine.h"
#include "tests/support/FakePlatform.h"

extern "C" int bbpflash_main(int argc, char** argv);

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;

std::vector<int> g_results;         // of the steps, in order
std::vector<std::string> g_called;  // the steps
bool g_make_chip = false;           // in the first step, on a bus that notes its end
HcLogical* g_engine = nullptr;      // of that chip

int Step(const std::string& name) {
    g_called.push_back(name);
    if (g_results.empty()) {
        throw std::logic_error("more steps than the test has results for");
    }
    const int result = g_results.front();
    g_results.erase(g_results.begin());
    return result;
}

struct NotedBus : I2cBus {
    NotedBus() : I2cBus(0x2E) {}
    ~NotedBus() override { g_called.push_back("bus deleted"); }
};

class DriverStates : public testing::Test {
  protected:
    DriverStates() {
        g_called.clear();
        g_make_chip = false;
        p_ischip = reinterpret_cast<HdChip*>(this);  // none: main must not take it for one
        state = 77;
        std::fill(g_options, g_options + OPTION_COUNT, true);
    }
    ~DriverStates() override {
        delete g_p_hutil_msg;
        delete g_p_hutil_opt;
        g_p_hutil_msg = nullptr;
        g_p_hutil_opt = nullptr;
    }

    // Runs main over steps with these results; returns what it wrote. It must end with success.
    static std::string Run(CommandLine&& line, const std::vector<int>& results) {
        g_results = results;
        int status = -1;
        const fake::Output output = fake::Capture([&] {
            status = bbpflash_main(line.Count(), line.Vector());
            EXPECT_EQ(__fpending(stdout), 0u) << "what was printed is out";
        });
        EXPECT_EQ(status, 0);
        EXPECT_EQ(output.err, "");
        return output.out;
    }

    // Runs main to its end by exit, standard output where a death test looks.
    static void RunToExit(CommandLine&& line, const std::vector<int>& results) {
        g_results = results;
        dup2(STDERR_FILENO, STDOUT_FILENO);
        bbpflash_main(line.Count(), line.Vector());
    }

    fake::Platform platform_;
};

typedef DriverStates DriverStatesDeathTest;

const char TERMINATED[] =
    "^bbpflash CRITICAL: Programming terminated @bbpflash.cpp:[0-9]+\nERROR\n$";

std::string Unknown(int value) {
    return "^bbpflash CRITICAL: Unknown programming state \\(" + std::to_string(value) +
           "\\) @bbpflash.cpp:[0-9]+\nERROR\n$";
}

}  // namespace

int bbpflash_init() {
    EXPECT_EQ(p_ischip, nullptr);
    if (g_make_chip) {
        p_ischip = new HdChip(BUSTYPE_I2C);
        delete p_ischip->bus;
        p_ischip->bus = new NotedBus;
        g_engine = p_ischip->lm;
    }
    return Step("init");
}

int bbpflash_reset() {
    return Step("reset");
}

int bbpflash_check_version() {
    return Step("check");
}

int bbpflash_program() {
    return Step("program");
}

TEST_F(DriverStates, LeadFromInitialiseToDone) {
    EXPECT_EQ(Run({"bbpflash", "-s", "image.bin"}, {1, 2, 4}), "100\nDONE\n");
    EXPECT_THAT(g_called, ElementsAre("init", "reset", "check"));
    EXPECT_EQ(state, 4);
}

TEST_F(DriverStates, LeadFromProgramThroughResetToAnotherCheck) {
    EXPECT_EQ(Run({"bbpflash", "-s", "image.bin"}, {1, 2, 3, 1, 2, 4}), "100\nDONE\n");
    EXPECT_THAT(g_called, ElementsAre("init", "reset", "check", "program", "reset", "check"));
}

TEST_F(DriverStates, AllowThreePasses) {
    EXPECT_EQ(Run({"bbpflash", "-s", "image.bin"}, {1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 4}),
              "100\nDONE\n");
    EXPECT_EQ(std::count(g_called.begin(), g_called.end(), "program"), 3);
}

TEST_F(DriverStates, AreForcedToProgramOnceWhateverTheCheckReturned) {
    for (const int checked : {3, 4, 5, 6, -1}) {
        g_called.clear();
        EXPECT_EQ(Run({"bbpflash", "-f", "-s", "image.bin"}, {1, 2, checked, 1, 2, 4}),
                  "100\nDONE\n");
        EXPECT_THAT(g_called, ElementsAre("init", "reset", "check", "program", "reset", "check"));
        EXPECT_FALSE(g_options[OPTION_FORCE]);
        delete g_p_hutil_msg;
        delete g_p_hutil_opt;
        g_p_hutil_msg = nullptr;
        g_p_hutil_opt = nullptr;
    }
}

TEST_F(DriverStates, WriteOnlyTheBannerWithoutStatusMode) {
    EXPECT_EQ(Run({"bbpflash", "image.bin"}, {1, 2, 4}),
              "bbpflash MSG: HD tuner firmware updater\n");
}

TEST_F(DriverStates, BeginWithTheFlagsOfTheCommandLineAloneAndItsLastWord) {
    Run({"bbpflash", "-x", "-v", "image.bin"}, {1, 2, 4});
    EXPECT_THAT(g_options, ElementsAre(false, false, false));
    EXPECT_EQ(filename, "image.bin");
}

TEST_F(DriverStates, EndByDeletingTheChipWithItsBus) {
    g_make_chip = true;
    EXPECT_EQ(Run({"bbpflash", "-s", "image.bin"}, {1, 2, 4}), "100\nDONE\n");
    EXPECT_THAT(g_called, ElementsAre("init", "reset", "check", "bus deleted"));
    delete g_engine;
}

TEST_F(DriverStates, LetTheErrorOfAStepThrough) {
    CommandLine line{"bbpflash", "-s", "image.bin"};
    g_results = {1, 2};
    EXPECT_THROW(bbpflash_main(line.Count(), line.Vector()), std::logic_error);
}

TEST_F(DriverStatesDeathTest, FailWhenAnyStepFails) {
    EXPECT_EXIT(RunToExit({"bbpflash", "-s", "image.bin"}, {5}), ExitedWithCode(1), TERMINATED);
    EXPECT_EXIT(RunToExit({"bbpflash", "-s", "image.bin"}, {1, 5}), ExitedWithCode(1), TERMINATED);
    EXPECT_EXIT(RunToExit({"bbpflash", "-s", "image.bin"}, {1, 2, 5}), ExitedWithCode(1),
                TERMINATED);
    EXPECT_EXIT(RunToExit({"bbpflash", "-s", "image.bin"}, {1, 2, 3, 5}), ExitedWithCode(1),
                TERMINATED);
}

TEST_F(DriverStatesDeathTest, FailAtTheFourthPassWithoutProgramming) {
    EXPECT_EXIT(RunToExit({"bbpflash", "-s", "image.bin"}, {1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3}),
                ExitedWithCode(1),
                "^bbpflash CRITICAL: maximum number of programming tries exceeded "
                "@bbpflash.cpp:[0-9]+\nERROR\n$");
}

TEST_F(DriverStatesDeathTest, CountAForcedPassAmongTheThree) {
    EXPECT_EXIT(
        RunToExit({"bbpflash", "-f", "-s", "image.bin"}, {1, 2, 4, 1, 2, 3, 1, 2, 3, 1, 2, 3}),
        ExitedWithCode(1), "maximum number of programming tries exceeded");
}

TEST_F(DriverStatesDeathTest, FailOutsideZeroToFiveWithTheNumber) {
    for (const int unknown : {6, 7, -1, -5, INT_MAX, INT_MIN}) {
        EXPECT_EXIT(RunToExit({"bbpflash", "-s", "image.bin"}, {unknown}), ExitedWithCode(1),
                    Unknown(unknown));
    }
    EXPECT_EXIT(RunToExit({"bbpflash", "-s", "image.bin"}, {1, 6}), ExitedWithCode(1), Unknown(6));
    EXPECT_EXIT(RunToExit({"bbpflash", "-s", "image.bin"}, {1, 2, 6}), ExitedWithCode(1),
                Unknown(6));
    EXPECT_EXIT(RunToExit({"bbpflash", "-s", "image.bin"}, {1, 2, 3, 6}), ExitedWithCode(1),
                Unknown(6));
}

TEST_F(DriverStatesDeathTest, AreNotEnteredWithoutAnArgument) {
    EXPECT_EXIT(RunToExit({"bbpflash"}, {}), ExitedWithCode(1),
                "^bbpflash ERROR: Please try \"use bbpflash\" to get usage details\n "
                "@bbpflash.cpp:[0-9]+\n$");
}
