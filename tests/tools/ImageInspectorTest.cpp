// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "lm/HcLogical.h"
#include "tests/tools/TemporaryFolder.h"
#include "tools/image/ImageContent.h"
#include "tools/image/ImageInspector.h"
#include "tools/image/ImageWriter.h"
#include "tools/image/LabelField.h"

namespace {

using tools::Grade;
using tools::ImageReport;
using tools::InspectImage;

constexpr std::size_t SAMPLE_SIZE = std::size_t{2} * 1024 * 1024;

class ImageInspector : public testing::Test {
  protected:
    // An image whose label field is `field` and whose size is `size`.
    ImageReport InspectField(const std::string& field, std::size_t size = tools::LABEL_END) {
        std::string image(size, '\xA5');
        image.replace(sim::LABEL_OFFSET, field.size(), field);
        return InspectImage(folder_.Write("image.bin", image));
    }

    // A labelled image of `size` bytes, a file of holes behind 2 MiB.
    ImageReport InspectSize(std::size_t size) {
        const std::vector<std::uint8_t> sample =
            sim::MakeSampleImage("1.2.3", std::min(size, SAMPLE_SIZE));
        folder_.Write("image.bin", std::string(sample.begin(), sample.end()));
        std::filesystem::resize_file(folder_.Path("image.bin"), size);
        return InspectImage(folder_.Path("image.bin"));
    }

