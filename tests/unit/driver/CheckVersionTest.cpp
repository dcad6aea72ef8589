// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <stdexcept>

#include "tests/unit/driver/DriverFixture.h"

namespace {

using fake::Bytes;
using fake::Reply;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(DriverCheckVersion, FailsWhenTheChipDoesNotAnswer) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    installed_version = "before";
    platform.FailAlways(DCMD_I2C_RECV, EIO);
    EXPECT_EQ(fake::Capture([] { EXPECT_EQ(bbpflash_check_version(), 5); }).out.empty(), false);
    EXPECT_EQ(platform.Messages().back(), "ERROR: Unable to get installed version");
    EXPECT_EQ(installed_version, "before");
    EXPECT_THAT(g_devices.streams, IsEmpty());
}

TEST_F(DriverCheckVersion, ShowsTheInstalledVersionForInfoOnlyWithoutOpeningTheFile) {
    filename = "-i";
    g_options[OPTION_INFO_ONLY] = true;
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(out_, "bbpflash MSG: Installed firmware version is \"1.2.3\"\n\n");
    EXPECT_EQ(installed_version, "1.2.3");
    EXPECT_EQ(file_version, "");
    EXPECT_THAT(g_devices.streams, IsEmpty());
}

TEST_F(DriverCheckVersion, ShowsTheInstalledVersionForInfoOnlyInStatusModeToo) {
    g_options[OPTION_INFO_ONLY] = true;
    g_options[OPTION_STATUS] = true;
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(out_, "bbpflash MSG: Installed firmware version is \"1.2.3\"\n\n");
}

TEST_F(DriverCheckVersion, TellsTheInstalledVersionWithItsLengthBeforeShowingIt) {
    ShowInformation();
    g_options[OPTION_INFO_ONLY] = true;
    platform.Answer(Version("1.2.3"));
    Run(bbpflash_check_version);
    EXPECT_THAT(platform.Messages(), ElementsAre("INF: Installed firmware version is \"1.2.3\" [5]",
                                                 "MSG: Installed firmware version is \"1.2.3\"\n"));
}

TEST_F(DriverCheckVersion, IsDoneWithANoticeWhenTheVersionsMatch) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(out_, "bbpflash MSG: Installed version matches BIN file label\n");
    EXPECT_EQ(installed_version, "1.2.3");
    EXPECT_EQ(file_version, "1.2.3");
}

TEST_F(DriverCheckVersion, IsDoneInSilenceWhenTheVersionsMatchInStatusMode) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    g_options[OPTION_STATUS] = true;
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(out_, "");
}

TEST_F(DriverCheckVersion, GoesOnToProgramInSilenceWhenTheVersionsDiffer) {
    Image image(Padded("1.2.4xx"));
    filename = image.Path();
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
    EXPECT_EQ(out_, "");
    EXPECT_EQ(installed_version, "1.2.3");
    EXPECT_EQ(file_version, "1.2.4");
}

TEST_F(DriverCheckVersion, TellsBothVersionsWithTheirLengths) {
    Image image(Padded("1.2.40xx"));
    filename = image.Path();
    ShowInformation();
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
    EXPECT_THAT(platform.Messages(),
                ElementsAre("INF: Installed firmware version is \"1.2.3\" [5]",
                            "INF: Checking HD update versions",
                            "INF: BIN file firmware version is \"1.2.40\" [6]"));
}

TEST_F(DriverCheckVersion, LeavesTheForceFlagToItsCaller) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    g_options[OPTION_FORCE] = true;
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_TRUE(g_options[OPTION_FORCE]);
}

TEST_F(DriverCheckVersion, FailsWhenTheLabelCannotBeRead) {
    filename = "no/such/image.bin";
    file_version = "before";
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 5);
    EXPECT_EQ(out_,
              "bbpflash ERROR: opening bin file no/such/image.bin\n"
              "bbpflash ERROR: Unable to get bin file version\n");
    EXPECT_EQ(installed_version, "1.2.3");
    EXPECT_EQ(file_version, "before");
}

TEST_F(DriverCheckVersion, TakesTrailingBlanksForADifference) {
    Image image(Padded("1.2.3 xx"));
    filename = image.Path();
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
    EXPECT_EQ(file_version, "1.2.3 ");
}

TEST_F(DriverCheckVersion, TakesCaseForADifference) {
    Image image(Padded("1.2.Axx"));
    filename = image.Path();
    platform.Answer(Version("1.2.a"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
}

TEST_F(DriverCheckVersion, ComparesBeyondANul) {
    Image image(Padded(std::string("1.2\0A", 5) + "xx"));
    filename = image.Path();
    platform.Answer(Version(std::string("1.2\0B", 5)));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
    platform.Answer(Version(std::string("1.2\0A", 5)));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    platform.Answer(Version("1.2"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
}

TEST_F(DriverCheckVersion, TakesTwoEmptyVersionsForEqual) {
    Image image(Padded("XY"));
    filename = image.Path();
    installed_version = "before";
    platform.Answer(Reply(Bytes{0, 'X'}));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(installed_version, "");
    EXPECT_EQ(file_version, "");
}

TEST_F(DriverCheckVersion, ReadsBothVersionsAfreshEachTime) {
    {
        Image image(Padded("1.2.4xx"));
        filename = image.Path();
        platform.Answer(Version("1.2.3"));
        EXPECT_EQ(Run(bbpflash_check_version), 3);
    }
    Image image(Padded("1.2.5xx"));
    platform.Answer(Version("1.2.5"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(installed_version, "1.2.5");
    EXPECT_EQ(file_version, "1.2.5");
}

// Relied on: nothing catches it, so the run ends abnormally.
TEST_F(DriverCheckVersion, LetsTheErrorOfAnAllBlankLabelThrough) {
    Image image(Blanks(FIELD_SIZE));
    filename = image.Path();
    platform.Answer(Version("1.2.3"));
    EXPECT_THROW(bbpflash_check_version(), std::out_of_range);
}

}  // namespace
