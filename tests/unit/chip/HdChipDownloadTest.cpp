// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <numeric>

#include "tests/unit/chip/HdChipProgramBinFixture.h"

namespace {

using fake::Bytes;
using fake::Reply;
using fake::WithoutPositions;
using testing::ElementsAre;
using testing::ElementsAreArray;

using HdChipProgramBinPreparation = HdChipProgramBin;
using HdChipProgramBinDownload = HdChipProgramBin;

TEST_F(HdChipProgramBinPreparation, FileThatCannotBeOpenedLeavesTheChipAlone) {
    EXPECT_FALSE(Program("/nowhere/image.bin"));

    EXPECT_EQ(WithoutPositions(output.out),
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

    EXPECT_EQ(WithoutPositions(output.out), "bbpflash ERROR: unprotecting NVM (flash)\n");
    EXPECT_THAT(platform.trace, ElementsAre());
}

TEST_F(HdChipProgramBinPreparation, NamesTheFileThatItSendsUnlessInStatusMode) {
    const ImageFile image(10);

    EXPECT_TRUE(Program(image.path));
    EXPECT_EQ(output.out,
              "bbpflash MSG: Sending \"" + image.path +
                  "\" to BBP\n"
                  "bbpflash MSG: BBP programming completed, resetting for version verification\n");

    g_options[OPTION_STATUS] = true;
    EXPECT_TRUE(Program(image.path));
    EXPECT_EQ(output.out, "80\n99\n");
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

TEST_F(HdChipProgramBinDownload, OfOneSegmentTakesTheseSteps) {
    const ImageFile image(10);

    EXPECT_TRUE(Program(image.path));

    EXPECT_THAT(platform.trace,
                ElementsAre("Reset 0", "SetNumSegs 14", "Begin 84 1", "Fill 0B", "Terminate",
                            "Send", "LOCK", "SEND 30", "UNLOCK", "usleep 5000", "RetrieveShort",
                            "LOCK", "RECV 81", "UNLOCK",
                            // the image
                            "Reset 0", "SetNumSegs 10", "Begin 84 10", "Fill 04", "Fill file",
                            "Terminate", "Send", "LOCK", "SEND 40", "UNLOCK", "usleep 750",
                            "RetrieveShort null", "LOCK", "RECV 81", "UNLOCK", "flush",
                            // its programming
                            "Reset 0", "delay 350", "Reset 0", "SetNumSegs 14", "Begin 84 1",
                            "Fill 05", "Terminate", "Send", "LOCK", "SEND 30", "UNLOCK",
                            "usleep 1000", "RetrieveShort", "LOCK", "RECV 81", "UNLOCK"));
}

TEST_F(HdChipProgramBinDownload, FirstSegmentsLengthDoesNotCountTheFunctionByte) {
    const ImageFile image(4);

    EXPECT_TRUE(Program(image.path));

    Bytes expected{0xA5, 0xA5, 1, 1, 17, 0, 0x84, 0, 1, 0, 0, 0, 0x04};
    expected.insert(expected.end(), image.content.begin(), image.content.end());
    // The sum is of the bytes that the length tells of, so not of the last one.
    expected.push_back(
        static_cast<std::uint8_t>(std::accumulate(expected.begin(), expected.begin() + 16, 0)));
    EXPECT_THAT(Segments(), ElementsAre(expected));
}

TEST_F(HdChipProgramBinDownload, SplitsTheImageIntoNumberedSegments) {
    const ImageFile image(5000);

    EXPECT_TRUE(Program(image.path));

    const std::vector<Bytes> segments = Segments();
    ASSERT_EQ(segments.size(), 3u);
    const struct {
        std::size_t size;
        unsigned length;
    } expected[] = {{2048, 2048}, {2048, 2048}, {944, 944}};
    Bytes payload;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const Bytes& lm = segments[i];
        EXPECT_EQ(lm.size(), expected[i].size);
        EXPECT_EQ(static_cast<unsigned>(lm[4] | lm[5] << 8), expected[i].length);
        EXPECT_EQ(lm[2], i + 1) << "the count runs on";
        EXPECT_EQ(lm[6], 0x84);
        EXPECT_EQ(Bytes(lm.begin() + 8, lm.begin() + 12),
                  (Bytes{3, 0, static_cast<std::uint8_t>(i), 0}));
        EXPECT_EQ(lm.back(),
                  static_cast<std::uint8_t>(std::accumulate(lm.begin(), lm.end() - 1, 0)));
        payload.insert(payload.end(), lm.begin() + 12, lm.end() - 1);
    }
    EXPECT_EQ(payload[0], 0x04);
    payload.erase(payload.begin());
    EXPECT_EQ(payload, image.content);
    EXPECT_THAT(BusTrace(), ElementsAreArray(Concatenate({UNPROTECT_TRACE,
                                                          SegmentTrace(2048),
                                                          {"flush"},
                                                          SegmentTrace(2048),
                                                          {"flush"},
                                                          SegmentTrace(944),
                                                          {"flush"},
                                                          POLL_TRACE})));
}

TEST_F(HdChipProgramBinDownload, BeginsEachSegmentWithWhatRemains) {
    const ImageFile image(5000);

    EXPECT_TRUE(Program(image.path));

    std::vector<std::string> begins;
    std::copy_if(platform.trace.begin(), platform.trace.end(), std::back_inserter(begins),
                 [](const std::string& event) {
                     return event.rfind("Begin", 0) == 0 || event.rfind("SetNumSegs", 0) == 0;
                 });
    EXPECT_THAT(begins,
                ElementsAre("SetNumSegs 14", "Begin 84 1", "SetNumSegs 5000", "Begin 84 5000",
                            "Begin 84 2966", "Begin 84 931", "SetNumSegs 14", "Begin 84 1"));
}

TEST_F(HdChipProgramBinDownload, FailsWhenTheImageEndsJustWhereASegmentDoes) {
    for (const std::size_t size : {2034u, 2034u + 2035u}) {
        const ImageFile image(size);
        platform.trace.clear();
        platform.log.clear();
        platform.devctls.clear();

        EXPECT_FALSE(Program(image.path));

        EXPECT_EQ(platform.Messages().back(), "ERROR: filling");
        EXPECT_THAT(std::vector<std::string>(platform.trace.end() - 3, platform.trace.end()),
                    ElementsAre("flush", "Begin 84 0", "Fill file"));
        EXPECT_EQ(platform.Requests().size(), size / 2034 + 1) << "all of the image was sent";
    }
}

TEST_F(HdChipProgramBinDownload, SucceedsOneByteToEitherSideOfASegmentsEnd) {
    for (const std::size_t size : {2033u, 2035u, 4068u, 4070u}) {
        const ImageFile image(size);
        EXPECT_TRUE(Program(image.path)) << size;
    }
}

TEST_F(HdChipProgramBinDownload, FailsForAnEmptyImage) {
    const ImageFile image(0);
    g_options[OPTION_STATUS] = true;

    EXPECT_FALSE(Program(image.path));

    EXPECT_EQ(WithoutPositions(output.out), "bbpflash ERROR: filling\n");
    EXPECT_EQ(platform.Requests().size(), 1u);
}

TEST_F(HdChipProgramBinDownload, RefusesAnImageThatTakesTooManySegments) {
    const ImageFile image(10);
    g_ftell = [] { return 133363724L; };

    EXPECT_FALSE(Program(image.path));

    EXPECT_THAT(platform.Messages(),
                ElementsAre("MSG: Sending \"" + image.path + "\" to BBP",
                            "ERROR: 133363724 would exceed maximum of 2^16 LM transfer capacity",
                            "ERROR: setting total number of segments"));
    EXPECT_EQ(platform.Requests().size(), 1u) << "only the lifting of the protection";
}

TEST_F(HdChipProgramBinDownload, EndsAtTheFirstFailedStep) {
    const ImageFile image(5000);
    const struct {
        const char* step;
        int result;
        int index;  // counting the unprotection's
        const char* message;
        std::size_t requests;
    } cases[] = {
        {"SetNumSegs", 0, 1, "ERROR: setting total number of segments", 1},
        {"Begin", 0, 1, "ERROR: beginning", 1},
        {"Fill", 0, 1, "ERROR: filling", 1},
        {"Fill", 2, 1, "ERROR: filling", 1},
        {"Fill file", 0, 0, "ERROR: filling", 1},
        {"Terminate", 0, 1, "ERROR: terminating", 1},
        {"Send", 0, 1, "ERROR: sending", 1},
        {"Send", 2034, 1, "ERROR: sending", 1},
        {"RetrieveShort", 0, 1, "ERROR: confirming BIN write", 2},
        {"Begin", 0, 2, "ERROR: beginning", 2},
        {"Fill file", 0, 1, "ERROR: filling", 2},
        {"Terminate", 0, 2, "ERROR: terminating", 2},
        {"Send", 0, 2, "ERROR: sending", 2},
        {"RetrieveShort", 0, 2, "ERROR: confirming BIN write", 3},
    };
    for (const auto& one : cases) {
        ForgetScript();
        platform.log.clear();
        platform.devctls.clear();
        Script(one.step, one.result, one.index);

        EXPECT_FALSE(Program(image.path)) << one.step;

        EXPECT_THAT(platform.Messages(),
                    ElementsAre("MSG: Sending \"" + image.path + "\" to BBP", one.message))
            << one.step << " " << one.index;
        EXPECT_EQ(platform.Requests().size(), one.requests) << one.step << " " << one.index;
        EXPECT_THAT(platform.delays, ElementsAre()) << "no polling";
        g_p_hutil_opt->verbosity = 0;
    }
}

TEST_F(HdChipProgramBinDownload, EndsWhenTheChipRejectsASegment) {
    const ImageFile image(5000);
    platform.Answer(Reply());
    platform.Answer(Reply());
    platform.Answer(Reply().Status(0x08));

    EXPECT_FALSE(Program(image.path));

    EXPECT_EQ(platform.Messages().back(), "ERROR: confirming BIN write");
    EXPECT_EQ(Segments().size(), 2u);
}

TEST_F(HdChipProgramBinDownload, LeavesTheFileOpenWhateverItsOutcome) {
    const ImageFile image(10);
    EXPECT_TRUE(Program(image.path));
    platform.FailAlways(DCMD_I2C_SEND, EIO);
    EXPECT_FALSE(Program(image.path));

    EXPECT_EQ(g_closed_files, 0);
}

}  // namespace
