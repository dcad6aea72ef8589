// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <type_traits>

#include "tests/unit/driver/DriverFixture.h"

namespace {

using fake::Bytes;
using fake::Reply;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(DriverGlobals, HaveTheirTypesAndTheFlagsTheirPlaces) {
    static_assert(std::is_same<decltype(installed_version), std::string>::value, "");
    static_assert(std::is_same<decltype(file_version), std::string>::value, "");
    static_assert(std::is_same<decltype(filename), std::string>::value, "");
    static_assert(std::is_same<decltype(p_ischip), HdChip*>::value, "");
    static_assert(std::is_same<decltype(g_options), bool[3]>::value, "");
    static_assert(std::is_same<decltype(state), int>::value && sizeof state == 4, "");
    EXPECT_EQ(OPTION_FORCE, 0);
    EXPECT_EQ(OPTION_INFO_ONLY, 1);
    EXPECT_EQ(OPTION_STATUS, 2);
}

TEST(DriverStates, AreNumberedFromZeroToFive) {
    EXPECT_EQ(STATE_INIT, 0);
    EXPECT_EQ(STATE_RESET, 1);
    EXPECT_EQ(STATE_CHECK_VERSION, 2);
    EXPECT_EQ(STATE_PROGRAM, 3);
    EXPECT_EQ(STATE_DONE, 4);
    EXPECT_EQ(STATE_FAILED, 5);
}

TEST_F(DriverInit, MakesTheChipAndOpensTheBusAt400000) {
    EXPECT_EQ(Run(bbpflash_init), 1);
    ASSERT_NE(p_ischip, nullptr);
    EXPECT_EQ(p_ischip->bus->fd, BUS_DESCRIPTOR);
    EXPECT_EQ(p_ischip->bus->devName, "/dev/i2c1");
    EXPECT_EQ(p_ischip->bus->speed, 400000);
    EXPECT_THAT(platform.trace, ElementsAre("open /dev/i2c1 O_RDWR", "SPEED 400000"));
    EXPECT_EQ(out_, "");
}

TEST_F(DriverInit, TellsItsProgressAsInformation) {
    ShowInformation();
    Run(bbpflash_init);
    EXPECT_THAT(
        platform.Messages(),
        ElementsAre("INF: Initializing update system and i2c bus", "INF: Opened /dev/i2c1 (711)",
                    "INF: Set speed on /dev/i2c1 (711) to 400000", "INF: Cayman chip ready",
                    "INF: Update system initialization complete"));
}

TEST_F(DriverInit, FailsWithoutMemoryForTheChip) {
    g_devices.objects_left = 0;
    EXPECT_EQ(Run(bbpflash_init), 5);
    EXPECT_EQ(p_ischip, nullptr);
    EXPECT_EQ(out_, "bbpflash ERROR: Instantiating bus and chip\n");
    EXPECT_THAT(platform.trace, IsEmpty());
}

TEST_F(DriverInit, FailsAndKeepsTheChipWhenTheBusCannotBeOpened) {
    g_devices.descriptors["/dev/i2c1"] = -1;
    EXPECT_EQ(Run(bbpflash_init), 5);
    EXPECT_NE(p_ischip, nullptr);
    EXPECT_THAT(platform.Messages(),
                ElementsAre("CRITICAL: opening /dev/i2c1 with result \"Unknown error -1\" (-1)",
                            "ERROR: opening connection to chip on /dev/i2c1 at 400000",
                            "ERROR: Opening special device /dev/i2c1"));
}

TEST_F(DriverInit, FailsWhenTheSpeedCannotBeSet) {
    platform.Fail(DCMD_I2C_SET_BUS_SPEED, EIO);
    EXPECT_EQ(Run(bbpflash_init), 5);
    EXPECT_NE(p_ischip, nullptr);
    EXPECT_EQ(platform.Messages().back(), "ERROR: Opening special device /dev/i2c1");
}

TEST_F(DriverInitDeathTest, LeavesAFailureOfTheChipsOwnPartsToTheChipWhichEndsTheProcess) {
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            g_devices.objects_left = 1;
            bbpflash_init();
        },
        testing::ExitedWithCode(1),
        "^bbpflash CRITICAL: instantiating an I2C bus object @HdChip.cpp:[0-9]+\nERROR\n$");
}

TEST_F(DriverReset, LowersTheLineFor200MillisecondsAndWaits3SecondsForTheFirmware) {
    EXPECT_EQ(Run(bbpflash_reset), 2);
    EXPECT_THAT(platform.trace, ElementsAre("open /dev/gpio/HD_DAB2Reset O_RDWR", "write 0",
                                            "delay 200", "write 1", "delay 3000"));
    EXPECT_EQ(out_, "");
}

TEST_F(DriverReset, RestartsTheEnginesMessageCountAfterwards) {
    p_ischip->lm->lmCount = 77;
    p_ischip->lm->currSeg = 3;
    Run(bbpflash_reset);
    EXPECT_EQ(p_ischip->lm->lmCount, 0);
    EXPECT_EQ(p_ischip->lm->currSeg, 0);
}

