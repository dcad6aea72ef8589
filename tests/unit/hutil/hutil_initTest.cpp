// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <type_traits>

#include "hutil/hutil_init.h"
#include "tests/support/CommandLine.h"
#include "tests/support/FakePlatform.h"

namespace {

// As they were before anything ran.
const HutilOptions* const g_options_at_start = g_p_hutil_opt;
const HutilMsg* const g_messages_at_start = g_p_hutil_msg;

// The one object, counted from 0, that there is no memory for.
int g_missing_object = -1;

// The process-wide objects of one command line, which go with the test.
class HutilInit : public testing::Test {
  protected:
    ~HutilInit() override {
        delete g_p_hutil_msg;
        delete g_p_hutil_opt;
        g_p_hutil_msg = nullptr;
        g_p_hutil_opt = nullptr;
    }

    fake::Platform platform_;
};

typedef HutilInit HutilInitDeathTest;

// What hutil_print16 makes of `count` bytes that lie alone in their memory and count up from
// `first`.
std::string Dump(int count, int first) {
    const std::size_t size = count > 0 ? static_cast<std::size_t>(count) : 0;
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[size]);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(static_cast<std::size_t>(first) + i);
    }
    char* text = nullptr;
    std::size_t length = 0;
    FILE* const stream = open_memstream(&text, &length);
    hutil_print16(stream, bytes.get(), count);
    fclose(stream);
    const std::string dump(text, length);
    free(text);
    return dump;
}

const char ROW_OF_16_FROM_0[] = "\n\t\t 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F";
const char ROW_OF_16_FROM_16[] = "\n\t\t 10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F";

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return g_missing_object-- == 0 ? nullptr : ::operator new(size);
}

TEST(HutilGlobals, AreNullPointersBeforeTheStart) {
    static_assert(std::is_same<decltype(g_p_hutil_opt), HutilOptions*>::value, "");
    static_assert(std::is_same<decltype(g_p_hutil_msg), HutilMsg*>::value, "");
    EXPECT_EQ(g_options_at_start, nullptr);
    EXPECT_EQ(g_messages_at_start, nullptr);
}

TEST_F(HutilInit, MakesTheOptionsFromTheCommandLine) {
    CommandLine line{"./bbpflash", "-vv", "-l", "x", "-t", "y", "image.bin"};
    hutil_init(line.Count(), line.Vector());
    ASSERT_NE(g_p_hutil_opt, nullptr);
    EXPECT_EQ(g_p_hutil_opt->progName, "./bbpflash");
    EXPECT_EQ(g_p_hutil_opt->verbosity, 2);
    EXPECT_EQ(g_p_hutil_opt->logFile, "x");
    EXPECT_EQ(g_p_hutil_opt->traceFile, "y");
}

TEST_F(HutilInit, MakesTheMessagesOverTheseOptions) {
    CommandLine line{"bbpflash", "image.bin"};
    hutil_init(line.Count(), line.Vector());
    ASSERT_NE(g_p_hutil_msg, nullptr);
    EXPECT_EQ(g_p_hutil_msg->options, g_p_hutil_opt);
}

TEST_F(HutilInit, LeavesTheCommandLineToBeScannedAgain) {
    CommandLine line{"bbpflash", "-v", "-f", "image.bin"};
    hutil_init(line.Count(), line.Vector());
    EXPECT_EQ(optind, 1);
}

TEST_F(HutilInit, PrintsNothingForFiveV) {
    CommandLine line{"bbpflash", "-vvvvv"};
    const fake::Output output = fake::Capture([&] { hutil_init(line.Count(), line.Vector()); });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

TEST_F(HutilInit, PrintsTheOptionsForSixVAndDoesNotLogThem) {
    CommandLine line{"bbpflash", "-vvvvvv", "-lx"};
    const fake::Output output = fake::Capture([&] { hutil_init(line.Count(), line.Vector()); });
    EXPECT_EQ(output.out,
              "bbpflash INF: == options start ===========\n"
              " (l = x)\n"
              " (t = )\n"
              " (v = 6)\n"
              "bbpflash INF: == options end =============\n");
    EXPECT_TRUE(platform_.log.empty());
}

TEST_F(HutilInitDeathTest, EndsWithStatus255AndNoWordWithoutMemoryForTheOptions) {
    EXPECT_EXIT(
        {
            CommandLine line{"bbpflash"};
            dup2(STDERR_FILENO, STDOUT_FILENO);
            g_missing_object = 0;
            hutil_init(line.Count(), line.Vector());
        },
        testing::ExitedWithCode(255), "^$");
}

TEST_F(HutilInitDeathTest, EndsWithStatus255AndNoWordWithoutMemoryForTheMessages) {
    EXPECT_EXIT(
        {
            CommandLine line{"bbpflash"};
            dup2(STDERR_FILENO, STDOUT_FILENO);
            g_missing_object = 1;
            hutil_init(line.Count(), line.Vector());
        },
        testing::ExitedWithCode(255), "^$");
}

TEST_F(HutilInitDeathTest, HutilFailWritesErrorToStandardOutputAndEndsWithStatusOne) {
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
            hutil_fail();
        },
        testing::ExitedWithCode(1), "^ERROR\n$");
}

