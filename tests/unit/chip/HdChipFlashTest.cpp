// SPDX-License-Identifier: Apache-2.0
#include <functional>
#include <map>

#include "tests/unit/chip/HdChipFixture.h"

namespace {

using fake::Bytes;

struct Expectation {
    int value;
    std::string message;
};

// A status query: how it is called, where its reply carries the status, how it words it.
struct Query {
    const char* name;
    int (HdChip::*call)();
    std::size_t position;
    std::map<int, Expectation> by_code;
};

void PrintTo(const Query& query, std::ostream* stream) {
    *stream << query.name;
}

const Query QUERIES[] = {
    {"GetNvmStatus",
     &HdChip::GetNvmStatus,
     0,
     {{1, {1, ""}},
      {2, {-1, "ERROR: image verification failed, CRC error"}},
      {3, {3, "INF: idle, not in programming mode"}},
      {4, {4, "INF: erasing flash"}},
      {5, {5, "INF: programming flash"}},
      {6, {6, "INF: verifying flash image"}},
      {7, {-1, "ERROR: flash image and NVM security status mismatch"}},
      {8, {-1, "ERROR: using single tuner image on dual tuner flash"}},
      {9, {-1, "ERROR: using dual tuner image on single tuner flash"}}}},
    {"ProgramWriteStatus",
     &HdChip::ProgramWriteStatus,
     1,
     {{1, {1, ""}},
      {2, {-1, "ERROR: image verification failed, CRC error"}},
      {3, {3, "INF: idle, not in programming mode"}},
      {4, {4, "INF: erasing old flash contents"}},
      {5, {5, "INF: programming new flash contents"}},
      {6, {6, "INF: verifying new flash contents"}},
      {7, {-1, "ERROR: flash image and NVM security status mismatch"}},
      {8, {-1, "ERROR: using single tuner image on dual tuner flash"}},
      {9, {-1, "ERROR: using dual tuner image on single tuner flash"}}}},
};
const Expectation RESERVED{-1, "ERROR: unknown or reserved Pgm_Write_Status"};

class HdChipStatusQuery : public HdChipTest, public testing::WithParamInterface<Query> {
  protected:
    // The result for the status `code`, with other codes around it.
    int Ask(int code) {
        Bytes payload{0x42, 0x43, 0x44};
        payload[GetParam().position] = static_cast<std::uint8_t>(code);
        return AskWith(payload);
    }

    int AskWith(const Bytes& payload) {
        platform.Answer(fake::Reply(payload));
        platform.log.clear();
        int result = -99;
        output_ = fake::Capture([&] { result = (chip_.*GetParam().call)(); });
        return result;
    }

    fake::Output output_;
};

INSTANTIATE_TEST_SUITE_P(, HdChipStatusQuery, testing::ValuesIn(QUERIES),
                         [](const auto& one) { return one.param.name; });

TEST_P(HdChipStatusQuery, ReturnsAndReportsEveryCode) {
    for (int code = 0; code <= 255; ++code) {
        g_p_hutil_opt->verbosity = 6;
        const auto found = GetParam().by_code.find(code);
        const Expectation& expected = found == GetParam().by_code.end() ? RESERVED : found->second;

        EXPECT_EQ(Ask(code), expected.value) << "code " << code;
        std::vector<std::string> messages;
        if (!expected.message.empty()) {
            messages.push_back(expected.message);
        }
        EXPECT_THAT(platform.Messages(), testing::ElementsAreArray(messages)) << "code " << code;
    }
}

TEST_P(HdChipStatusQuery, SaysNothingOfProperStatesAtNormalVerbosity) {
    for (const int code : {1, 3, 4, 5, 6}) {
        EXPECT_EQ(Ask(code), code);
        EXPECT_EQ(output_.out, "");
    }
}

TEST_P(HdChipStatusQuery, ReportsErrorStatesAtNormalVerbosity) {
    for (const int code : {0, 2, 7, 8, 9, 10, 255}) {
        g_p_hutil_opt->verbosity = 0;
        EXPECT_EQ(Ask(code), -1);
        EXPECT_THAT(output_.out, testing::StartsWith("bbpflash ERROR: "));
    }
}

TEST_P(HdChipStatusQuery, TakesAReplyWithoutPayloadForStatus0WhateverCameBefore) {
    EXPECT_EQ(Ask(1), 1);

    EXPECT_EQ(AskWith({}), -1);

    EXPECT_THAT(platform.Messages(), testing::ElementsAre(RESERVED.message));
}

TEST_P(HdChipStatusQuery, CannotBeToldFromAFailedExchangeInAnErrorState) {
    EXPECT_EQ(Ask(2), -1);

    platform.Fail(DCMD_I2C_RECV, 5, 1);
    EXPECT_EQ(Ask(1), -1);
}

using HdChipUnprotectNvm = HdChipTest;

TEST_F(HdChipUnprotectNvm, SucceedsWhateverTheReplySays) {
    for (const Bytes& payload : {Bytes{}, Bytes{0}, Bytes{2, 2}, Bytes(51, 0xFF)}) {
        platform.Answer(fake::Reply(payload));
        EXPECT_TRUE(chip_.UnprotectNvm());
    }
    EXPECT_THAT(platform.Messages(), testing::ElementsAre());
}

TEST_F(HdChipUnprotectNvm, FailsForARejectedReply) {
    platform.Answer(fake::Reply({1}).Status(0x10));

    fake::Capture([&] { EXPECT_FALSE(chip_.UnprotectNvm()); });

    EXPECT_EQ(platform.Messages().back(), "ERROR: confirming");
}

}  // namespace