TEST_F(DriverReset, TellsItsProgressAsInformation) {
    ShowInformation();
    Run(bbpflash_reset);
    EXPECT_THAT(platform.Messages(), ElementsAre("INF: Doing hardware reset of HD module",
                                                 "INF: Waiting for firmware reset to complete",
                                                 "INF: Hardware reset of HD module complete"));
}

// Relied on: each pass leaves one descriptor open until the process ends.
TEST_F(DriverReset, OpensTheLineAnewEachTimeAndNeverClosesIt) {
    Run(bbpflash_reset);
    Run(bbpflash_reset);
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(),
                         "open /dev/gpio/HD_DAB2Reset O_RDWR"),
              2);
    EXPECT_THAT(g_devices.closed, testing::Not(testing::Contains(std::to_string(LINE_DESCRIPTOR))));
}

TEST_F(DriverReset, TakesADescriptorOfZero) {
    g_devices.descriptors["/dev/gpio/HD_DAB2Reset"] = 0;
    EXPECT_EQ(Run(bbpflash_reset), 2);
}

// Ways for the reset to fail, each with what has happened until then.
struct ResetFailure {
    const char* name;
    void (*arrange)();
    std::vector<std::string> trace;
    std::string message;
};

class DriverResetFailure : public DriverReset, public testing::WithParamInterface<ResetFailure> {};

TEST_P(DriverResetFailure, EndsTheStepAtOnceAndLeavesTheEngineAsItIs) {
    p_ischip->lm->lmCount = 77;
    GetParam().arrange();
    EXPECT_EQ(Run(bbpflash_reset), 5);
    EXPECT_EQ(platform.trace, GetParam().trace);
    EXPECT_EQ(out_, "bbpflash ERROR: " + GetParam().message + "\n");
    EXPECT_EQ(p_ischip->lm->lmCount, 77);
    EXPECT_THAT(platform.devctls, IsEmpty());
    EXPECT_THAT(g_devices.closed, testing::Not(testing::Contains(std::to_string(LINE_DESCRIPTOR))));
}

const char OPENED[] = "open /dev/gpio/HD_DAB2Reset O_RDWR";

INSTANTIATE_TEST_SUITE_P(
    , DriverResetFailure,
    testing::Values(ResetFailure{"NoDevice",
                                 [] { g_devices.descriptors["/dev/gpio/HD_DAB2Reset"] = -1; },
                                 {OPENED},
                                 "Opening /dev/gpio/HD_DAB2Reset"},
                    ResetFailure{"LoweringRefused",
                                 [] { g_devices.write_results = {-1}; },
                                 {OPENED, "write 0"},
                                 "Lowering reset line, /dev/gpio/HD_DAB2Reset"},
                    ResetFailure{"LoweringWroteNothing",
                                 [] { g_devices.write_results = {0}; },
                                 {OPENED, "write 0"},
                                 "Lowering reset line, /dev/gpio/HD_DAB2Reset"},
                    ResetFailure{"LowTimeCutShort",
                                 [] { g_devices.delay_results = {1}; },
                                 {OPENED, "write 0", "delay 200"},
                                 "Delaying"},
                    ResetFailure{"RaisingRefused",
                                 [] {
                                     g_devices.write_results = {1, -1};
                                 },
                                 {OPENED, "write 0", "delay 200", "write 1"},
                                 "Raising reset line, /dev/gpio/HD_DAB2Reset"},
                    ResetFailure{"RaisingWroteNothing",
                                 [] {
                                     g_devices.write_results = {1, 0};
                                 },
                                 {OPENED, "write 0", "delay 200", "write 1"},
                                 "Raising reset line, /dev/gpio/HD_DAB2Reset"}),
    [](const testing::TestParamInfo<ResetFailure>& failure) { return failure.param.name; });

TEST_F(DriverReset, FailsWhenTheWaitForTheFirmwareIsCutShort) {
    ShowInformation();
    p_ischip->lm->lmCount = 77;
    g_devices.delay_results = {0, 1};
    EXPECT_EQ(Run(bbpflash_reset), 5);
    EXPECT_EQ(platform.trace.back(), "delay 3000");
    EXPECT_THAT(platform.Messages(),
                ElementsAre("INF: Doing hardware reset of HD module",
                            "INF: Waiting for firmware reset to complete", "ERROR: Delaying"));
    EXPECT_EQ(p_ischip->lm->lmCount, 77);
}

TEST_F(DriverProgram, GoesBackToTheResetOnceTheChipHasProgrammedTheFile) {
    Image image(Padded("label"));
    filename = image.Path();
    g_options[OPTION_STATUS] = true;
    platform.default_reply = Reply(Bytes{0, 1});
    EXPECT_EQ(Run(bbpflash_program), 1);
    EXPECT_THAT(out_, testing::EndsWith("79\n80\n99\n"));
    EXPECT_THAT(g_devices.streams, ElementsAre("r " + filename));
}

TEST_F(DriverProgram, FailsWhenTheFileCannotBeProgrammed) {
    filename = "no/such/image.bin";
    EXPECT_EQ(Run(bbpflash_program), 5);
    EXPECT_EQ(out_,
              "bbpflash ERROR: opening binary file no/such/image.bin\n"
              "bbpflash ERROR: Unable to program file\n");
    EXPECT_THAT(platform.devctls, IsEmpty());
}

}  // namespace
