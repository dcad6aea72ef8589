// SPDX-License-Identifier: Apache-2.0
// Every problem that bbpimage finds is one: the updater runs into it with the same image on the
// simulated head unit_.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "sim/SampleImage.h"
#include "tests/support/StreamChecker.h"
#include "tests/support/VirtualHeadUnit.h"
#include "tests/tools/TemporaryFolder.h"
#include "tests/tools/full_size.h"

namespace {

using virt::FileContent;
using virt::Outcome;
using virt::RunResult;

constexpr std::size_t FILLED_SIZE = std::size_t{2} * 1024 * 1024;
constexpr std::size_t SOUND_SIZE = 930000;  // bytes; no other property than that it has a label

std::string Blanks(std::size_t count) {
    return std::string(count, ' ');
}

class ImageProblem : public testing::Test {
  protected:
    // An image with these bytes in its label field, and holes behind its first 2 MiB.
    void UseImage(const std::string& field, std::size_t size = SOUND_SIZE) {
        std::vector<std::uint8_t> image =
            sim::MakeSampleImage("1.2.3", std::min(size, FILLED_SIZE));
        const std::size_t room = std::min(field.size(), image.size() - sim::LABEL_OFFSET);
        std::copy_n(field.begin(), room, image.begin() + sim::LABEL_OFFSET);
        content_ = FileContent::Of(image);
        content_.size = size;
        std::filesystem::remove(folder_.Path("image.bin"));
        folder_.Write("image.bin", std::string(image.begin(), image.end()));
        std::filesystem::resize_file(folder_.Path("image.bin"), size);
    }

    // What bbpimage finds: the codes, one after the other. Its exit status goes to `grade_`.
    std::string Findings() {
        const std::string command =
            std::string(BBPIMAGE) + " info --json " + folder_.Path("image.bin");
        std::FILE* const pipe = popen(command.c_str(), "r");
        std::string text;
        char block[4096];
        for (std::size_t count; (count = std::fread(block, 1, sizeof block, pipe)) > 0;) {
            text.append(block, count);
        }
        grade_ = WEXITSTATUS(pclose(pipe));
        std::string codes;
        const nlohmann::json report = nlohmann::json::parse(text);
        for (const nlohmann::json& finding : report.at("images").at(0).at("findings")) {
            codes += (codes.empty() ? "" : " ") + finding.at("code").get<std::string>();
        }
        return codes;
    }

    // A run with the image on a unit_ whose chip reports `version` once it is programmed.
    RunResult Update(const std::string& version) {
        sim::ChipConfig chip;
        chip.installed = "0.9";
        chip.reports = version;
        unit_ = std::make_unique<virt::VirtualHeadUnit>(chip);
        unit_->checks_output = checks_output_;
        unit_->files.Put("image.bin", {content_});
        return unit_->Run({"bbpflash", "-s", "image.bin"});
    }

    // Three passes, each of them whole, end in the failure that no label ends.
    void ExpectNeverMatches(const std::string& version) {
        const RunResult result = Update(version);
        EXPECT_EQ(1, result.status);
        EXPECT_NE(std::string::npos,
                  result.out.find("maximum number of programming tries exceeded"));
        EXPECT_EQ(3u, unit_->Unit().Chip().Burns());
    }

    TemporaryFolder folder_;
    FileContent content_;
    std::unique_ptr<virt::VirtualHeadUnit> unit_;
    bool checks_output_ = true;
    int grade_ = -1;
};

TEST_F(ImageProblem, IsNoneInAnImageThatUpdates) {
    UseImage(sim::MakeLabel("1.2.3"));
    EXPECT_EQ("", Findings());
    EXPECT_EQ(0, grade_);
    EXPECT_EQ(0, Update("1.2.3").status);
}

TEST_F(ImageProblem, TooShortForALabel) {
    UseImage("", sim::LABEL_OFFSET);
    EXPECT_EQ("too-short", Findings());
    EXPECT_EQ(2, grade_);
    const RunResult result = Update("1.2.3");
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.out.find("reading bin file label"));
    EXPECT_EQ(0u, unit_->Unit().Chip().Segments());
}

