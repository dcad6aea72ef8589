// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <functional>
#include <numeric>
#include <random>
#include <stdexcept>

#include "tests/unit/chip/HdChipFixture.h"

namespace {

using fake::Bytes;
using fake::Reply;
using testing::ElementsAre;

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
        output_ = fake::Capture([&] { result = chip_.PrintSysCfg(); });
        return result;
    }

    fake::Output output_;
};

TEST_F(HdChipGetVersion, TakesTheTextBehindByte0AndDropsTheNulThatClosesIt) {
    platform.Answer(Reply({0x77, '1', '.', '2', '.', '3', 0}));
    std::string version = "before";

    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_EQ(version, "1.2.3");
    EXPECT_THAT(platform.Messages(), ElementsAre());
}

TEST_F(HdChipGetVersion, ByteBehindThePayloadIsNulWhateverCameBefore) {
    platform.Answer(Reply(Bytes(51, 'x')));
    platform.Answer(Reply({0x77, '1', '.', '2', '.', '3', 0}));
    std::string version;
    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_EQ(version, "1.2.3");
}

TEST_F(HdChipGetVersion, DropsTheLastTwoCharactersWhateverTheyAre) {
    platform.Answer(Reply({0x77, '1', '.', '2', '.', '3'}));  // no NUL of its own
    std::string version;

    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_EQ(version, "1.2.");
}

TEST_F(HdChipGetVersion, RemovesLeadingBlanksAndKeepsThoseInside) {
    platform.Answer(Reply({0x77, ' ', ' ', 'A', ' ', 'B', 0}));
    std::string version;

    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_EQ(version, "A B");
}

TEST_F(HdChipGetVersion, BlankBeforeTheClosingNulIsNotTrimmed) {
    platform.Answer(Reply({0x77, 'A', ' ', 0}));
    std::string version;

    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_EQ(version, "A ");
}

TEST_F(HdChipGetVersion, BlankInPlaceOfTheClosingNulIsOneOfTheTwoDropped) {
    platform.Answer(Reply({0x77, 'A', 'B', ' '}));
    std::string version;

    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_EQ(version, "AB");
}

TEST_F(HdChipGetVersion, OfBlanksAloneIsTheNulBehindThem) {
    platform.Answer(Reply({0x77, ' ', ' ', ' '}));
    std::string version;

    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_EQ(version, std::string(1, '\0'));
}

TEST_F(HdChipGetVersion, OfAReplyWithByte0AloneIsTheNulBehindIt) {
    platform.Answer(Reply({0x77}));
    std::string version;

    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_EQ(version, std::string(1, '\0'));
}

TEST_F(HdChipGetVersion, OfAReplyWithoutPayloadIsOutOfRange) {
    platform.Answer(Reply());
    std::string version = "before";

    EXPECT_THROW(chip_.GetVersion(version), std::out_of_range);

    EXPECT_EQ(version, "");
}

TEST_F(HdChipGetVersion, TakesTheLongestReply) {
    Bytes payload(51, 'v');
    payload.back() = 0;
    platform.Answer(Reply(payload));
    std::string version;

    EXPECT_TRUE(chip_.GetVersion(version));

    EXPECT_EQ(version, std::string(49, 'v'));
}

TEST_F(HdChipGetVersion, KeepsTheOldTextWhenTheReplyIsRejected) {
    platform.Answer(Reply({0x77, '1', 0}).Status(0));
    std::string version = "before";

    fake::Capture([&] { EXPECT_FALSE(chip_.GetVersion(version)); });

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

            fake::Capture([&] { result = chip_.GetVersion(version); });

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
        EXPECT_EQ(std::count(output_.out.begin(), output_.out.end(), '\n'), 16 + 2);
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
    EXPECT_EQ(output_.out, expected + "\n\n");
    EXPECT_EQ(output_.err, "");
}

TEST_F(HdChipPrintSysCfg, GivesTheRoomForTheKindAndTheBytesBack) {
    for (const int result : {0, 1}) {
        ForgetScript();
        Script("RetrieveLong", result);  // in place of the engine's, which makes blocks of its own

        EXPECT_EQ(Print(), result == 1);

        EXPECT_EQ(LastBlockSize(), 1u + 256u);
        EXPECT_TRUE(LastBlockIsFree());
    }
}

TEST_F(HdChipPrintSysCfg, StaysInsideItsMemoryForEveryCount) {
    for (int count = 0; count <= 255; ++count) {
        platform.Answer(Configuration(0xA5, static_cast<std::uint8_t>(count)));
        EXPECT_TRUE(Print());
        EXPECT_EQ(output_.out.size(), 16u * (3 + 16 * 3) + 2);
    }
}

TEST_F(HdChipPrintSysCfg, ReportsWhenThereIsNoMemoryForTheReplyAfterTheRequest) {
    FailMemory(0);

    EXPECT_FALSE(Print());

    EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: allocating memory buffer"));
    EXPECT_THAT(BusTrace(), ElementsAre("LOCK", "SEND 30", "UNLOCK", "usleep 5000"));
    EXPECT_EQ(output_.err, "");
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
