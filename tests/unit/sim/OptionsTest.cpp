// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "sim/host/Options.h"
#include "tests/tools/TemporaryFolder.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

struct Parsed {
    std::optional<Options> options;
    int status = -1;
    std::string err;
};

Parsed Parse(std::vector<const char*> words) {
    words.insert(words.begin(), "bbpsim");
    Parsed parsed;
    testing::internal::CaptureStderr();
    parsed.options = ParseOptions(static_cast<int>(words.size()), words.data(), &parsed.status);
    parsed.err = testing::internal::GetCapturedStderr();
    return parsed;
}

// What is told of a mistake, without the beginning and the last line, which are the same for all.
std::string Mistake(const std::vector<const char*>& words) {
    const Parsed parsed = Parse(words);
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(125, parsed.status);
    const std::string name = "bbpsim: ";
    EXPECT_EQ(0u, parsed.err.find(name)) << parsed.err;
    const std::size_t end = parsed.err.find("\nRun with --help");
    return parsed.err.substr(name.size(), end - name.size());
}

TEST(SimOptions, DescribeARealisticHeadUnitIfNothingIsSaid) {
    const Options options = *Parse({}).options;
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
    const Options options = *Parse({"--installed", "2.3", "--reports", "", "--flash", "f", "--burn",
                                    "0.5,1,0", "--pace", "none", "--bus-hz", "100000"})
                                 .options;
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
    const Options options = *Parse({"--installed", "1", "--installed", "2", "--fault", "read nak",
                                    "--fault", "write nak"})
                                 .options;
    EXPECT_EQ("2", options.installed);
    ASSERT_EQ(2u, options.faults.size());
    EXPECT_EQ(Event::Read, options.faults[0].event);
    EXPECT_EQ(Event::Write, options.faults[1].event);
}

TEST(SimOptions, LeaveTheCommandsOptionsToIt) {
    const Options options = *Parse({"--report", "--", "bbpflash", "-s", "--report"}).options;
    EXPECT_EQ((std::vector<std::string>{"bbpflash", "-s", "--report"}), options.command);
}

TEST(SimOptions, NameTheViews) {
    const Options options = *Parse({"--report", "--log", "--log-file", "a", "--pcap", "b", "--vcd",
                                    "c", "--vcd-first", "5", "--vcd-count", "7", "--json", "d"})
                                 .options;
    EXPECT_TRUE(options.report);
    EXPECT_TRUE(options.log);
    EXPECT_EQ("a", options.log_file);
    EXPECT_EQ("b", options.pcap);
    EXPECT_EQ("c", options.vcd);
    EXPECT_EQ(5u, options.vcd_window.first);
    EXPECT_EQ(7u, options.vcd_window.count);
    EXPECT_EQ("d", options.json);
}

TEST(SimOptions, TellWhatIsWrongWithThem) {
    for (const char* const wrong :
         {"1,2", "1,2,-3", "1;2;3", "1,2,3601", "1,2,nan", "a,b,c", "1,2,3,4", "1,2,3,"}) {
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
    EXPECT_EQ("--faults: /nowhere/x: No such file or directory",
              Mistake({"--faults", "/nowhere/x"}));
}

TEST(SimOptions, RefuseFaultsOfTheLockThatTheHostCannotHave) {
    EXPECT_TRUE(LockIsTaken(Parse({"--fault", "lock never-grant"}).options->faults));
    EXPECT_TRUE(LockIsTaken(Parse({"--fault", "lock 1+ never-grant"}).options->faults));
    EXPECT_FALSE(LockIsTaken(Parse({"--fault", "read nak"}).options->faults));
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