TEST_F(ImageProblem, LabelCutByTheImagesEnd) {
    UseImage("1.2.3__", sim::LABEL_OFFSET + 10);
    EXPECT_EQ("cut-label control-characters", Findings());
    EXPECT_EQ(1, grade_);
    ExpectNeverMatches("1.2.3");
}

TEST_F(ImageProblem, BlankLabel) {
    UseImage(Blanks(37));
    EXPECT_EQ("blank-label", Findings());
    EXPECT_EQ(2, grade_);
    EXPECT_EQ(Outcome::OutOfRange, Update("1.2.3").outcome);
    EXPECT_EQ(0u, unit_->Unit().Chip().Segments());
}

TEST_F(ImageProblem, LabelOfOneCharacter) {
    UseImage("7" + Blanks(36));
    EXPECT_EQ("one-character-label", Findings());
    EXPECT_EQ(1, grade_);
    ExpectNeverMatches("7");
}

TEST_F(ImageProblem, LabelOfTwoCharacters) {
    UseImage("V7" + Blanks(35));
    EXPECT_EQ("two-character-label", Findings());
    EXPECT_EQ(1, grade_);
    ExpectNeverMatches("V7");
}

TEST_F(ImageProblem, ControlCharactersInTheLabel) {
    UseImage("1.2.3\n__" + Blanks(29));
    EXPECT_EQ("control-characters", Findings());
    EXPECT_EQ(1, grade_);
    ExpectNeverMatches("1.2.3");
}

TEST_F(ImageProblem, BytesOutsideAsciiInTheLabel) {
    UseImage("1.2.3\xB0__" + Blanks(29));
    EXPECT_EQ("non-ascii-characters", Findings());
    EXPECT_EQ(1, grade_);
    ExpectNeverMatches("1.2.3");
}

TEST_F(ImageProblem, LabelFieldThatWasNeverWritten) {
    UseImage(std::string(37, '\xFF'));
    EXPECT_EQ("unwritten-label", Findings());
    EXPECT_EQ(2, grade_);
    ExpectNeverMatches("1.2.3");
}

TEST_F(ImageProblem, LastSegmentExactlyFull) {
    UseImage(sim::MakeLabel("1.2.3"), FULL_SIZE);
    EXPECT_EQ("full-last-segment", Findings());
    EXPECT_EQ(2, grade_);
    const RunResult result = Update("1.2.3");
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.out.find("80\n"));
    EXPECT_NE(std::string::npos, result.out.find("ERROR: filling"));
    EXPECT_EQ(461u, unit_->Unit().Chip().Segments());
}

TEST_F(ImageProblem, LastSegmentExactlyFullGoesWithThePaddingThatIsAdvised) {
    UseImage(sim::MakeLabel("1.2.3"), FULL_SIZE + 1);
    EXPECT_EQ("", Findings());
    EXPECT_EQ(0, Update("1.2.3").status);
}

TEST_F(ImageProblem, MoreSegmentsThanCanBeNumbered) {
    UseImage(sim::MakeLabel("1.2.3"), 133363724);
    EXPECT_EQ("too-many-segments percentage half-written", Findings());
    EXPECT_EQ(2, grade_);
    const RunResult result = Update("1.2.3");
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.out.find("would exceed maximum"));
    EXPECT_EQ(0u, unit_->Unit().Chip().Segments());
}

TEST_F(ImageProblem, PercentageBeyondItsExactRange) {
    UseImage(sim::MakeLabel("1.2.3"), 40000000);
    EXPECT_EQ("percentage half-written", Findings());
    EXPECT_EQ(1, grade_);
    checks_output_ = false;
    const RunResult result = Update("1.2.3");
    EXPECT_FALSE(ConformsToContract(result.out, BBPFLASH_MODE_STATUS, result.status));
}

}  // namespace
