// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <functional>
#include <numeric>

#include "tests/unit/chip/HdChipFixture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

// A short command: how it is called, what it sends, and its result when a step fails.
struct Command {
    const char* name;
    std::function<int(HdChip&)> call;
    std::string begin;
    std::string fill;
    std::uint8_t opcode;
    std::uint8_t function;
    std::string wait;
    std::string retrieve;
    int without_engine;
    int without_segments;
    int failed;
};

void PrintTo(const Command& command, std::ostream* stream) {
    *stream << command.name;
}

int GetVersion(HdChip& chip) {
    std::string version = "before";
    const bool result = chip.GetVersion(version);
    EXPECT_TRUE(result || version == "before");
    return result ? 1 : 0;
}

const Command COMMANDS[] = {
    {"GetVersion", GetVersion, "Begin 80 1", "Fill 01", 0x80, 0x01, "usleep 5000", "RetrieveShort",
     0, 0, 0},
    {"PrintSysCfg", [](HdChip& chip) { return chip.PrintSysCfg() ? 1 : 0; }, "Begin 83 1",
     "Fill 09", 0x83, 0x09, "usleep 5000", "RetrieveLong", 0, 0, 0},
    {"GetNvmStatus", [](HdChip& chip) { return chip.GetNvmStatus(); }, "Begin 84 1", "Fill 0C",
     0x84, 0x0C, "usleep 5000", "RetrieveShort", -1, 0, -1},
    {"ProgramWriteStatus", [](HdChip& chip) { return chip.ProgramWriteStatus(); }, "Begin 84 1",
     "Fill 05", 0x84, 0x05, "usleep 1000", "RetrieveShort", -1, 0, -1},
    {"UnprotectNvm", [](HdChip& chip) { return chip.UnprotectNvm() ? 1 : 0; }, "Begin 84 1",
     "Fill 0B", 0x84, 0x0B, "usleep 5000", "RetrieveShort", 0, 0, 0},
};

class HdChipCommand : public HdChipTest, public testing::WithParamInterface<Command> {
  protected:
    HdChipCommand() { platform.default_reply = fake::Reply({1, 1, 1}); }

    int Call() {
        int result = -99;
        output_ = fake::Capture([&] { result = GetParam().call(chip_); });
        return result;
    }

    // The whole trace of the command that succeeds.
    std::vector<std::string> WholeTrace() const {
        return {"Reset 0",
                "SetNumSegs 14",
                GetParam().begin,
                GetParam().fill,
                "Terminate",
                "Send",
                "LOCK",
                "SEND 30",
                "UNLOCK",
                GetParam().wait,
                GetParam().retrieve,
                "LOCK",
                "RECV 81",
                "UNLOCK"};
    }

    // The same up to the first step of that name.
    std::vector<std::string> TraceUpTo(const std::string& step) const {
        std::vector<std::string> trace = WholeTrace();
        trace.erase(std::find(trace.begin(), trace.end(), step) + 1, trace.end());
        return trace;
    }

    fake::Output output_;
};

INSTANTIATE_TEST_SUITE_P(, HdChipCommand, testing::ValuesIn(COMMANDS),
                         [](const auto& one) { return one.param.name; });

TEST_P(HdChipCommand, TakesItsStepsInThisOrder) {
    Call();

    EXPECT_THAT(platform.trace, ElementsAreArray(WholeTrace()));
}

TEST_P(HdChipCommand, SendsItsOpcodeAndFunctionInOneSegment) {
    Call();

    fake::Bytes request{
        0xA5, 0xA5, 0, 1, 14, 0, GetParam().opcode, 0, 1, 0, 0, 0, GetParam().function};
    request.push_back(
        static_cast<std::uint8_t>(std::accumulate(request.begin(), request.end(), 0)));
    EXPECT_THAT(platform.Requests(), ElementsAre(request));
    EXPECT_EQ(platform.Calls(DCMD_I2C_SEND).at(0).data[0], 0x17);
    EXPECT_EQ(platform.Calls(DCMD_I2C_SEND).at(0).fd, 11);
}

TEST_P(HdChipCommand, StartsFromAResetEngineButKeepsTheCount) {
    chip_.lm->currSeg = 5;
    chip_.lm->lmCount = 77;

    Call();

    EXPECT_EQ(platform.Requests().at(0)[2], 77);
    EXPECT_EQ(platform.Requests().at(0)[10], 0);
}

TEST_P(HdChipCommand, DoesNothingWithoutAWordWhenThereIsNoEngine) {
    RemoveEngine();

    EXPECT_EQ(Call(), GetParam().without_engine);

    EXPECT_EQ(output_.out, "");
    EXPECT_EQ(output_.err, "");
    EXPECT_THAT(platform.trace, ElementsAre());
}

TEST_P(HdChipCommand, EndsWhenTheSegmentsCannotBeSet) {
    Script("SetNumSegs", 0);

    EXPECT_EQ(Call(), GetParam().without_segments);

    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: setting total number of segments"));
    EXPECT_THAT(platform.trace, ElementsAreArray(TraceUpTo("SetNumSegs 14")));
}

TEST_P(HdChipCommand, EndsWhenItCannotBegin) {
    Script("Begin", 0);

    EXPECT_EQ(Call(), GetParam().failed);

    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: beginning"));
    EXPECT_THAT(platform.trace, ElementsAreArray(TraceUpTo(GetParam().begin)));
}

TEST_P(HdChipCommand, EndsWhenItCannotFillExactlyOneByte) {
    Script("Fill", 0, 0);
    Script("Fill", 2, 1);
    Script("Fill", -1, 2);
    for (int i = 0; i < 3; ++i) {
        platform.trace.clear();
        platform.log.clear();

        EXPECT_EQ(Call(), GetParam().failed);

        EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: filling"));
        EXPECT_THAT(platform.trace, ElementsAreArray(TraceUpTo(GetParam().fill)));
    }
}

TEST_P(HdChipCommand, EndsWhenItCannotTerminate) {
    Script("Terminate", 0);

    EXPECT_EQ(Call(), GetParam().failed);

    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: terminating"));
    EXPECT_THAT(platform.trace, ElementsAreArray(TraceUpTo("Terminate")));
}

TEST_P(HdChipCommand, EndsWhenItSendsAnythingButOneByte) {
    Script("Send", 0, 0);
    Script("Send", 2, 1);
    Script("Send", -1, 2);
    for (int i = 0; i < 3; ++i) {
        platform.trace.clear();
        platform.log.clear();

        EXPECT_EQ(Call(), GetParam().failed);

        EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: sending"));
        EXPECT_THAT(platform.trace, ElementsAreArray(TraceUpTo("Send")));
    }
}

TEST_P(HdChipCommand, EndsWhenTheBusDoesNotTakeTheRequest) {
    platform.Fail(DCMD_I2C_SEND, EIO);

    EXPECT_EQ(Call(), GetParam().failed);

    EXPECT_EQ(platform.Messages().back(), "ERROR: sending");
    EXPECT_THAT(platform.sleeps, ElementsAre());
}

TEST_P(HdChipCommand, EndsWhenTheReplyCannotBeFetched) {
    platform.Fail(DCMD_I2C_RECV, EIO);

    EXPECT_EQ(Call(), GetParam().failed);

    EXPECT_EQ(platform.Messages().back(), "ERROR: confirming");
    EXPECT_EQ(platform.Requests().size(), 1u) << "no second try";
}

}  // namespace
