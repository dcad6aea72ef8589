// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "common/Failure.h"
#include "sim/host/Options.h"
#include "tests/tools/TemporaryFolder.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

Options Parse(std::vector<const char*> words) {
    words.insert(words.begin(), "bbpsim");
    Options options;
    EXPECT_FALSE(ParseOptions(static_cast<int>(words.size()), words.data(), options));
    return options;
}

// What is told of a mistake, without the last line, which is the same for all.
std::string Mistake(const std::vector<const char*>& words) {
    try {
        Parse(words);
    } catch (const common::Failure& mistake) {
        EXPECT_EQ(125, mistake.Status());
        const std::string text = mistake.what();
        const std::size_t end = text.find("\nRun with --help for more information.");
        EXPECT_NE(std::string::npos, end) << text;
        return text.substr(0, end);
    }
    return "no mistake";
}

TEST(SimOptions, DescribeARealisticHeadUnitIfNothingIsSaid) {
    const Options options = Parse({});
    EXPECT_EQ("1.0.0", options.installed);
    EXPECT_FALSE(options.reports);
    EXPECT_EQ("", options.flash);
    EXPECT_EQ(seconds(15), options.burn.erase + options.burn.program + options.burn.verify);
    EXPECT_TRUE(options.paced);
    EXPECT_EQ(400000, options.bus_hz);
    EXPECT_TRUE(options.faults.empty());
    EXPECT_TRUE(options.command.empty());
    EXPECT_FALSE(options.report);
    EXPECT_FALSE(options.log);
    EXPECT_EQ("", options.log_file + options.pcap + options.vcd + options.json);
}

TEST(SimOptions, DescribeTheChip) {
    const Options options = Parse({"--installed", "2.3", "--reports", "", "--flash", "f", "--burn",
                                   "0.5,1,0", "--pace", "none", "--bus-hz", "100000"});
    EXPECT_EQ("2.3", options.installed);
    EXPECT_EQ("", options.reports);
    EXPECT_EQ("f", options.flash);
    EXPECT_EQ(milliseconds(500), options.burn.erase);
    EXPECT_EQ(seconds(1), options.burn.program);
    EXPECT_EQ(seconds(0), options.burn.verify);
    EXPECT_FALSE(options.paced);
    EXPECT_EQ(100000, options.bus_hz);
}

TEST(SimOptions, TakeTheLastOfTwoButAllFaults) {
    const Options options = Parse(
        {"--installed", "1", "--installed", "2", "--fault", "read nak", "--fault", "write nak"});
    EXPECT_EQ("2", options.installed);
    ASSERT_EQ(2u, options.faults.size());
    EXPECT_EQ(Event::Read, options.faults[0].event);
    EXPECT_EQ(Event::Write, options.faults[1].event);
}

TEST(SimOptions, LeaveTheCommandsOptionsToIt) {
    const Options options = Parse({"--report", "--", "bbpflash", "-s", "--report"});
    EXPECT_EQ((std::vector<std::string>{"bbpflash", "-s", "--report"}), options.command);
}

TEST(SimOptions, NameTheViews) {
    const Options options = Parse({"--report", "--log", "--log-file", "a", "--pcap", "b", "--vcd",
                                   "c", "--vcd-first", "5", "--vcd-count", "7", "--json", "d"});
    EXPECT_TRUE(options.report);
    EXPECT_TRUE(options.log);
    EXPECT_EQ("a", options.log_file);
    EXPECT_EQ("b", options.pcap);
    EXPECT_EQ("c", options.vcd);
    EXPECT_EQ(5u, options.vcd_window.first);
    EXPECT_EQ(7u, options.vcd_window.count);
    EXPECT_EQ("d", options.json);
}

TEST(SimOptions, LeaveTheCommandBehindAFaultAlone) {
    const Options options = Parse({"--fault", "read nak", "true", "--fault"});
    EXPECT_EQ(1u, options.faults.size());
    EXPECT_EQ((std::vector<std::string>{"true", "--fault"}), options.command);
}

TEST(SimOptions, TellWhatIsWrongWithThem) {
    for (const char* const wrong : {"1,2", "1,2,-3", "1;2;3", "1,2,3601", "1,2,nan", "a,b,c",
                                    "1,2,3,4", "1,2,3,", "1,2s,3"}) {
        EXPECT_EQ(
            std::string("--burn: takes three times in seconds, such as 4,8,3, and not ") + wrong,
            Mistake({"--burn", wrong}));
    }
    EXPECT_EQ("--pace: fast not in {wire,none}", Mistake({"--pace", "fast"}));
    EXPECT_NE("", Mistake({"--bus-hz", "0"}));
    EXPECT_NE("", Mistake({"--vcd-first", "0"}));
    EXPECT_NE("", Mistake({"--vcd-count", "2001"}));
    EXPECT_EQ("--installed: has more than 35 characters",
              Mistake({"--installed", "123456789012345678901234567890123456"}));
    EXPECT_NE("", Mistake({"--unknown"}));
    EXPECT_NE("", Mistake({"--flash"}));
}

TEST(SimOptions, TellWhichWordOfAFaultIsWrong) {
    EXPECT_EQ(
        "--fault: a count is 3, 3+ or 3-5, and begins with 1\n"
        "  read 0 nak\n"
        "       ^",
        Mistake({"--fault", "read 0 nak"}));
}

TEST(SimOptions, TellWhereInAFileAFaultIsWrong) {
    TemporaryFolder folder;
    const std::string path = folder.Write("faults", "# first\nread nak\nread 0 nak\n");
    EXPECT_EQ(path +
                  ":3:6: a count is 3, 3+ or 3-5, and begins with 1\n"
                  "  read 0 nak\n"
                  "       ^",
              Mistake({"--faults", path.c_str()}));
    EXPECT_EQ("opening the file of faults /nowhere/x: No such file or directory",
              Mistake({"--faults", "/nowhere/x"}));
    EXPECT_EQ("reading the file of faults /: Is a directory", Mistake({"--faults", "/"}));
}

TEST(SimOptions, RefuseFaultsOfTheLockThatTheHostCannotHave) {
    EXPECT_TRUE(LockIsTaken(Parse({"--fault", "lock never-grant"}).faults));
    EXPECT_TRUE(LockIsTaken(Parse({"--fault", "lock 1+ never-grant"}).faults));
    EXPECT_FALSE(LockIsTaken(Parse({"--fault", "read nak"}).faults));
    EXPECT_EQ(
        "lock 2 never-grant: the lock is the kernel's; all that bbpsim can do is to keep it "
        "from the start: lock 1+ never-grant",
        Mistake({"--fault", "lock 2 never-grant"}));
    EXPECT_NE("", Mistake({"--fault", "lock fail EIO"}));
    EXPECT_NE("", Mistake({"--fault", "unlock lose-unlock"}));
    TemporaryFolder folder;
    EXPECT_NE("", Mistake({"--faults", folder.Write("faults", "unlock restart").c_str()}));
}

}  // namespace
}  // namespace sim
