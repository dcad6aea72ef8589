// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "tests/unit/chip/HdChipProgramBinFixture.h"

namespace {

using fake::Reply;
using fake::WithoutPositions;
using testing::ElementsAre;

using HdChipProgramBinPreparation = HdChipProgramBin;

TEST_F(HdChipProgramBinPreparation, FileThatCannotBeOpenedLeavesTheChipAlone) {
    EXPECT_FALSE(Program("/nowhere/image.bin"));

    EXPECT_EQ(WithoutPositions(output_.out),
              "bbpflash ERROR: opening binary file /nowhere/image.bin\n");
    EXPECT_THAT(platform.trace, ElementsAre());
}

TEST_F(HdChipProgramBinPreparation, OpensTheFileForReading) {
    const ImageFile image(10);

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(g_open_mode, "r");
}

TEST_F(HdChipProgramBinPreparation, EachFailedMeasurementIsReportedBeforeTheChipIsTouched) {
    const ImageFile image(10);
    const auto fail = [] {
        errno = ESPIPE;
        return -1;
    };
    const auto expect_failure = [&](const char* message) {
        platform.log.clear();
        EXPECT_FALSE(Program(image.path));
        EXPECT_EQ(platform.Messages().back(),
                  std::string("ERROR: ") + message + " with result \"Illegal seek\" (29)");
        EXPECT_THAT(platform.trace, ElementsAre());
    };

    g_fseek = [&](int whence) { return whence == SEEK_END ? fail() : 0; };
    expect_failure("seeking end of file");
    g_fseek = [&](int whence) { return whence == SEEK_SET ? fail() : 0; };
    expect_failure("seeking beginning of file");
    g_fseek = nullptr;
    g_ftell = fail;
    expect_failure("getting file size");
}

// What ftell returns for a position: a long that cannot hold it is an overflow.
long Tells(long long position) {
    if (position > LONG_MAX) {
        errno = EOVERFLOW;
        return -1;
    }
    return static_cast<long>(position);
}

TEST_F(HdChipProgramBinPreparation, SizeThatNoIntHoldsLeavesTheChipAlone) {
    const ImageFile image(10);
    // The last is what a folder says of itself.
    for (const long long size : {2147483648LL, 4294967295LL, 4294967296LL, 4294967306LL,
                                 8589934591LL, 9223372036854775807LL}) {
        platform.log.clear();
        g_p_hutil_opt->verbosity = 6;
        g_ftell = [size] { return Tells(size); };

        EXPECT_FALSE(Program(image.path));

        EXPECT_THAT(platform.Messages(), ElementsAre("ERROR: getting file size with result \"" +
                                                     std::string(strerror(EOVERFLOW)) + "\" (" +
                                                     std::to_string(EOVERFLOW) + ")"))
            << size;
        EXPECT_THAT(platform.trace, ElementsAre()) << size;
    }
}

TEST_F(HdChipProgramBinPreparation, LargestIntIsASizeThatIsTooMuchForTheSegmentsOnly) {
    const ImageFile image(10);
    g_ftell = [] { return 2147483647L; };

    EXPECT_FALSE(Program(image.path));

    EXPECT_EQ(platform.Messages().back(), "ERROR: setting total number of segments");
}

TEST_F(HdChipProgramBinPreparation, TellsTheSizeBetweenTheTwoSeeks) {
    g_p_hutil_opt->verbosity = 6;
    const ImageFile image(10);
    std::vector<std::string> order;
    g_fseek = [&](int whence) {
        order.push_back(std::string(whence == SEEK_END ? "end" : "beginning") + " after " +
                        std::to_string(platform.log.size()) + " messages");
        return whence == SEEK_END || platform.log.size() == 1 ? 0 : -1;
    };
    g_ftell = [] { return 10L; };

    EXPECT_TRUE(Program(image.path));

    EXPECT_THAT(order, ElementsAre("end after 0 messages", "beginning after 1 messages"));
    EXPECT_EQ(platform.Messages().at(0), "INF: filesize: 10");
}

TEST_F(HdChipProgramBinPreparation, FailedUnprotectionEndsIt) {
    const ImageFile image(10);
    platform.Answer(Reply().Status(0x10));

    EXPECT_FALSE(Program(image.path));

    EXPECT_EQ(platform.Messages().back(), "ERROR: unprotecting NVM (flash)");
    EXPECT_EQ(platform.Requests().size(), 1u);
    EXPECT_EQ(platform.Requests()[0].at(12), 0x0B);
}

TEST_F(HdChipProgramBinPreparation, WithoutAnEngineItReportsTheFailedUnprotection) {
    const ImageFile image(10);
    RemoveEngine();

    EXPECT_FALSE(Program(image.path));

    EXPECT_EQ(WithoutPositions(output_.out), "bbpflash ERROR: unprotecting NVM (flash)\n");
    EXPECT_THAT(platform.trace, ElementsAre());
}

TEST_F(HdChipProgramBinPreparation, NamesTheFileThatItSendsUnlessInStatusMode) {
    const ImageFile image(10);

    EXPECT_TRUE(Program(image.path));
    EXPECT_EQ(output_.out,
              "bbpflash MSG: Sending \"" + image.path +
                  "\" to BBP\n"
                  "bbpflash MSG: BBP programming completed, resetting for version verification\n");

    g_options[OPTION_STATUS] = true;
    EXPECT_TRUE(Program(image.path));
    EXPECT_EQ(output_.out, "80\n99\n");
}

TEST_F(HdChipProgramBinPreparation, TellsAllStagesAtHighVerbosity) {
    const ImageFile image(10);
    g_p_hutil_opt->verbosity = 6;

    EXPECT_TRUE(Program(image.path));

    EXPECT_THAT(platform.Messages(),
                ElementsAre("INF: filesize: 10", "INF: burning \"" + image.path + "\"",
                            "MSG: Sending \"" + image.path + "\" to BBP",
                            "INF: Completed file transmission, waiting for chip to program itself",
                            "MSG: BBP programming completed, resetting for version verification"));
}

}  // namespace
