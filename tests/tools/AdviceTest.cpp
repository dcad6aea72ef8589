// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>

#include "tools/watch/Advice.h"

namespace {

using tools::Advice;
using tools::ContentAdvice;

std::string ReadFile(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string Row(const std::string& first, const std::string& second, const std::string& third) {
    return "| " + first + " | " + second + " | " + third + " |\n";
}

// The tables of docs/recovery.md, as they have to be.
std::string AdviceTable() {
    std::string table = Row("first error", "meaning", "what to do") + "| --- | --- | --- |\n";
    for (const Advice& advice : tools::AllAdvice()) {
        std::string messages;
        for (const std::string& message : advice.messages) {
            messages += (messages.empty() ? "`" : ", `") + message + "`";
        }
        table += Row(messages.empty() ? "none: *" + advice.code + "*" : messages, advice.meaning,
                     advice.next);
    }
    return table;
}

std::string ContentTable() {
    std::string table = Row("the chip has", "in JSON", "what to do") + "| --- | --- | --- |\n";
    for (const ContentAdvice& advice : tools::AllContents()) {
        table += Row(advice.meaning, "`" + advice.code + "`",
                     advice.next.empty() ? "what the reason's row says" : advice.next);
    }
    return table;
}

// Between its marks the page has this text. With BBP_UPDATE_PAGES set it is put there.
void ExpectInPage(const std::string& name, const std::string& text) {
    const std::string page = ReadFile(RECOVERY_PAGE);
    const std::string begin = "<!-- " + name + ": from tools/watch/Advice.cpp -->\n\n";
    const std::string end = "\n<!-- end of " + name + " -->\n";
    const std::size_t from = page.find(begin);
    const std::size_t to = page.find(end);
    ASSERT_NE(std::string::npos, from) << begin;
    ASSERT_NE(std::string::npos, to) << end;
    const std::string found = page.substr(from + begin.size(), to - from - begin.size());
    EXPECT_EQ(text, found) << "run this test with BBP_UPDATE_PAGES=1";
    if (std::getenv("BBP_UPDATE_PAGES") != nullptr) {
        std::ofstream(RECOVERY_PAGE)
            << page.substr(0, from + begin.size()) << text << page.substr(to);
    }
}

TEST(Advice, IsThatOfTheRecoveryPage) {
    ExpectInPage("reasons", AdviceTable());
    ExpectInPage("contents", ContentTable());
}

TEST(Advice, HasOneCodeForEachReason) {
    std::set<std::string> codes;
    for (const Advice& advice : tools::AllAdvice()) {
        EXPECT_TRUE(codes.insert(advice.code).second) << advice.code;
        EXPECT_FALSE(advice.meaning.empty());
        EXPECT_FALSE(advice.next.empty());
        EXPECT_EQ(&advice, &tools::AdviceFor(advice.code));
    }
}

TEST(Advice, IsFoundByTheBeginningOfAMessage) {
    EXPECT_EQ("bus", tools::AdviceForMessage("Opening special device /dev/i2c1").code);
    EXPECT_EQ("too-large",
              tools::AdviceForMessage("133365760 would exceed maximum of 2^16 LM transfer capacity")
                  .code);
    EXPECT_EQ("unknown", tools::AdviceForMessage("an Opening special device").code);
    EXPECT_EQ("unknown", tools::AdviceForMessage("").code);
}

TEST(Advice, FitsTwelveLinesOfSixtyColumns) {
    // Two lines of headline, three of the first error, one of place, and three or four for these.
    for (const Advice& advice : tools::AllAdvice()) {
        EXPECT_GE(160u, advice.next.size()) << advice.code;
        EXPECT_GE(160u, advice.meaning.size()) << advice.code;
    }
    for (const ContentAdvice& advice : tools::AllContents()) {
        EXPECT_GE(150u, advice.next.size()) << advice.code;
    }
}

}  // namespace
