// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "hutil/HutilOptions.h"
#include "tests/support/CommandLine.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Layout.h"

namespace {

// What the options dump looks like for a program started as "bbpflash".
std::string Dump(const std::string& log, const std::string& trace, const std::string& verbosity) {
    return "bbpflash INF: == options start ===========\n (l = " + log + ")\n (t = " + trace +
           ")\n (v = " + verbosity + ")\nbbpflash INF: == options end =============\n";
}

std::string OutputOfReading(CommandLine& line) {
    return fake::Capture([&] { HutilOptions(line.Count(), line.Vector()); }).out;
}

}  // namespace

TEST(HutilOptionsFields, AreTheVerbosityAndThreeStrings) {
    static_assert(std::is_same<decltype(HutilOptions::verbosity), std::int32_t>::value, "");
    static_assert(std::is_same<decltype(HutilOptions::logFile), std::string>::value, "");
    static_assert(std::is_same<decltype(HutilOptions::traceFile), std::string>::value, "");
    static_assert(std::is_same<decltype(HutilOptions::progName), std::string>::value, "");
}

TEST(HutilOptionsFields, LieInTheirOrderBehindTheVirtualTable) {
    struct Layout {
        void* table;
        std::int32_t verbosity;
        std::string log_file;
        std::string trace_file;
        std::string prog_name;
    };
    const HutilOptions options;
    EXPECT_EQ(OffsetIn(options, options.verbosity), offsetof(Layout, verbosity));
    EXPECT_EQ(OffsetIn(options, options.logFile), offsetof(Layout, log_file));
    EXPECT_EQ(OffsetIn(options, options.traceFile), offsetof(Layout, trace_file));
    EXPECT_EQ(OffsetIn(options, options.progName), offsetof(Layout, prog_name));
    EXPECT_EQ(sizeof(HutilOptions), sizeof(Layout));
}

TEST(HutilOptionsFields, AreThoseOfARootClassWithAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor<HutilOptions>::value);
}

TEST(HutilOptionsDefault, IsNamedHutilDefaultWithEverythingElseEmpty) {
    const HutilOptions options;
    EXPECT_EQ(options.progName, "hutil_default");
    EXPECT_EQ(options.verbosity, 0);
    EXPECT_EQ(options.logFile, "");
    EXPECT_EQ(options.traceFile, "");
}

TEST(HutilOptionsDefault, ParsesNothing) {
    optind = 7;
    const HutilOptions options;
    EXPECT_EQ(optind, 7);
}

TEST(HutilOptionsCommandLine, WithoutOptionsLeavesAllEmptyAndReturnsOne) {
    CommandLine line{"bbpflash", "image.bin"};
    HutilOptions options;
    EXPECT_EQ(options.parseOptions(line.Count(), line.Vector()), 1);
    EXPECT_EQ(options.verbosity, 0);
    EXPECT_EQ(options.logFile, "");
    EXPECT_EQ(options.traceFile, "");
}

TEST(HutilOptionsCommandLine, OfTheCommandAloneReturnsOne) {
    CommandLine line{"bbpflash"};
    HutilOptions options;
    EXPECT_EQ(options.parseOptions(line.Count(), line.Vector()), 1);
}

TEST(HutilOptionsCommandLine, NamesTheProgramAsTypedNotByItsBaseName) {
    CommandLine line{"./some/where/bbpflash", "image.bin"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.progName, "./some/where/bbpflash");
}

TEST(HutilOptionsCommandLine, LeavesOptindAtOneForTheNextScan) {
    CommandLine line{"bbpflash", "-v", "-l", "x", "image.bin"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(optind, 1);
}

TEST(HutilOptionsCommandLine, CanBeScannedAgainFromItsFirstArgument) {
    CommandLine line{"bbpflash", "-vfv", "-s", "image.bin"};
    const HutilOptions options(line.Count(), line.Vector());
    std::string seen;
    for (int option; (option = getopt(line.Count(), line.Vector(), "+:fis")) != -1;) {
        seen += static_cast<char>(option);
    }
    EXPECT_EQ(seen, "?f?s");
    EXPECT_EQ(options.verbosity, 2);
}

TEST(HutilOptionsParse, TakesTheNextWordAsLogFile) {
    CommandLine line{"bbpflash", "-l", "x"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.logFile, "x");
    EXPECT_EQ(options.traceFile, "");
}

TEST(HutilOptionsParse, TakesTheNextWordAsTraceFile) {
    CommandLine line{"bbpflash", "-t", "x"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.traceFile, "x");
    EXPECT_EQ(options.logFile, "");
}

TEST(HutilOptionsParse, TakesTheRestOfTheWordAsArgument) {
    CommandLine line{"bbpflash", "-lname.log", "-tname.trc"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.logFile, "name.log");
    EXPECT_EQ(options.traceFile, "name.trc");
}

TEST(HutilOptionsParse, TakesAnArgumentThatLooksLikeAnOption) {
    CommandLine line{"bbpflash", "-l", "-v", "-t", "-f"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.logFile, "-v");
    EXPECT_EQ(options.traceFile, "-f");
    EXPECT_EQ(options.verbosity, 0);
}

// Relied on: the names built from the program's name never show.
TEST(HutilOptionsParse, KeepsTheArgumentExactlyAsGivenWithNoFolderOrSuffix) {
    CommandLine line{"bbpflash", "-l", "", "-t", " ../a b "};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.logFile, "");
    EXPECT_EQ(options.traceFile, " ../a b ");
}

