// SPDX-License-Identifier: Apache-2.0
// Labels go into an image and come back through the updater's own reading.
#include <gtest/gtest.h>

#include <random>

#include "tests/tools/TemporaryFolder.h"
#include "tools/image/LabelField.h"
#include "tools/image/UpdaterLabel.h"

namespace {

using tools::EncodeLabel;
using tools::LabelReading;

class LabelRoundTrip : public testing::Test {
  protected:
    LabelRoundTrip() {
        folder_.Write("image.bin", std::string(tools::LABEL_END, '\0'));
        random_.seed(20);
    }

    LabelReading ReadField(const std::string& field) {
        std::fstream image(folder_.Path("image.bin"),
                           std::ios::binary | std::ios::in | std::ios::out);
        image.seekp(static_cast<std::streamoff>(sim::LABEL_OFFSET));
        image << field;
        image.close();
        return tools::ReadLabelAsUpdater(folder_.Path("image.bin"));
    }

    std::string RandomText(std::size_t size, const std::string& characters) {
        std::string text(size, '\0');
        for (char& c : text) {
            c = characters[random_() % characters.size()];
        }
        return text;
    }

    void ExpectRoundTrip(const std::string& label) {
        SCOPED_TRACE("label of " + std::to_string(label.size()) + " bytes: " + label);
        const auto field = EncodeLabel(label);
        ASSERT_TRUE(field.has_value());
        ASSERT_EQ(sim::LABEL_SIZE, field->size());
        const LabelReading reading = ReadField(*field);
        ASSERT_EQ(LabelReading::Result::Read, reading.result);
        ASSERT_EQ(label, reading.label);
        ASSERT_EQ("", reading.message);
    }

    TemporaryFolder folder_;
    std::mt19937_64 random_;
};

std::string AllBytes() {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    return all;
}

TEST_F(LabelRoundTrip, HoldsForLabelsOfEveryLengthUpTo35) {
    for (std::size_t size = 0; size <= 35; ++size) {
        for (const std::string& characters : {AllBytes(), std::string("A "), std::string("A")}) {
            std::string label = RandomText(size, characters);
            if (size > 0 && label[0] == ' ') {
                label[0] = 'B';
            }
            ExpectRoundTrip(label);
        }
    }
}

TEST_F(LabelRoundTrip, HoldsForOneCharacterAndAnyNumberOfBlanksUpToTheFieldsEnd) {
    for (std::size_t blanks = 0; blanks <= 36; ++blanks) {
        ExpectRoundTrip("X" + std::string(blanks, ' '));
    }
}

TEST_F(LabelRoundTrip, HoldsForWhateverLabelAFieldIsReadAs) {
    for (int round = 0; round < 300; ++round) {
        const std::string& characters = round % 2 == 0 ? AllBytes() : std::string("     AB");
        const std::string field = RandomText(sim::LABEL_SIZE, characters);
        const LabelReading reading = ReadField(field);
        ASSERT_EQ(LabelReading::Result::Read, reading.result);
        ExpectRoundTrip(reading.label);
    }
}

TEST(LabelEncoding, RefusesWhatNoFieldIsReadAs) {
    EXPECT_FALSE(EncodeLabel(" A"));
    EXPECT_FALSE(EncodeLabel(" "));
    EXPECT_FALSE(EncodeLabel(std::string(36, 'A')));
    EXPECT_FALSE(EncodeLabel("AB" + std::string(34, ' ')));
    EXPECT_FALSE(EncodeLabel("A" + std::string(37, ' ')));
}

TEST_F(LabelRoundTrip, ReadsAFieldOfBlanksAsABreakdown) {
    const LabelReading reading = ReadField(std::string(sim::LABEL_SIZE, ' '));
    EXPECT_EQ(LabelReading::Result::BreaksDown, reading.result);
    EXPECT_EQ("", reading.label);
}

TEST_F(LabelRoundTrip, TellsTheUpdatersOwnMessageWhenItRefuses) {
    const LabelReading reading = tools::ReadLabelAsUpdater(folder_.Path("missing.bin"));
    EXPECT_EQ(LabelReading::Result::Refused, reading.result);
    EXPECT_EQ("opening bin file " + folder_.Path("missing.bin"), reading.message);
}

}  // namespace