TEST_F(HutilInit, ReportsCarryTheLevelAndTheCallersPlace) {
    CommandLine line{"bbpflash", "image.bin"};
    hutil_init(line.Count(), line.Vector());
    g_p_hutil_opt->verbosity = 6;
    int first_line = 0;
    const fake::Output output = fake::Capture([&] {
        first_line = __LINE__ + 1;
        HUTIL_PLAIN("text %d", 0);
        HUTIL_CRITICAL("text %d", 1);
        HUTIL_ERROR("text %d", 2);
        HUTIL_WARNING("text %d", 3);
        HUTIL_INFO("text %d", 5);
    });
    const auto place = [&](int offset) {
        return " @hutil_initTest.cpp:" + std::to_string(first_line + offset) + "\n";
    };
    EXPECT_EQ(output.out, "bbpflash MSG: text 0" + place(0) + "bbpflash CRITICAL: text 1" +
                              place(1) + "bbpflash ERROR: text 2" + place(2) +
                              "bbpflash WRN: text 3" + place(3) + "bbpflash INF: text 5" +
                              place(4));
}

TEST(HutilPrint16, WritesNothingForACountBelowOne) {
    EXPECT_EQ(Dump(0, 0), "");
    EXPECT_EQ(Dump(-1, 0), "");
    EXPECT_EQ(Dump(-2147483647 - 1, 0), "");
}

TEST(HutilPrint16, WritesNothingToANullStream) {
    unsigned char bytes[] = {1, 2};
    const fake::Output output = fake::Capture([&] { hutil_print16(nullptr, bytes, 2); });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

TEST(HutilPrint16, TakesNoBytesForACountOfZero) {
    const fake::Output output = fake::Capture([&] { hutil_print16(stdout, nullptr, 0); });
    EXPECT_EQ(output.out, "");
}

TEST(HutilPrint16, WritesOneByteInARowOfItsOwn) {
    EXPECT_EQ(Dump(1, 7), "\n\t\t 07\n\n");
}

TEST(HutilPrint16, WritesUpperCaseHexadecimal) {
    EXPECT_EQ(Dump(3, 0xFD), "\n\t\t FD FE FF\n\n");
}

TEST(HutilPrint16, WritesSixteenBytesInOneRow) {
    EXPECT_EQ(Dump(15, 0), std::string(ROW_OF_16_FROM_0, sizeof ROW_OF_16_FROM_0 - 4) + "\n\n");
    EXPECT_EQ(Dump(16, 0), std::string(ROW_OF_16_FROM_0) + "\n\n");
}

TEST(HutilPrint16, BeginsASecondRowWithTheSeventeenthByte) {
    EXPECT_EQ(Dump(17, 0), std::string(ROW_OF_16_FROM_0) + "\n\t\t 10\n\n");
}

TEST(HutilPrint16, WritesThirtyTwoBytesInExactlyTwoRows) {
    EXPECT_EQ(Dump(32, 0), std::string(ROW_OF_16_FROM_0) + ROW_OF_16_FROM_16 + "\n\n");
}

TEST(HutilPrint16, WritesToTheStreamThatItIsGiven) {
    unsigned char bytes[] = {0xAB};
    const fake::Output to_out = fake::Capture([&] { hutil_print16(stdout, bytes, 1); });
    EXPECT_EQ(to_out.out, "\n\t\t AB\n\n");
    EXPECT_EQ(to_out.err, "");
    const fake::Output to_err = fake::Capture([&] { hutil_print16(stderr, bytes, 1); });
    EXPECT_EQ(to_err.out, "");
    EXPECT_EQ(to_err.err, "\n\t\t AB\n\n");
}
