// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <functional>
#include <numeric>

#include "tests/unit/HdChipFixture.h"

namespace {

using fake::Bytes;
using fake::Capture;
using fake::Output;
using fake::Reply;
using fake::WithoutPositions;
using testing::ElementsAre;
using testing::ElementsAreArray;

// What a test puts in place of the stream calls.
std::function<int(int whence)> g_fseek;
std::function<long()> g_ftell;
std::function<int()> g_feof;
std::string g_open_mode;
int g_closed_files = 0;
bool g_programming = false;

// The image at a path, gone with the object.
class ImageFile {
  public:
    explicit ImageFile(std::size_t size) : content(size), path("/tmp/HdChipProgramBin.XXXXXX") {
        for (std::size_t i = 0; i < size; ++i) {
            content[i] = static_cast<std::uint8_t>((i * 31 + i / 256) % 256);
        }
        const int fd = mkstemp(&path[0]);
        EXPECT_EQ(write(fd, content.data(), size), static_cast<ssize_t>(size));
        close(fd);
    }
    ~ImageFile() { unlink(path.c_str()); }
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    Bytes content;
    std::string path;
};

class HdChipProgramBin : public HdChipTest {
  protected:
    HdChipProgramBin() {
        // The chip acknowledges and, when asked for it, has programmed its flash.
        platform.default_reply = Reply({0, 1});
        g_closed_files = 0;
    }
    ~HdChipProgramBin() override {
        g_fseek = nullptr;
        g_ftell = nullptr;
        g_feof = nullptr;
    }

    bool Program(std::string path) {
        bool result = false;
        output = Capture([&] {
            g_programming = true;
            result = chip.ProgramBin(path);
            g_programming = false;
        });
        return result;
    }

    // The chip answers the status queries after an image of one segment like this.
    void AnswerStatuses(const Bytes& codes) {
        platform.Answer(Reply());  // to the lifting of the protection
        platform.Answer(Reply());  // to the segment
        for (const std::uint8_t code : codes) {
            platform.Answer(Reply({0, code}));
        }
    }

    // The requests of the download alone: behind the unprotection, before the status queries.
    std::vector<Bytes> Segments() const {
        std::vector<Bytes> requests = platform.Requests();
        requests.erase(requests.begin());
        const auto is_query = [](const Bytes& lm) { return lm.size() == 14 && lm[12] == 0x05; };
        requests.erase(std::find_if(requests.begin(), requests.end(), is_query), requests.end());
        return requests;
    }

    // Programs an image of `size` bytes by segments of so many bytes, which nobody reads.
    void ExpectPercentages(long size, const std::vector<int>& filled, const std::string& expected) {
        const ImageFile image(10);
        g_options[OPTION_STATUS] = true;
        g_ftell = [=] { return size; };
        for (std::size_t i = 0; i < filled.size(); ++i) {
            Script("Fill file", filled[i], static_cast<int>(i));
        }
        std::size_t asked = 0;
        g_feof = [&] { return ++asked >= filled.size() ? 1 : 0; };
        EXPECT_TRUE(Program(image.path));
        EXPECT_EQ(output.out, expected);
    }

