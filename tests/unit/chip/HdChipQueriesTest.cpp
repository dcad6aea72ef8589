// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <functional>
#include <numeric>
#include <random>
#include <stdexcept>

#include "tests/unit/chip/HdChipFixture.h"

namespace {

using fake::Bytes;
using fake::Capture;
using fake::Output;
using fake::Reply;
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
    HdChipCommand() { platform.default_reply = Reply({1, 1, 1}); }

    int Call() {
        int result = -99;
        output = Capture([&] { result = GetParam().call(chip); });
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

    Output output;
};

INSTANTIATE_TEST_SUITE_P(, HdChipCommand, testing::ValuesIn(COMMANDS),
                         [](const auto& one) { return one.param.name; });

TEST_P(HdChipCommand, TakesItsStepsInThisOrder) {
    Call();

    EXPECT_THAT(platform.trace, ElementsAreArray(WholeTrace()));
}

TEST_P(HdChipCommand, SendsItsOpcodeAndFunctionInOneSegment) {
    Call();

    Bytes request{0xA5, 0xA5, 0, 1, 14, 0, GetParam().opcode, 0, 1, 0, 0, 0, GetParam().function};
    request.push_back(
        static_cast<std::uint8_t>(std::accumulate(request.begin(), request.end(), 0)));
    EXPECT_THAT(platform.Requests(), ElementsAre(request));
    EXPECT_EQ(platform.Calls(DCMD_I2C_SEND).at(0).data[0], 0x17);
    EXPECT_EQ(platform.Calls(DCMD_I2C_SEND).at(0).fd, 11);
}

TEST_P(HdChipCommand, StartsFromAResetEngineButKeepsTheCount) {
    chip.lm->currSeg = 5;
    chip.lm->lmCount = 77;

    Call();

    EXPECT_EQ(platform.Requests().at(0)[2], 77);
    EXPECT_EQ(platform.Requests().at(0)[10], 0);
}

TEST_P(HdChipCommand, DoesNothingWithoutAWordWhenThereIsNoEngine) {
    RemoveEngine();

    EXPECT_EQ(Call(), GetParam().without_engine);

    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
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

using HdChipGetVersion = HdChipTest;

class HdChipPrintSysCfg : public HdChipTest {
  protected:
    // A reply that one read completes: its first byte is the configuration's kind.
    static Reply Configuration(std::uint8_t kind, std::uint8_t count = 64) {
        Bytes bytes{count, kind, 0x10, 0x20, 0x30, 0, 0, 0x60, 0x70, 1, 0, 0, 0};
        bytes.resize(65, 0xCC);
        return Reply::Raw(bytes);
    }

    bool Print() {
        bool result = false;
        output = Capture([&] { result = chip.PrintSysCfg(); });
        return result;
    }

    Output output;
};

TEST_F(HdChipGetVersion, TakesTheTextBehindByte0AndDropsTheNulThatClosesIt) {
    platform.Answer(Reply({0x77, '1', '.', '2', '.', '3', 0}));
    std::string version = "before";

    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_EQ(version, "1.2.3");
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HdChipGetVersion, ByteBehindThePayloadIsNulWhateverCameBefore) {
    platform.Answer(Reply(Bytes(51, 'x')));
    platform.Answer(Reply({0x77, '1', '.', '2', '.', '3', 0}));
    std::string version;
    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_EQ(version, "1.2.3");
}

TEST_F(HdChipGetVersion, DropsTheLastTwoCharactersWhateverTheyAre) {
    platform.Answer(Reply({0x77, '1', '.', '2', '.', '3'}));  // no NUL of its own
    std::string version;

    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_EQ(version, "1.2.");
}

TEST_F(HdChipGetVersion, RemovesLeadingBlanksAndKeepsThoseInside) {
    platform.Answer(Reply({0x77, ' ', ' ', 'A', ' ', 'B', 0}));
    std::string version;

    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_EQ(version, "A B");
}

TEST_F(HdChipGetVersion, BlankBeforeTheClosingNulIsNotTrimmed) {
    platform.Answer(Reply({0x77, 'A', ' ', 0}));
    std::string version;

    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_EQ(version, "A ");
}

TEST_F(HdChipGetVersion, BlankInPlaceOfTheClosingNulIsOneOfTheTwoDropped) {
    platform.Answer(Reply({0x77, 'A', 'B', ' '}));
    std::string version;

    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_EQ(version, "AB");
}

TEST_F(HdChipGetVersion, OfBlanksAloneIsTheNulBehindThem) {
    platform.Answer(Reply({0x77, ' ', ' ', ' '}));
    std::string version;

    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_EQ(version, std::string(1, '\0'));
}

TEST_F(HdChipGetVersion, OfAReplyWithByte0AloneIsTheNulBehindIt) {
    platform.Answer(Reply({0x77}));
    std::string version;

    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_EQ(version, std::string(1, '\0'));
}

TEST_F(HdChipGetVersion, OfAReplyWithoutPayloadIsOutOfRange) {
    platform.Answer(Reply());
    std::string version = "before";

    EXPECT_THROW(chip.GetVersion(version), std::out_of_range);

    EXPECT_EQ(version, "");
}

TEST_F(HdChipGetVersion, TakesTheLongestReply) {
    Bytes payload(51, 'v');
    payload.back() = 0;
    platform.Answer(Reply(payload));
    std::string version;

    EXPECT_TRUE(chip.GetVersion(version));

    EXPECT_EQ(version, std::string(49, 'v'));
}

TEST_F(HdChipGetVersion, KeepsTheOldTextWhenTheReplyIsRejected) {
    platform.Answer(Reply({0x77, '1', 0}).Status(0));
    std::string version = "before";

    Capture([&] { EXPECT_FALSE(chip.GetVersion(version)); });

    EXPECT_EQ(version, "before");
}

TEST_F(HdChipGetVersion, StaysInsideItsMemoryForEveryCountAndContent) {
    std::mt19937 random(20260104);
    for (int count = 0; count <= 255; ++count) {
        for (int i = 0; i < 4; ++i) {
            const bool counts = count >= 14 && count <= 64;
            Bytes payload(counts ? static_cast<std::size_t>(count) - 13 : 51);
            for (std::uint8_t& byte : payload) {
                byte = static_cast<std::uint8_t>(random() % 3 == 0 ? ' ' : random());
            }
            platform.Answer(Reply(payload).Count(static_cast<std::uint8_t>(count)));
            std::string version = "before";
            bool result = false;

            Capture([&] { result = chip.GetVersion(version); });

            // Any other count takes another byte for the checksum: it fits only by chance.
            if (counts) {
                EXPECT_TRUE(result) << count;
            } else if (count < 13 || count > 64) {
                EXPECT_FALSE(result) << count;
            }
            EXPECT_LE(version.size(), 51u);
        }
    }
}

TEST_F(HdChipPrintSysCfg, TellsTheKindOfTheConfiguration) {
    const std::pair<std::uint8_t, const char*> kinds[] = {
        {std::uint8_t{0}, "INF: active system configuration"},
        {std::uint8_t{1}, "INF: Default system configuration data"},
        {std::uint8_t{2}, "INF: custom system configuration data"}};
    g_p_hutil_opt->verbosity = 6;
    for (const auto& [kind, text] : kinds) {
        platform.log.clear();
        platform.Answer(Configuration(kind));
        EXPECT_TRUE(Print());
        EXPECT_THAT(platform.Messages(), ElementsAre(text));
    }
}

TEST_F(HdChipPrintSysCfg, TellsNothingOfOtherKindsButStillDumps) {
    g_p_hutil_opt->verbosity = 6;
    for (const std::uint8_t kind : Bytes{3, 4, 0xA5, 0xFF}) {
        platform.Answer(Configuration(kind));
        EXPECT_TRUE(Print());
        EXPECT_THAT(platform.Messages(), ElementsAre());
        EXPECT_EQ(std::count(output.out.begin(), output.out.end(), '\n'), 16 + 2);
    }
}

TEST_F(HdChipPrintSysCfg, TellsTheKindOnlyToWhoAsksForInformation) {
    platform.Answer(Configuration(1));

    EXPECT_TRUE(Print());

    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HdChipPrintSysCfg, Dumps256BytesBehindTheKindToStandardOutput) {
    platform.Answer(Configuration(2, 15));

    EXPECT_TRUE(Print());

    const std::string zeros = "\n\t\t 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
    std::string expected = "\n\t\t 10 20 30 00 00 60 70 01 00 00 00 CC CC CC 00 00";
    for (int row = 1; row < 16; ++row) {
        expected += zeros;
    }
    EXPECT_EQ(output.out, expected + "\n\n");
    EXPECT_EQ(output.err, "");
}

TEST_F(HdChipPrintSysCfg, StaysInsideItsMemoryForEveryCount) {
    for (int count = 0; count <= 255; ++count) {
        platform.Answer(Configuration(0xA5, static_cast<std::uint8_t>(count)));
        EXPECT_TRUE(Print());
        EXPECT_EQ(output.out.size(), 16u * (3 + 16 * 3) + 2);
    }
}

TEST_F(HdChipPrintSysCfg, ReportsWhenThereIsNoMemoryForTheReplyAfterTheRequest) {
    FailMemory(0);

    EXPECT_FALSE(Print());

    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: allocating memory buffer"));
    EXPECT_THAT(BusTrace(), ElementsAre("LOCK", "SEND 30", "UNLOCK", "usleep 5000"));
    EXPECT_EQ(output.err, "");
}

TEST_F(HdChipPrintSysCfg, DumpsNoConfigurationWhenALaterReadFails) {
    Bytes bytes(65, 0);
    bytes[0] = 64;
    bytes[1] = 0xA5;
    bytes[5] = 200;
    bytes[9] = 1;
    platform.Answer(Reply::Raw(bytes));
    platform.Fail(DCMD_I2C_LOCK, EBUSY, 2);

    EXPECT_FALSE(Print());

    EXPECT_EQ(platform.Messages().back(), "ERROR: confirming");
}

}  // namespace
