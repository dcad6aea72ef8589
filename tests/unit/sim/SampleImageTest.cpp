// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "sim/SampleImage.h"

namespace sim {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::string FieldOf(const Bytes& image) {
    return std::string(image.begin() + LABEL_OFFSET, image.begin() + LABEL_OFFSET + LABEL_SIZE);
}

Bytes ImageWithField(std::string field) {
    field.resize(LABEL_SIZE, ' ');
    Bytes image(LABEL_OFFSET + LABEL_SIZE);
    std::copy(field.begin(), field.end(), image.begin() + LABEL_OFFSET);
    return image;
}

TEST(SimSampleImage, IsOneMebibyteWithItsVersionTwoFillersAndBlanksInTheLabelField) {
    const Bytes image = MakeSampleImage("2.1.0-rc1");

    EXPECT_EQ(1048576u, image.size());
    EXPECT_EQ("2.1.0-rc1__                          ", FieldOf(image));
    EXPECT_EQ("2.1.0-rc1", LabelVersion(image));
}

TEST(SimSampleImage, IsTheSameForTheSameVersionAndAnotherForAnother) {
    EXPECT_EQ(MakeSampleImage("1.2.3"), MakeSampleImage("1.2.3"));
    EXPECT_NE(MakeSampleImage("1.2.3"), MakeSampleImage("1.2.4"));
}

TEST(SimSampleImage, HasAnySizeAndAsMuchOfTheLabelAsFits) {
    EXPECT_EQ(0u, MakeSampleImage("1", 0).size());
    EXPECT_EQ(2033u, MakeSampleImage("1", 2033).size());
    EXPECT_EQ("", LabelVersion(MakeSampleImage("1.2.3", LABEL_OFFSET)));
    EXPECT_EQ("1.2", LabelVersion(MakeSampleImage("1.2.3", LABEL_OFFSET + 5)));
    EXPECT_EQ("1.2.3", LabelVersion(MakeSampleImage("1.2.3", LABEL_OFFSET + LABEL_SIZE)));
}

TEST(SimSampleImage, TakesVersionsThatComeBackFromTheirLabelOnly) {
    EXPECT_EQ(std::string(35, 'x'), LabelVersion(MakeSampleImage(std::string(35, 'x'))));
    EXPECT_EQ("", LabelVersion(MakeSampleImage("")));
    EXPECT_EQ("a ", LabelVersion(MakeSampleImage("a ")));
    EXPECT_THROW(MakeLabel(std::string(36, 'x')), std::invalid_argument);
    EXPECT_THROW(MakeLabel(" 1"), std::invalid_argument);
}

TEST(SimSampleImage, ReadsALabelWithoutTheBlanksAroundItAndItsLastTwoCharacters) {
    EXPECT_EQ("ABCD", LabelVersion(ImageWithField("  ABCDEF")));
    EXPECT_EQ("", LabelVersion(ImageWithField("XY")));
    EXPECT_EQ("", LabelVersion(ImageWithField("X")));
    EXPECT_EQ("", LabelVersion(ImageWithField("")));
    EXPECT_EQ(std::string("V1") + std::string(33, '\0'),
              LabelVersion(ImageWithField(std::string("V1") + std::string(35, '\0'))));
}

}  // namespace
}  // namespace sim