    Output output;
};

using HdChipProgramBinPreparation = HdChipProgramBin;
using HdChipProgramBinDownload = HdChipProgramBin;
using HdChipProgramBinPercentage = HdChipProgramBin;
using HdChipProgramBinPolling = HdChipProgramBin;

const std::vector<std::string> UNPROTECT_TRACE{"LOCK", "SEND 30", "UNLOCK", "usleep 5000",
                                               "LOCK", "RECV 81", "UNLOCK"};
const std::vector<std::string> POLL_TRACE{"delay 350",   "LOCK", "SEND 30", "UNLOCK",
                                          "usleep 1000", "LOCK", "RECV 81", "UNLOCK"};

std::vector<std::string> SegmentTrace(std::size_t lm_size) {
    return {
        "LOCK",  "SEND " + std::to_string(lm_size + 16), "UNLOCK", "usleep 750", "LOCK", "RECV 81",
        "UNLOCK"};
}

std::vector<std::string> Concatenate(const std::vector<std::vector<std::string>>& parts) {
    std::vector<std::string> whole;
    for (const auto& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

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

TEST_F(HdChipProgramBinDownload, RefusesAnImageLargerThanASizeCanTell) {
    const ImageFile image(10);
    g_ftell = [] { return LONG_MAX; };

    EXPECT_FALSE(Program(image.path));

    EXPECT_EQ(platform.Messages().back(), "ERROR: setting total number of segments");
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

TEST_F(HdChipProgramBinPercentage, CountsFrom1To80EachOnce) {
    const ImageFile image(1048576);
    g_options[OPTION_STATUS] = true;

    EXPECT_TRUE(Program(image.path));

    std::string expected;
    for (int i = 1; i <= 80; ++i) {
        expected += std::to_string(i) + "\n";
    }
    EXPECT_EQ(output.out, expected + "99\n");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(Segments().size(), 516u);
    EXPECT_EQ(Segments()[0][8] | Segments()[0][9] << 8, 516);
}

TEST_F(HdChipProgramBinPercentage, IsTruncated) {
    const ImageFile image(5000);
    g_options[OPTION_STATUS] = true;

    EXPECT_TRUE(Program(image.path));

    // 2034, 4069 and 5000 of 5000 bytes.
    EXPECT_EQ(output.out, "32\n65\n80\n99\n");
}

TEST_F(HdChipProgramBinPercentage, Of0IsNeverPrinted) {
    const ImageFile image(2034 * 81);
    g_options[OPTION_STATUS] = true;

    EXPECT_TRUE(Program(image.path));

    EXPECT_THAT(output.out, testing::StartsWith("1\n2\n"));
}

TEST_F(HdChipProgramBinPercentage, IsFlushedAfterEachSegmentInBothModes) {
    const ImageFile image(5000);
    EXPECT_TRUE(Program(image.path));
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(), "flush"), 3);

    platform.trace.clear();
    g_options[OPTION_STATUS] = true;
    EXPECT_TRUE(Program(image.path));
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(), "flush"), 3 + 1)
        << "and after the changed status";
}

TEST_F(HdChipProgramBinPercentage, OfAnImageThatWasEmptyWhenItWasMeasuredIsNone) {
    ExpectPercentages(0, {10}, "99\n");
}

TEST_F(HdChipProgramBinPercentage, IsExactUpToAnImageOf26843545Bytes) {
    ExpectPercentages(26843545, {26843545}, "80\n99\n");
}

TEST_F(HdChipProgramBinPercentage, WrapsIn32BitsBeyond26843545Bytes) {
    // 26843546 times 80 is 2^31 + 32.
    ExpectPercentages(30000000, {26843545, 1, 3156454}, "71\n-71\n-63\n99\n");
}

