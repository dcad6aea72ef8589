// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "tools/watch/Ending.h"

namespace {

using tools::Advice;
using tools::Content;
using tools::Ending;
using tools::Milliseconds;
using tools::Verdict;

Ending Failing() {
    Ending ending;
    ending.verdict = Verdict::Failure;
    ending.status = 1;
    ending.updaters_status = 1;
    ending.elapsed = Milliseconds(125000);
    ending.content = Content::Unknown;
    ending.what = "DCMD_I2C_SEND /dev/i2c1 for addr 0x2E with result \"No such device\" (6)";
    ending.where.phase = BBPFLASH_PHASE_DOWNLOAD;
    ending.where.pass = 2;
    ending.where.percent = 79;
    ending.where.segment = 516;
    ending.segments = 516;
    ending.log = "/var/tmp/bbpwatch-XXXXXX.log";
    return ending;
}

TEST(Ending, TellsWhatWhereChipNextAndLog) {
    Ending ending = Failing();
    ending.next = "Wait.";
    const std::vector<std::string> expected = {
        "bbpwatch: failed after 2:05, status 1",
        "  what  DCMD_I2C_SEND /dev/i2c1 for addr 0x2E with result \"No such device\" (6)",
        "  where download of pass 2, 79 %, segment 516 of 516",
        "  chip  unknown; the chip may still be writing: leave the power on",
        "  next  Wait.",
        "  log   /var/tmp/bbpwatch-XXXXXX.log"};
    EXPECT_EQ(expected, Lines(ending, 0));
}

TEST(Ending, TellsThePlaceAsFarAsItIsKnown) {
    Ending ending = Failing();
    ending.segments = 0;
    EXPECT_EQ("  where download of pass 2, 79 %, segment 516", Lines(ending, 0).at(2));
    ending.where.segment.reset();
    ending.where.pass = 1;
    const std::map<bbpflash_phase, std::string> places = {
        {BBPFLASH_PHASE_RESET, "reset and version check"},
        {BBPFLASH_PHASE_CHECK, "version check"},
        {BBPFLASH_PHASE_DOWNLOAD, "download"},
        {BBPFLASH_PHASE_BURN, "burn"},
        {BBPFLASH_PHASE_ERASE, "burn (erase)"},
        {BBPFLASH_PHASE_PROGRAM, "burn (program)"},
        {BBPFLASH_PHASE_VERIFY, "burn (verify)"},
        {BBPFLASH_PHASE_ENDED, "end"}};
    for (const auto& [phase, place] : places) {
        ending.where.phase = phase;
        EXPECT_EQ("  where " + place + ", 79 %", Lines(ending, 0).at(2));
    }
}

TEST(Ending, CutsWordsOfTheUpdaterThatHaveNoEnd) {
    Ending ending = Failing();
    ending.what.assign(5000, 'x');
    const std::string what = Lines(ending, 0).at(1);
    EXPECT_EQ("  what  xxx", what.substr(0, 11));
    EXPECT_EQ("x...", what.substr(what.size() - 4));
    EXPECT_GT(1000u, what.size());
}

TEST(Ending, HasANameForEachVerdict) {
    const nlohmann::json schema = nlohmann::json::parse(std::ifstream(EVENT_SCHEMA));
    std::set<std::string> names;
    for (int verdict = 0; verdict <= static_cast<int>(Verdict::NotStarted); ++verdict) {
        names.insert(NameOf(static_cast<Verdict>(verdict)));
    }
    EXPECT_EQ(names, schema.at("properties").at("verdict").at("enum").get<std::set<std::string>>());
}

TEST(Ending, FitsTwelveLinesOfSixtyColumnsWhateverTheAdvice) {
    for (const Advice& advice : tools::AllAdvice()) {
        Ending ending = Failing();
        ending.what = advice.meaning;
        ending.next = advice.next;
        for (const int width : {59, 99}) {
            const std::vector<std::string> lines = Lines(ending, width);
            EXPECT_GE(12u, lines.size()) << advice.code;
            for (const std::string& line : lines) {
                EXPECT_GE(static_cast<std::size_t>(width), line.size()) << line;
            }
        }
    }
}

TEST(Ending, BreaksLinesEvenInsideAWord) {
    Ending ending = Failing();
    ending.log = "/" + std::string(100, 'x');
    for (int width = 9; width < 60; ++width) {
        for (const std::string& line : Lines(ending, width)) {
            EXPECT_GE(static_cast<std::size_t>(width), line.size()) << line;
        }
    }
}

TEST(Ending, LetsNoControlCharacterThrough) {
    Ending ending = Failing();
    ending.what = ending.log = "\x1B[2J\n\r";
    for (const std::string& line : Lines(ending, 0)) {
        EXPECT_EQ(std::string::npos, line.find_first_of("\x1B\n\r"));
    }
    ending.verdict = Verdict::Success;
    ending.from = ending.to = "\x1B[2J";
    EXPECT_EQ("\\x1b[2J -> \\x1b[2J, verified, 2:05", Headline(ending));
}

TEST(Ending, IsOneLineWhenAllIsWell) {
    Ending ending = Failing();
    ending.verdict = Verdict::Success;
    ending.from = "HD 2.10.4";
    ending.to = "HD 2.11.0";
    EXPECT_EQ(std::vector<std::string>{"bbpwatch: HD 2.10.4 -> HD 2.11.0, verified, 2:05"},
              Lines(ending, 0));
}

}  // namespace
