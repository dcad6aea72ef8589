// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <stdexcept>

#include "tests/unit/driver/DriverFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(DriverLabel, LosesSurroundingBlanksAndTwoMoreCharacters) {
    Image image(Blanks(2) + "ABCDEF" + Blanks(29));
    filename = image.Path();
    EXPECT_EQ(Label(), "ABCD");
}

TEST_F(DriverLabel, OfOneCharacterIsTheWholeFieldWithItsBlanks) {
    Image image("X" + Blanks(36));
    filename = image.Path();
    EXPECT_EQ(Label(), "X" + Blanks(36));
}

TEST_F(DriverLabel, OfOneCharacterInTheMiddleReachesToTheFieldsEnd) {
    Image image(Blanks(10) + "X" + Blanks(26));
    filename = image.Path();
    EXPECT_EQ(Label(), "X" + Blanks(26));
}

TEST_F(DriverLabel, OfOneCharacterAtTheFieldsEndIsThatCharacter) {
    Image image(Blanks(36) + "X");
    filename = image.Path();
    EXPECT_EQ(Label(), "X");
}

TEST_F(DriverLabel, OfTwoCharactersIsEmpty) {
    Image image("XY" + Blanks(35));
    filename = image.Path();
    EXPECT_EQ(Label(), "");
}

TEST_F(DriverLabel, EndedByNulsKeepsThemButTwo) {
    Image image("1.2.3" + std::string(32, '\0'));
    filename = image.Path();
    EXPECT_EQ(Label(), "1.2.3" + std::string(30, '\0'));
}

TEST_F(DriverLabel, FillingTheFieldLosesItsLastTwoCharacters) {
    Image image("abcdefghijklmnopqrstuvwxyzABCDEFGHIJK");
    filename = image.Path();
    EXPECT_EQ(Label(), "abcdefghijklmnopqrstuvwxyzABCDEFGHI");
}

TEST_F(DriverLabel, KeepsItsInnerBlanks) {
    Image image(" A  B xy" + Blanks(29));
    filename = image.Path();
    EXPECT_EQ(Label(), "A  B ");
}

TEST_F(DriverLabel, TakesTabsNulsAndLineEndsForText) {
    const std::string text("\t\0\r\nA\t\0\r\n", 9);
    Image image(" " + text + Blanks(27));
    filename = image.Path();
    EXPECT_EQ(Label(), text.substr(0, 7));
}

TEST_F(DriverLabel, TakesBytesAbove127ForText) {
    Image image(Padded("\xA0\xFF\x80xy"));
    filename = image.Path();
    EXPECT_EQ(Label(), "\xA0\xFF\x80");
}

TEST_F(DriverLabel, OfBlanksAloneIsOutOfRange) {
    Image image(Blanks(FIELD_SIZE));
    filename = image.Path();
    std::string version;
    EXPECT_THROW(get_bin_file_version(version, filename), std::out_of_range);
}

TEST_F(DriverLabel, IsReadAtItsPlaceInOnePiece) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    EXPECT_EQ(Label(), "1.2.3");
    EXPECT_THAT(g_devices.streams, ElementsAre("r " + filename));
    EXPECT_THAT(g_devices.moves, ElementsAre("seek 925630 from the start", "read 37 of 1"));
}

TEST_F(DriverLabel, IsThatOfTheGlobalFileNameWhateverFileIsGiven) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    std::string version;
    std::string other = "no/such/image.bin";
    EXPECT_TRUE(get_bin_file_version(version, other));
    EXPECT_EQ(version, "1.2.3");
    EXPECT_EQ(other, "no/such/image.bin");
}

// Relied on: each reading leaves one stream open until the process ends.
TEST_F(DriverLabel, LeavesTheImageOpen) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    Label();
    EXPECT_THAT(g_devices.closed, testing::Not(testing::Contains("image")));
}

TEST_F(DriverLabel, FailsForAFileThatCannotBeOpened) {
    filename = "no/such/image.bin";
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_, "bbpflash ERROR: opening bin file no/such/image.bin\n");
    EXPECT_EQ(version_, "old");
    EXPECT_THAT(g_devices.moves, IsEmpty());
}

TEST_F(DriverLabel, FailsWhenTheSeekFails) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    g_devices.fseek_error = ESPIPE;
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_, "bbpflash ERROR: seeking bin file label with result \"Illegal seek\" (29)\n");
    EXPECT_EQ(version_, "old");
    EXPECT_THAT(g_devices.moves, ElementsAre("seek 925630 from the start"));
}

TEST_F(DriverLabel, FailsWhenTheReadBringsNothing) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    g_devices.fread_error = EIO;
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_,
              "bbpflash ERROR: reading bin file label with result \"Input/output error\" (5)\n");
    EXPECT_EQ(version_, "old");
}

TEST_F(DriverLabel, FailsInTheReadForAFileThatEndsBeforeTheField) {
    Image image = Image::EndingIn("");
    filename = image.Path();
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_, "bbpflash ERROR: reading bin file label with result \"Success\" (0)\n");
    EXPECT_EQ(version_, "old");
}

TEST_F(DriverLabel, FailsInTheReadForAnEmptyFile) {
    filename = "/dev/null";
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_, "bbpflash ERROR: reading bin file label with result \"Success\" (0)\n");
}

TEST_F(DriverLabel, FailsForAFolder) {
    filename = "/";
    EXPECT_FALSE(Read());
    EXPECT_THAT(out_, testing::StartsWith("bbpflash ERROR: reading bin file label with result"));
}

TEST_F(DriverLabel, IsFilledUpWithNulsForAFileThatEndsInTheField) {
    for (std::size_t present = 1; present < FIELD_SIZE; ++present) {
        const std::string text(present, 'A');
        Image image = Image::EndingIn(text);
        filename = image.Path();
        EXPECT_EQ(Label(), (text + std::string(FIELD_SIZE, '\0')).substr(0, 35)) << present;
    }
}

TEST_F(DriverLabel, MayEndWithTheFile) {
    Image image = Image::EndingIn(Padded("1.2.3xx"));
    filename = image.Path();
    EXPECT_EQ(Label(), "1.2.3");
}

}  // namespace