TEST_F(HdChipProgramBinPolling, StatusModePrintsAPercentageForEachChangedState) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({4, 4, 4, 5, 5, 6, 6, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(output.out, "80\n85\n90\n95\n99\n");
    EXPECT_EQ(platform.delays, std::vector<unsigned>(8, 350));
}

TEST_F(HdChipProgramBinPolling, StatusModePrintsAStateAgainWhenAnotherCameBetween) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({4, 3, 4, 5, 4, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(output.out, "80\n85\n85\n90\n85\n99\n");
}

TEST_F(HdChipProgramBinPolling, StatusModePrintsNothingForTheOtherStatesButTheQuerysErrors) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({3, 2, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(WithoutPositions(output.out),
              "80\nbbpflash ERROR: image verification failed, CRC error\n99\n");
}

TEST_F(HdChipProgramBinPolling, StatusModeFlushesAfterEachChangedState) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({3, 4, 4, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_THAT(BusTrace(), ElementsAreArray(Concatenate({UNPROTECT_TRACE,
                                                          SegmentTrace(24),
                                                          {"flush"},
                                                          POLL_TRACE,
                                                          {"flush"},
                                                          POLL_TRACE,
                                                          {"flush"},
                                                          POLL_TRACE,
                                                          POLL_TRACE,
                                                          {"flush"}})));
}

TEST_F(HdChipProgramBinPolling, PlainModeTellsEachChangedState) {
    const ImageFile image(10);
    AnswerStatuses({4, 4, 5, 5, 6, 6, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(output.out,
              "bbpflash MSG: Sending \"" + image.path +
                  "\" to BBP\n"
                  "bbpflash MSG: BBP is erasing old flash contents (do not interrupt!)\n"
                  "bbpflash MSG: BBP is programming new flash contents (do not interrupt!)\n"
                  "bbpflash MSG: BBP is verifying new flash contents (do not interrupt!)\n"
                  "bbpflash MSG: BBP programming completed, resetting for version verification\n");
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(), "flush"), 1)
        << "after the segment alone";
}

TEST_F(HdChipProgramBinPolling, PlainModeTellsAStateAgainWhenAnotherCameBetween) {
    const ImageFile image(10);
    AnswerStatuses({5, 3, 5, 1});

    EXPECT_TRUE(Program(image.path));

    const std::string programming =
        "MSG: BBP is programming new flash contents (do not interrupt!)";
    EXPECT_THAT(platform.Messages(),
                ElementsAre("MSG: Sending \"" + image.path + "\" to BBP", programming, programming,
                            "MSG: BBP programming completed, resetting for version verification"));
}

TEST_F(HdChipProgramBinPolling, GoesOnThroughErrorStatesIdlenessAndReservedCodes) {
    const ImageFile image(10);
    AnswerStatuses({3, 2, 7, 8, 9, 0, 10, 255, 3, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(platform.delays, std::vector<unsigned>(10, 350));
    EXPECT_THAT(platform.Messages(),
                ElementsAre("MSG: Sending \"" + image.path + "\" to BBP",
                            "ERROR: image verification failed, CRC error",
                            "ERROR: flash image and NVM security status mismatch",
                            "ERROR: using single tuner image on dual tuner flash",
                            "ERROR: using dual tuner image on single tuner flash",
                            "ERROR: unknown or reserved Pgm_Write_Status",
                            "ERROR: unknown or reserved Pgm_Write_Status",
                            "ERROR: unknown or reserved Pgm_Write_Status",
                            "INF: idle, not in programming mode",
                            "MSG: BBP programming completed, resetting for version verification"));
}

TEST_F(HdChipProgramBinPolling, GoesOnWhenQueriesFail) {
    const ImageFile image(10);
    platform.Fail(DCMD_I2C_LOCK, EBUSY, 4);  // the first query's request
    platform.Fail(DCMD_I2C_RECV, EIO, 2);    // the second query's reply
    platform.Answer(Reply());
    platform.Answer(Reply());
    platform.Answer(Reply({0, 1}).Status(0x10));  // the third query's

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(platform.delays, std::vector<unsigned>(4, 350));
    const std::vector<std::string> messages = platform.Messages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "ERROR: sending"), 1);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "ERROR: confirming"), 2);
}

TEST_F(HdChipProgramBinPolling, GoesOnWhenAQuerysSegmentsCannotBeSet) {
    const ImageFile image(10);
    g_options[OPTION_STATUS] = true;
    AnswerStatuses({4, 4, 1});
    Script("SetNumSegs", 0, 2);  // before any state: as it starts
    Script("SetNumSegs", 0, 4);  // after a 4: another state

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(WithoutPositions(output.out),
              "80\nbbpflash ERROR: setting total number of segments\n"
              "bbpflash INF: erasing old flash contents\n85\n"
              "bbpflash ERROR: setting total number of segments\n"
              "bbpflash INF: erasing old flash contents\n85\n99\n");
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(), "flush"), 1 + 4);
}

TEST_F(HdChipProgramBinPolling, HasNoBound) {
    const ImageFile image(10);
    AnswerStatuses(Bytes(2000, 4));
    platform.Answer(Reply({0, 1}));

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(platform.delays.size(), 2001u);
    EXPECT_EQ(platform.Messages().size(), 3u);
}

TEST_F(HdChipProgramBinPolling, TakesNoNoticeOfADelayCutShort) {
    const ImageFile image(10);
    platform.delay_result = 349;
    AnswerStatuses({4, 1});

    EXPECT_TRUE(Program(image.path));

    EXPECT_EQ(platform.delays, std::vector<unsigned>(2, 350));
}

}  // namespace

extern "C" {

FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode);
int __wrap_fclose(FILE* file);
int __real_fclose(FILE* file);
int __real_fflush(FILE* file);
int __wrap_fflush(FILE* file);
int __real_fseek(FILE* file, long offset, int whence);
int __wrap_fseek(FILE* file, long offset, int whence);
long __real_ftell(FILE* file);
long __wrap_ftell(FILE* file);
int __real_feof(FILE* file);
int __wrap_feof(FILE* file);

FILE* __wrap_fopen(const char* path, const char* mode) {
    g_open_mode = mode;
    return __real_fopen(path, mode);
}

int __wrap_fclose(FILE* file) {
    g_closed_files += g_programming ? 1 : 0;
    return __real_fclose(file);
}

int __wrap_fflush(FILE* file) {
    if (g_programming && file == stdout) {
        fake::Current().Note("flush");
    }
    return __real_fflush(file);
}

int __wrap_fseek(FILE* file, long offset, int whence) {
    return g_fseek ? g_fseek(whence) : __real_fseek(file, offset, whence);
}

long __wrap_ftell(FILE* file) {
    return g_ftell ? g_ftell() : __real_ftell(file);
}

int __wrap_feof(FILE* file) {
    return g_feof ? g_feof() : __real_feof(file);
}
}