TEST(HutilOptionsParse, KeepsTheLastOfTwoLogFiles) {
    CommandLine line{"bbpflash", "-l", "x", "-ly"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.logFile, "y");
}

TEST(HutilOptionsParse, KeepsTheLastOfTwoTraceFiles) {
    CommandLine line{"bbpflash", "-t", "x", "-t", "y"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.traceFile, "y");
}

TEST(HutilOptionsParse, LeavesTheLogFileWhenTheArgumentIsMissing) {
    CommandLine line{"bbpflash", "-l", "x", "-l"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.logFile, "x");
}

TEST(HutilOptionsParse, LeavesTheTraceFileWhenTheArgumentIsMissing) {
    CommandLine line{"bbpflash", "-v", "-t"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.traceFile, "");
    EXPECT_EQ(options.verbosity, 1);
}

TEST(HutilOptionsParse, CountsEachVAloneAndInAWord) {
    CommandLine line{"bbpflash", "-v", "-vv", "-v"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.verbosity, 4);
}

TEST(HutilOptionsParse, AddsToTheVerbosityThatIsThere) {
    CommandLine line{"bbpflash", "-v"};
    HutilOptions options;
    options.verbosity = 3;
    options.parseOptions(line.Count(), line.Vector());
    EXPECT_EQ(options.verbosity, 4);
}

TEST(HutilOptionsParse, SkipsAnUnknownOptionAndReturnsTheIndexOfTheFile) {
    CommandLine line{"bbpflash", "-f", "-v", "image.bin"};
    HutilOptions options;
    EXPECT_EQ(options.parseOptions(line.Count(), line.Vector()), 3);
    EXPECT_EQ(options.verbosity, 1);
}

TEST(HutilOptionsParse, SkipsTheDriversOptionsInOneWordWithItsOwn) {
    CommandLine line{"bbpflash", "-fvisv", "image.bin"};
    const HutilOptions options(line.Count(), line.Vector());
    EXPECT_EQ(options.verbosity, 2);
}

TEST(HutilOptionsParse, SaysNothingOfUnknownOptionsAndMissingArguments) {
    CommandLine line{"bbpflash", "-x", "-?", "-f", "-l"};
    const fake::Output output =
        fake::Capture([&] { HutilOptions options(line.Count(), line.Vector()); });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

TEST(HutilOptionsParse, LeavesOpterrAlone) {
    for (const int before : {0, 1}) {
        opterr = before;
        CommandLine line{"bbpflash", "-x", "-l"};
        const HutilOptions options(line.Count(), line.Vector());
        EXPECT_EQ(opterr, before);
    }
}

TEST(HutilOptionsParse, StopsAtTheFirstArgumentThatIsNoOption) {
    CommandLine line{"bbpflash", "-v", "image.bin", "-v", "-l", "x"};
    HutilOptions options;
    EXPECT_EQ(options.parseOptions(line.Count(), line.Vector()), 2);
    EXPECT_EQ(options.verbosity, 1);
    EXPECT_EQ(options.logFile, "");
}

TEST(HutilOptionsParse, NeverReordersTheArguments) {
    CommandLine line{"bbpflash", "image.bin", "-v", "other", "-l", "x"};
    char** const argv = line.Vector();
    const std::vector<char*> before(argv, argv + line.Count());
    const HutilOptions options(line.Count(), argv);
    EXPECT_EQ(std::vector<char*>(argv, argv + line.Count()), before);
}

TEST(HutilOptionsParse, StopsBehindTwoDashes) {
    CommandLine line{"bbpflash", "-v", "--", "-v"};
    HutilOptions options;
    EXPECT_EQ(options.parseOptions(line.Count(), line.Vector()), 3);
    EXPECT_EQ(options.verbosity, 1);
}

TEST(HutilOptionsParse, ReturnsTheArgumentCountWhenAllWereOptions) {
    CommandLine line{"bbpflash", "-v", "-l", "x"};
    HutilOptions options;
    EXPECT_EQ(options.parseOptions(line.Count(), line.Vector()), 4);
    EXPECT_EQ(optind, 4);
}

TEST(HutilOptionsParse, BeginsWhereverGetoptStands) {
    CommandLine line{"bbpflash", "-v", "-v", "-v"};
    ASSERT_EQ(getopt(line.Count(), line.Vector(), "+:v"), 'v');
    HutilOptions options;
    EXPECT_EQ(options.parseOptions(line.Count(), line.Vector()), 4);
    EXPECT_EQ(options.verbosity, 2);
}

TEST(HutilOptionsDump, IsNotWrittenForFiveV) {
    CommandLine line{"bbpflash", "-vvvvv"};
    EXPECT_EQ(OutputOfReading(line), "");
}

TEST(HutilOptionsDump, ShowsTheVerbosityForSixV) {
    CommandLine line{"bbpflash", "-vvvvvv"};
    EXPECT_EQ(OutputOfReading(line), Dump("", "", "6"));
}

TEST(HutilOptionsDump, ShowsTheNamesGiven) {
    CommandLine line{"bbpflash", "-l", "a.log", "-vvvvvvv", "-t", "b.trc", "image.bin"};
    EXPECT_EQ(OutputOfReading(line), Dump("a.log", "b.trc", "7"));
}

TEST(HutilOptionsDump, FollowsEveryParseOnceTheVerbosityIsAboveFive) {
    CommandLine line{"bbpflash", "image.bin"};
    HutilOptions options;
    options.progName = "bbpflash";
    options.verbosity = 10;
    EXPECT_EQ(fake::Capture([&] { options.parseOptions(line.Count(), line.Vector()); }).out,
              Dump("", "", "10"));
}