    TemporaryFolder folder_;
};

std::string Blanks(std::size_t count) {
    return std::string(count, ' ');
}

// The codes of the findings, one after the other.
std::string Codes(const ImageReport& report) {
    std::string codes;
    for (const tools::Finding& finding : report.findings) {
        codes += (codes.empty() ? "" : " ") + finding.code;
    }
    return codes;
}

TEST_F(ImageInspector, FindsNothingWrongWithASampleImage) {
    tools::WriteSample("HD 1.2.3", sim::SAMPLE_IMAGE_SIZE, {folder_.Path("image.bin")}, false);
    const ImageReport report = InspectImage(folder_.Path("image.bin"));
    EXPECT_EQ("", Codes(report));
    EXPECT_EQ(Grade::Clean, report.GetGrade());
    EXPECT_EQ(1048576u, report.size);
    EXPECT_EQ(516, report.segments);
    EXPECT_EQ("HD 1.2.3", report.label);
    EXPECT_EQ("HD 1.2.3__" + Blanks(27), report.field);
}

TEST_F(ImageInspector, CountsTheBusTimeOfEverySegmentAndItsReply) {
    // 516 segments carry 1048576 bytes, a function byte and 516 times 13 of their own; 9 bits a
    // byte, 11 a transfer; every reply is read as 65 bytes.
    const double bits = 9.0 * (1048576 + 1 + 516 * 13) + 516 * (11 + 9 * 65 + 11);
    tools::WriteSample("1", sim::SAMPLE_IMAGE_SIZE, {folder_.Path("image.bin")}, false);
    EXPECT_NEAR(bits / 400000, InspectImage(folder_.Path("image.bin")).wire_seconds, 1e-3);
}

TEST_F(ImageInspector, ShowsTheBytesThatItReads) {
    std::string seen;
    InspectImage(folder_.Write("image.bin", "abc"),
                 [&seen](const char* bytes, std::size_t size) { seen.append(bytes, size); });
    EXPECT_EQ("abc", seen);
}

TEST_F(ImageInspector, CountsSegmentsAsTheUpdaterDoes) {
    I2cBus bus(0);
    HcLogical engine(&bus, 0);
    std::mt19937_64 random(4);
    for (int round = 0; round < 1000; ++round) {
        const auto size = static_cast<int>(random() % 133363724);
        ASSERT_EQ(1, engine.SetNumSegs(size));
        ASSERT_EQ(engine.numSegs, tools::CountSegments(static_cast<std::uint64_t>(size))) << size;
    }
}

TEST_F(ImageInspector, FindsAnImageThatEndsBeforeTheLabel) {
    const ImageReport report = InspectSize(sim::LABEL_OFFSET);
    EXPECT_EQ("too-short", Codes(report));
    EXPECT_EQ(Grade::Unusable, report.GetGrade());
    EXPECT_NE(std::string::npos, report.findings[0].text.find("reading bin file label"));
    EXPECT_FALSE(report.label.has_value());
}

TEST_F(ImageInspector, FindsAnImageThatEndsInsideTheLabel) {
    const ImageReport report = InspectSize(sim::LABEL_OFFSET + 7);
    EXPECT_EQ("cut-label control-characters", Codes(report));
    EXPECT_EQ(Grade::Warnings, report.GetGrade());
    EXPECT_EQ("1.2.3__" + std::string(28, '\0'), report.label);
}

TEST_F(ImageInspector, FindsABlankLabel) {
    const ImageReport report = InspectField(Blanks(37));
    EXPECT_EQ("blank-label", Codes(report));
    EXPECT_EQ(Grade::Unusable, report.GetGrade());
}

TEST_F(ImageInspector, FindsALabelOfOneCharacter) {
    const ImageReport report = InspectField(Blanks(3) + "X" + Blanks(33));
    EXPECT_EQ("one-character-label", Codes(report));
    EXPECT_EQ(Grade::Warnings, report.GetGrade());
    EXPECT_EQ("X" + Blanks(33), report.label);
}

TEST_F(ImageInspector, FindsALabelOfTwoCharacters) {
    const ImageReport report = InspectField("XY" + Blanks(35));
    EXPECT_EQ("two-character-label", Codes(report));
    EXPECT_EQ(Grade::Warnings, report.GetGrade());
    EXPECT_EQ("", report.label);
}

TEST_F(ImageInspector, AcceptsALabelOfThreeCharacters) {
    EXPECT_EQ("", Codes(InspectField("XYZ" + Blanks(34))));
}

TEST_F(ImageInspector, FindsControlCharacters) {
    EXPECT_EQ("control-characters", Codes(InspectField("1.2.3" + std::string(32, '\0'))));
    EXPECT_EQ("control-characters", Codes(InspectField("1\n2.3__" + Blanks(30))));
    EXPECT_EQ("control-characters", Codes(InspectField("1\x7F" + ("2.3__" + Blanks(30)))));
}

TEST_F(ImageInspector, IgnoresControlCharactersThatTheUpdaterDrops) {
    EXPECT_EQ("", Codes(InspectField("1.2.3" + std::string(2, '\0') + Blanks(30))));
}

TEST_F(ImageInspector, FindsALastSegmentThatIsExactlyFull) {
    const std::size_t size = 2034 + 2035 * 500;
    EXPECT_EQ("", Codes(InspectSize(size - 1)));
    const ImageReport report = InspectSize(size);
    EXPECT_EQ("full-last-segment", Codes(report));
    EXPECT_EQ(Grade::Unusable, report.GetGrade());
    EXPECT_EQ("", Codes(InspectSize(size + 1)));
}

TEST_F(ImageInspector, FindsAPercentageBeyondItsExactRange) {
    EXPECT_EQ("half-written", Codes(InspectSize(26843545)));
    const ImageReport report = InspectSize(26843546);
    EXPECT_EQ("percentage half-written", Codes(report));
    EXPECT_EQ(Grade::Warnings, report.GetGrade());
}

TEST_F(ImageInspector, FindsMoreSegmentsThanCanBeNumbered) {
    const ImageReport largest = InspectSize(133363723);
    EXPECT_EQ("percentage half-written", Codes(largest));
    EXPECT_EQ(65535, largest.segments);
    const ImageReport report = InspectSize(133363724);
    EXPECT_EQ("too-many-segments percentage half-written", Codes(report));
    EXPECT_EQ(Grade::Unusable, report.GetGrade());
    EXPECT_FALSE(report.segments.has_value());
}

TEST_F(ImageInspector, FindsAFileThatCannotBeRead) {
    for (const std::string& path : {folder_.Path("missing.bin"), folder_.Path("")}) {
        const ImageReport report = InspectImage(path);
        EXPECT_EQ("unreadable", Codes(report));
        EXPECT_EQ(Grade::Unusable, report.GetGrade());
    }
}

TEST_F(ImageInspector, ShowsBlanksAndControlCharactersInItsText) {
    const std::string text = tools::ToText(InspectField("1\t\x01\\\xE9\n__" + Blanks(29)));
    EXPECT_NE(std::string::npos, text.find(R"("1\t\x01\\\xe9\n" [6])")) << text;
    EXPECT_NE(std::string::npos, text.find("__\xE2\x90\xA3\xE2\x90\xA3")) << text;
}

// The longest run of blank bytes in these blocks, as "begin+size:byte".
std::string LongestBlank(std::initializer_list<std::string> blocks) {
    tools::ImageContent content;
    for (const std::string& block : blocks) {
        content.Take(block.data(), block.size());
    }
    const tools::ByteRun& run = content.LongestBlank();
    return std::to_string(run.begin) + "+" + std::to_string(run.size) + ":" +
           std::to_string(run.byte);
}

TEST(ImageContent, FindsTheLongestRunOfBlankBytes) {
    const std::string zero(1, '\0');
    const std::string one = "\xFF";
    EXPECT_EQ("0+0:0", LongestBlank({}));
    EXPECT_EQ("0+0:0", LongestBlank({"", "aa", "\x01\xFE"}));
    EXPECT_EQ("3+2:255", LongestBlank({zero + "a" + zero + one + one + "a"}));
    EXPECT_EQ("1+2:0", LongestBlank({one + zero + zero + one}));
    // Across blocks, and not across what is between.
    EXPECT_EQ("1+4:255", LongestBlank({"a" + one, one + one, "", one}));
    EXPECT_EQ("1+1:0", LongestBlank({"a" + zero, "a" + zero, one}));
    EXPECT_EQ("2+2:255", LongestBlank({"a" + zero, one, one}));
}

}  // namespace
