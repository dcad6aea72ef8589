// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

#include "common/Failure.h"
#include "common/Spawn.h"

namespace {

using common::ErrnoFailure;
using common::Failure;
using common::RunProgram;

constexpr int USUAL = 9;

TEST(ErrnoFailure, SaysWhatAndWhy) {
    const Failure failure = ErrnoFailure("opening the log x", EACCES, 3);
    EXPECT_STREQ(failure.what(), "opening the log x: Permission denied");
    EXPECT_EQ(failure.Status(), 3);
    EXPECT_EQ(failure.Error(), EACCES);
}

TEST(Failure, HasNoStatusOfItsOwn) {
    EXPECT_EQ(Failure("no").Status(), std::nullopt);
    EXPECT_EQ(Failure("no").Error(), 0);
}

TEST(RunProgram, ReturnsWhatTheProgramDoes) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunProgram("x", USUAL, [] { return 4; }), 4);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(RunProgram, CanWaitForChildrenWhoeverStartedIt) {
    std::signal(SIGCHLD, SIG_IGN);
    const auto wait_for_a_child = [] { return common::WaitForEnd(common::Fork([] { return 5; })); };
    EXPECT_EQ(RunProgram("x", USUAL, wait_for_a_child), 5);
}

TEST(RunProgram, PrintsTheReasonAndReturnsItsStatus) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunProgram("x", USUAL, []() -> int { throw Failure("no", 64); }), 64);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "x: no\n");
}

TEST(RunProgram, ReturnsTheUsualStatusOtherwise) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunProgram("x", USUAL, []() -> int { throw Failure("no"); }), USUAL);
    EXPECT_EQ(RunProgram("x", USUAL, []() -> int { throw std::runtime_error("odd"); }), USUAL);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "x: no\nx: odd\n");
}

}  // namespace
