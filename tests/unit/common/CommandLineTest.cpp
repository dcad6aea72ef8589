// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/CommandLine.h"
#include "common/Failure.h"

namespace {

using common::CommandLine;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

constexpr int STATUS = 64;

std::optional<int> Parse(CommandLine& line, std::vector<const char*> words) {
    words.insert(words.begin(), "program");
    return line.Parse(static_cast<int>(words.size()), words.data(), STATUS, "; hint");
}

// What is said about the mistake in these words.
std::string Mistake(CommandLine& line, const std::vector<const char*>& words) {
    try {
        Parse(line, words);
    } catch (const common::Failure& mistake) {
        EXPECT_EQ(STATUS, mistake.Status());
        return mistake.what();
    }
    return "none";
}

class CommandLineTest : public testing::Test {
  protected:
    CommandLine line_{"Does a thing.", "program", "1.2"};
};

TEST_F(CommandLineTest, GivesEachVariableItsValue) {
    bool flag = false;
    std::string text = "before";
    double number = 1;
    std::vector<std::string> rest;
    line_.Flag("-f,--flag", flag, "A flag");
    line_.Value("--text", text, "A text");
    line_.Value("--number", number, 0.5, 2, "A number");
    line_.Value("FILE", rest, "Files");
    EXPECT_FALSE(Parse(line_, {"-f", "a", "--number", "1.5", "b"}));
    EXPECT_TRUE(flag);
    EXPECT_EQ("before", text);
    EXPECT_EQ(1.5, number);
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), rest);
}

TEST_F(CommandLineTest, TellsAnEmptyTextFromNone) {
    std::optional<std::string> text;
    line_.Value("--text", text, "A text");
    EXPECT_FALSE(Parse(line_, {}));
    EXPECT_FALSE(text);
    EXPECT_FALSE(Parse(line_, {"--text", ""}));
    EXPECT_EQ("", text);
}

TEST_F(CommandLineTest, PrintsWhatItIsAskedFor) {
    line_.Asked(
        "--list", [] { return "one\ntwo"; }, "Lists them");
    for (const auto& [word, answer] : {std::pair("--version", "1.2\n"), {"--list", "one\ntwo\n"}}) {
        CaptureStdout();
        EXPECT_EQ(0, Parse(line_, {word}));
        EXPECT_EQ(answer, GetCapturedStdout());
    }
    CaptureStdout();
    EXPECT_EQ(0, Parse(line_, {"--help"}));
    EXPECT_EQ(line_.Help(), GetCapturedStdout());
    EXPECT_THAT(line_.Help(), HasSubstr("Lists them"));
}

TEST_F(CommandLineTest, ShowsInItsHelpWhatAValueIsAndWhereMoreStands) {
    std::string text = "as it is now";
    std::string file;
    std::string pace;
    line_.Value("--text", text, "A text").WithDefault();
    line_.Value("--file", file, "A file").Named("PATH");
    line_.Value("--pace", pace, "A pace").WithDefault("as said");
    line_.Footer("More stands elsewhere.");
    const std::string help = line_.Help();
    EXPECT_THAT(help, ContainsRegex("--text [^\n]*as it is now"));
    EXPECT_THAT(help, ContainsRegex("--file PATH "));
    EXPECT_THAT(help, ContainsRegex("--pace [^\n]*as said"));
    EXPECT_THAT(help, HasSubstr("\nMore stands elsewhere."));
    EXPECT_FALSE(Parse(line_, {}));
    EXPECT_EQ("as it is now", text);
}

TEST_F(CommandLineTest, RefusesWhatItDoesNotKnowWithAHint) {
    unsigned number = 3;
    std::string word;
    line_.Value("--number", number, 1, 9, "A number");
    line_.Value("--word", word, "A word").OneOf({"yes", "no"});
    EXPECT_EQ("The following argument was not expected: --nix; hint", Mistake(line_, {"--nix"}));
    EXPECT_EQ("--number: Value 10 not in range 1 to 9; hint", Mistake(line_, {"--number", "10"}));
    EXPECT_THAT(Mistake(line_, {"--number", "x"}), HasSubstr("--number"));
    EXPECT_EQ("--word: maybe not in {yes,no}; hint", Mistake(line_, {"--word", "maybe"}));
}

TEST_F(CommandLineTest, LeavesAValueToWhoTakesIt) {
    std::vector<std::string> taken;
    const auto take = [&taken](const std::string& text) {
        if (text == "bad") {
            throw common::Failure("not that");
        }
        taken.push_back(text);
    };
    std::string word;
    line_.Each("--each", take, "Each one");
    line_.Value("--one", take, "One");
    line_.Value("WORD", word, "A word");
    EXPECT_FALSE(Parse(line_, {"--one", "d", "--each", "a", "--each", "b,c", "e"}));
    EXPECT_EQ((std::vector<std::string>{"a", "b,c", "d"}), taken);
    EXPECT_EQ("e", word);
    EXPECT_EQ("not that; hint", Mistake(line_, {"--each", "bad"}));
}

TEST_F(CommandLineTest, TakesAnOptionTwiceWhereItIsLetTo) {
    std::string once;
    std::string last;
    line_.Value("--once", once, "Given once");
    line_.LetTheLastCount();
    line_.Value("--last", last, "Given again");
    EXPECT_FALSE(Parse(line_, {"--last", "1", "--last", "2"}));
    EXPECT_EQ("2", last);
    EXPECT_THAT(Mistake(line_, {"--once", "1", "--once", "2"}), HasSubstr("--once"));
}

TEST_F(CommandLineTest, NeedsOneOfItsCommands) {
    std::string path;
    CommandLine first = line_.Command("first", "The first");
    first.Value("FILE", path, "A file").Required();
    const CommandLine second = line_.Command("second", "The second");
    EXPECT_THAT(Mistake(line_, {}), HasSubstr("subcommand"));
    EXPECT_THAT(Mistake(line_, {"first"}), HasSubstr("FILE"));
    EXPECT_FALSE(Parse(line_, {"first", "f"}));
    EXPECT_EQ("f", path);
    EXPECT_TRUE(first.IsGiven());
    EXPECT_FALSE(second.IsGiven());
}

TEST_F(CommandLineTest, LeavesWhatIsBehindTheFirstWord) {
    bool flag = false;
    std::vector<std::string> command;
    line_.Flag("--flag", flag, "A flag");
    line_.Value("command", command, "A command");
    line_.EndWithWords();
    EXPECT_FALSE(Parse(line_, {"ls", "--flag"}));
    EXPECT_FALSE(flag);
    EXPECT_EQ((std::vector<std::string>{"ls", "--flag"}), command);
}

}  // namespace
