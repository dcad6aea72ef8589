// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tools/watch/JsonReporter.h"
#include "tools/watch/Reporters.h"
#include "tools/watch/Watch.h"

namespace {

using tools::Milliseconds;

const char UPDATE[] =
    "9\n10\n40\n80\nb WRN: LM count mismatch (NOT FATAL)\n85\n90\n95\n99\n100\nDONE\n";

// What a reporter writes while it is told of an update with this output.
template <typename Reporter, typename... Arguments>
std::string Written(const std::string& output, Arguments... arguments) {
    std::string written;
    Reporter reporter([&written](const std::string& text) { written += text; }, arguments...);
    tools::WatchConfig config;
    tools::Watch watch(config, {&reporter});
    watch.Start({"bbpflash", "-s", "a.bin"});
    watch.Take(output.data(), output.size(), Milliseconds(10000));
    watch.Tick(Milliseconds(10200));
    watch.Finish(0, false, Milliseconds(20000));
    return written;
}

TEST(PlainReporter, WritesPhasesTenthsMessagesAndTheEnd) {
    EXPECT_EQ(
        "bbpwatch: download\n"
        "bbpwatch: 10%\n"
        "bbpwatch: 40%\n"
        "bbpwatch: burn: do not switch off\n"
        "b WRN: LM count mismatch (NOT FATAL)\n"
        "bbpwatch: erase: do not switch off\n"
        "bbpwatch: program: do not switch off\n"
        "bbpwatch: verify: do not switch off\n"
        "bbpwatch: check\n"
        "bbpwatch: updated and verified after 0:20\n",
        Written<tools::PlainReporter>(UPDATE));
}

TEST(PlainReporter, WritesNoControlCharacterWhateverTheUpdaterSays) {
    const std::string written =
        Written<tools::PlainReporter>("b MSG: x\x1B[2J\a\x07\r y\x7F\n100\nDONE\n");
    EXPECT_EQ(std::string::npos, written.find_first_not_of("\n !\"#$%&'()*+,-./0123456789:;<=>?@"
                                                           "ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
                                                           "abcdefghijklmnopqrstuvwxyz{|}~"));
    EXPECT_NE(std::string::npos, written.find("x\\x1b[2J"));
}

TEST(JsonReporter, WritesOneObjectALine) {
    std::istringstream lines(Written<tools::JsonReporter>(UPDATE));
    std::vector<nlohmann::json> events;
    for (std::string line; std::getline(lines, line);) {
        events.push_back(nlohmann::json::parse(line));
    }
    ASSERT_LT(2u, events.size());
    EXPECT_EQ("start", events.front()["event"]);
    EXPECT_EQ((std::vector<std::string>{"bbpflash", "-s", "a.bin"}), events.front()["command"]);
    const nlohmann::json& end = events.back();
    EXPECT_EQ("end", end["event"]);
    EXPECT_EQ("success", end["verdict"]);
    EXPECT_EQ(0, end["status"]);
    EXPECT_EQ(20.0, end["elapsed"]);
    const auto erase = std::find_if(events.begin(), events.end(), [](const nlohmann::json& event) {
        return event["event"] == "phase" && event["phase"] == "erase";
    });
    ASSERT_NE(events.end(), erase);
    EXPECT_EQ(true, (*erase)["writes_flash"]);
    EXPECT_EQ(1, (*erase)["pass"]);
}

TEST(JsonReporter, TellsWhatStandsStillAndWhere) {
    std::vector<nlohmann::json> told;
    tools::JsonReporter reporter(
        [&told](const std::string& line) { told.push_back(nlohmann::json::parse(line)); });
    tools::WatchEvent event;
    event.kind = tools::WatchEvent::Kind::Stall;
    event.progress.no_answer = Milliseconds(12500);
    reporter.Report(event);
    event.kind = tools::WatchEvent::Kind::Note;
    reporter.Report(event);
    event.kind = tools::WatchEvent::Kind::Message;
    event.level = BBPFLASH_LEVEL_CRITICAL;
    reporter.Report(event);
    event.kind = tools::WatchEvent::Kind::End;
    event.ending.verdict = tools::Verdict::Failure;
    event.ending.where.segment = 7;
    event.ending.segments = 516;
    reporter.Report(event);
    ASSERT_EQ(4u, told.size());
    EXPECT_EQ("stall", told[0]["event"]);
    EXPECT_EQ(12.5, told[0]["no_answer"]);
    EXPECT_EQ("note", told[1]["event"]);
    EXPECT_EQ("critical", told[2]["level"]);
    EXPECT_EQ(7, told[3]["segment"]);
    EXPECT_EQ(516, told[3]["segments"]);
}

TEST(JsonReporter, TakesBytesThatAreNoText) {
    EXPECT_NO_THROW(Written<tools::JsonReporter>("b MSG: \xFF\xFE\n100\nDONE\n"));
}

TEST(LogReporter, KeepsEveryLineWithItsTime) {
    const std::string written = Written<tools::LogReporter>(UPDATE, [] { return "T"; });
    for (const char* line :
         {"T 9\n", "T 85\n", "T 100\n", "T DONE\n", "T b WRN: LM count mismatch (NOT FATAL)\n",
          "T bbpwatch: started bbpflash -s a.bin\n",
          "T bbpwatch: updated and verified after 0:20\n"}) {
        EXPECT_NE(std::string::npos, written.find(line)) << line;
    }
}

TEST(TerminalReporter, RestsAtTheBeginningOfItsLineAndGivesTheCursorBack) {
    const std::string written = Written<tools::TerminalReporter>(
        UPDATE, [] { return 80; }, false);
    EXPECT_EQ(0u, written.find("\x1B[?25l\r\x1B[Jreset"));
    EXPECT_NE(std::string::npos, written.find("do not switch off\r"));
    const std::string end = "\r\x1B[Kbbpwatch: updated and verified after 0:20\n\x1B[?25h";
    ASSERT_LE(end.size(), written.size());
    EXPECT_EQ(end, written.substr(written.size() - end.size()));
}

TEST(TerminalReporter, ClearsTheRowsThatAResizeHasMadeOfItsLine) {
    const std::string same = Written<tools::TerminalReporter>(
        UPDATE, [] { return 80; }, false);
    EXPECT_EQ(same.find("\x1B[J"), same.rfind("\x1B[J"));
    int width = 19;
    const std::string written = Written<tools::TerminalReporter>(
        UPDATE, [&width] { return width = 39 - width; }, false);
    EXPECT_NE(std::string::npos, written.find("\r\x1B[Jdo not switch off\r"));
}

TEST(TerminalReporter, BreaksItsOwnSentencesAtBlanks) {
    const std::string written = Written<tools::TerminalReporter>(
        "9\n10\n8\n", [] { return 40; }, false);
    EXPECT_NE(std::string::npos,
              written.find("bbpwatch: the percentage fell without a\nnew pass: 8\n"))
        << written;
}

// No update runs, so that no line moves below.
TEST(TerminalReporter, BreaksWhatItSaysOfAUnitBelowItsBeginning) {
    std::string written;
    tools::TerminalReporter reporter([&written](const std::string& text) { written += text; },
                                     [] { return 40; }, false);
    tools::WatchEvent event;
    event.kind = tools::WatchEvent::Kind::Check;
    event.name = "bus";
    event.is_well = false;
    event.text = "/dev/i2c1: No such file or directory; make the node, under this name";
    reporter.Report(event);
    EXPECT_EQ(
        "\r\x1B[JNO   bus: /dev/i2c1: No such file or\n"
        "     directory; make the node, under\n"
        "     this name\n",
        written);
}

TEST(TerminalReporter, LetsNoEscapeSequenceOfTheUpdatersThrough) {
    const std::string written = Written<tools::TerminalReporter>(
        "b MSG: \x1B[2J\n100\nDONE\n", [] { return 80; }, false);
    EXPECT_EQ(std::string::npos, written.find("\x1B[2J"));
}

}  // namespace
