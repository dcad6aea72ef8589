// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <numeric>

#include "tests/unit/chip/HdChipProgramBinFixture.h"

namespace {

using fake::Bytes;
using testing::ElementsAre;

using HdChipProgramBinDownload = HdChipProgramBin;

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
    EXPECT_THAT(BusTrace(), testing::ElementsAreArray(Concatenate({UNPROTECT_TRACE,
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

    EXPECT_EQ(fake::WithoutPositions(output_.out), "bbpflash ERROR: filling\n");
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
    platform.Answer(fake::Reply());
    platform.Answer(fake::Reply());
    platform.Answer(fake::Reply().Status(0x08));

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
