// SPDX-License-Identifier: Apache-2.0
// What bbpwatch says at the end, to people and to programs.
#include <algorithm>
#include <csignal>

#include "tests/tools/BbpwatchFixture.h"

namespace {

using system_test::operator+;

class BbpwatchEnd : public BbpwatchFixture {
  protected:
    static std::ptrdiff_t CountLines(const std::string& text) {
        return std::count(text.begin(), text.end(), '\n');
    }

    static bool Has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }

    nlohmann::json EndOf(const Outcome& outcome) const { return Events(outcome.out).back(); }

    Outcome Run(const Words& words) const { return system_test::RunToEnd(words); }
};

TEST_F(BbpwatchEnd, TellsBothVersionsOfAnUpdateWithAnImageAlone) {
    const Outcome outcome = Run(Simulated({}, Watch({folder_.Path("image.bin")})));
    EXPECT_EQ(0, outcome.status) << outcome.out << outcome.err;
    EXPECT_TRUE(Has(outcome.out, "\nbbpwatch: 1.0.0 -> 2.0.0, verified, 0:")) << outcome.out;
    EXPECT_FALSE(Has(outcome.out, "INF:")) << outcome.out;
}

TEST_F(BbpwatchEnd, IsUpToDateInOneWordForPeopleAndOneForPrograms) {
    const Words unit = {"--installed", "2.0.0"};
    const Outcome plain = Run(Simulated(unit, Watch({folder_.Path("image.bin")})));
    EXPECT_TRUE(Has(plain.out, "bbpwatch: up to date: 2.0.0, nothing was written, 0:"));
    const Outcome json = Run(Simulated(unit, Watch({"--json", folder_.Path("image.bin")})));
    EXPECT_EQ(0, json.status);
    EXPECT_EQ("current", EndOf(json)["verdict"]);
    EXPECT_EQ("2.0.0", EndOf(json)["to"]);
}

// The updater itself writes 276 lines here.
TEST_F(BbpwatchEnd, TellsAFailureInTwelveLines) {
    const Outcome outcome = Run(Simulated(
        {"--fault", "segment 9 nak"}, Command({}, {"bbpflash", "-s", folder_.Path("image.bin")})));
    EXPECT_EQ(1, outcome.status);
    EXPECT_GE(12, CountLines(outcome.out));
    EXPECT_TRUE(Has(outcome.out, "  what  DCMD_I2C_SEND /dev/i2c1 for addr 0x2E")) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "  where download, 1 %, segment 9 of 516\n"));
    EXPECT_TRUE(Has(outcome.out, "  chip  the old firmware, untouched\n"));
    EXPECT_TRUE(Has(outcome.out, "  next  Check the cable and the power of the unit."));
    const std::size_t at = outcome.out.find("  log   ");
    ASSERT_NE(std::string::npos, at);
    const std::string log = outcome.out.substr(at + 8, outcome.out.size() - at - 9);
    EXPECT_TRUE(Has(folder_.Read(log), "curr seg: 8"));
}

TEST_F(BbpwatchEnd, EndsAnUpdateThatTheChipRefuses) {
    const Outcome outcome =
        Run(Simulated({"--fault", "burn reject"},
                      Watch({"--json", "--log", folder_.Path("log"), folder_.Path("image.bin")})));
    EXPECT_EQ(77, outcome.status);
    const nlohmann::json end = EndOf(outcome);
    EXPECT_EQ("refused", end["verdict"]);
    EXPECT_EQ("refused-crc", end["reason"]);
    EXPECT_EQ("old", end["chip"]);
    EXPECT_EQ(folder_.Path("log"), end["log"]);
}

TEST_F(BbpwatchEnd, KnowsThatARefusalAfterTheEraseLeavesNoFirmware) {
    const Outcome outcome =
        Run(Simulated({"--fault", "burn verify-fails"},
                      Watch({"--log", folder_.Path("log"), folder_.Path("image.bin")})));
    EXPECT_EQ(77, outcome.status);
    EXPECT_TRUE(Has(outcome.out, "neither the old firmware nor the new one")) << outcome.out;
}

TEST_F(BbpwatchEnd, NeverTrustsACommandThatSaidNothing) {
    const Outcome outcome = Run(Command({"--json"}, {"true"}));
    EXPECT_EQ(76, outcome.status);
    EXPECT_EQ("doubtful", EndOf(outcome)["verdict"]);
    EXPECT_EQ("nothing-said", EndOf(outcome)["reason"]);
}

TEST_F(BbpwatchEnd, LearnsTheModeFromTheLines) {
    const Words hidden = {"sh", "-c", "printf '80\\n99\\n100\\nDONE\\n'",
                          folder_.Path("image.bin")};
    EXPECT_EQ(0, Run(Command({}, hidden)).status);
    const Words cut = {"sh", "-c", "printf '80\\n99\\n'", folder_.Path("image.bin")};
    EXPECT_EQ(76, Run(Command({}, cut)).status);
}

TEST_F(BbpwatchEnd, TellsProgramsThatItDidNotStart) {
    folder_.Write("short.bin", "too short");
    const auto reason = [this](const Words& words, int status) {
        const Outcome outcome = Run(words);
        EXPECT_EQ(status, outcome.status);
        EXPECT_TRUE(Has(outcome.err, "bbpwatch: ")) << outcome.err;
        const nlohmann::json end = EndOf(outcome);
        EXPECT_EQ("not-started", end["verdict"]);
        EXPECT_EQ(status, end["status"]);
        return end["reason"].get<std::string>();
    };
    EXPECT_EQ("usage", reason(Watch({"--json", "--bogus"}), 64));
    EXPECT_EQ("usage", reason(Watch({"--json", "--stall", "1e30", "x"}), 64));
    EXPECT_EQ("image", reason(Watch({"--json", folder_.Path("short.bin")}), 65));
    EXPECT_EQ("system",
              reason(Watch({"--json", "--log", "/nowhere/x", folder_.Path("image.bin")}), 71));
    EXPECT_EQ("not-found", reason(Command({"--json"}, {"no-such-program"}), 127));
}

TEST_F(BbpwatchEnd, ChecksAUnitWithoutTouchingIt) {
    const Outcome outcome =
        Run(Simulated({}, Watch({"--json", "--check", folder_.Path("image.bin")})));
    EXPECT_EQ(0, outcome.status) << outcome.out;
    const std::vector<nlohmann::json> events = Events(outcome.out);
    EXPECT_EQ("ready", events.back()["verdict"]);
    EXPECT_EQ(8u, events.size());
    EXPECT_TRUE(Has(outcome.err, "resets     0\nmessages   0\n")) << outcome.err;
}

TEST_F(BbpwatchEnd, SaysWhatAUnitIsNotReadyFor) {
    const Words none = {"env", "UMOCKDEV_DIR=/nowhere"};
    const Outcome outcome = Run(none + Watch({"--check", folder_.Path("missing.bin")}));
    EXPECT_EQ(69, outcome.status);
    EXPECT_TRUE(Has(outcome.out, "NO   image: ")) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "bbpwatch: not ready for an update\n"));
}

TEST_F(BbpwatchEnd, FailsWhenEventsCannotBeWritten) {
    const std::string script = "exec \"$0\" \"$@\" >/dev/full";
    const Outcome outcome =
        Run(Words{"sh", "-c", script} + Command({"--json"}, {"touch", folder_.Path("started")}));
    EXPECT_EQ(74, outcome.status);
    EXPECT_FALSE(Exists("started"));
    EXPECT_TRUE(Has(outcome.err, "No space left on device")) << outcome.err;
}

}  // namespace
