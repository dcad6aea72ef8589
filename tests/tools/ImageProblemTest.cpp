// SPDX-License-Identifier: Apache-2.0
// Every problem that bbpimage finds is one: the updater runs into it with the same image on the
// simulated head unit.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "sim/SampleImage.h"
#include "tests/support/StreamChecker.h"
#include "tests/support/VirtualHeadUnit.h"
#include "tests/tools/TemporaryFolder.h"

namespace {

using virt::FileContent;
using virt::Outcome;
using virt::RunResult;

constexpr std::size_t SOUND_SIZE = 930000;  // bytes; no other property than that it has a label

// A size at which the last segment is exactly full.
constexpr std::size_t FULL_SIZE = 2034 + 2035 * 460;

std::string Blanks(std::size_t count) {
    return std::string(count, ' ');
}

class ImageProblem : public testing::Test {
  protected:
    // An image with these bytes in its label field, and zeros everywhere else.
    void UseImage(const std::string& field, std::size_t size = SOUND_SIZE) {
        content = FileContent();
        content.bytes = std::make_shared<const virt::Bytes>(field.begin(), field.end());
        content.base = sim::LABEL_OFFSET;
        content.size = size;
        std::filesystem::remove(folder.Path("image.bin"));
        folder.Write("image.bin", "");
        std::filesystem::resize_file(folder.Path("image.bin"), sim::LABEL_OFFSET);
        std::ofstream(folder.Path("image.bin"), std::ios::binary | std::ios::app) << field;
        std::filesystem::resize_file(folder.Path("image.bin"), size);
    }

    // What bbpimage finds: the codes, one after the other. Its exit status goes to `grade`.
    std::string Findings() {
        const std::string command =
            std::string(BBPIMAGE) + " info --json " + folder.Path("image.bin");
        std::FILE* const pipe = popen(command.c_str(), "r");
        std::string text;
        char block[4096];
        for (std::size_t count; (count = std::fread(block, 1, sizeof block, pipe)) > 0;) {
            text.append(block, count);
        }
        grade = WEXITSTATUS(pclose(pipe));
        std::string codes;
        const nlohmann::json report = nlohmann::json::parse(text);
        for (const nlohmann::json& finding : report.at("images").at(0).at("findings")) {
            codes += (codes.empty() ? "" : " ") + finding.at("code").get<std::string>();
        }
        return codes;
    }

    // A run with the image on a unit whose chip reports `version` once it is programmed.
    RunResult Update(const std::string& version) {
        sim::ChipConfig chip;
        chip.installed = "0.9";
        chip.reports = version;
        unit = std::make_unique<virt::VirtualHeadUnit>(chip);
        unit->checks_output = checks_output;
        unit->files.Put("image.bin", {content});
        return unit->Run({"bbpflash", "-s", "image.bin"});
    }

    // Three passes, each of them whole, end in the failure that no label ends.
    void ExpectNeverMatches(const std::string& version) {
        const RunResult result = Update(version);
        EXPECT_EQ(1, result.status);
        EXPECT_NE(std::string::npos,
                  result.out.find("maximum number of programming tries exceeded"));
        EXPECT_EQ(3u, unit->Unit().Chip().Burns());
    }

    TemporaryFolder folder;
    FileContent content;
    std::unique_ptr<virt::VirtualHeadUnit> unit;
    bool checks_output = true;
    int grade = -1;
};

TEST_F(ImageProblem, IsNoneInAnImageThatUpdates) {
    UseImage(sim::MakeLabel("1.2.3"));
    EXPECT_EQ("", Findings());
    EXPECT_EQ(0, grade);
    EXPECT_EQ(0, Update("1.2.3").status);
}

TEST_F(ImageProblem, TooShortForALabel) {
    UseImage("", sim::LABEL_OFFSET);
    EXPECT_EQ("too-short", Findings());
    EXPECT_EQ(2, grade);
    const RunResult result = Update("1.2.3");
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.out.find("reading bin file label"));
    EXPECT_EQ(0u, unit->Unit().Chip().Segments());
}

TEST_F(ImageProblem, LabelCutByTheImagesEnd) {
    UseImage("1.2.3__", sim::LABEL_OFFSET + 10);
    EXPECT_EQ("cut-label control-characters", Findings());
    EXPECT_EQ(1, grade);
    ExpectNeverMatches("1.2.3");
}

TEST_F(ImageProblem, BlankLabel) {
    UseImage(Blanks(37));
    EXPECT_EQ("blank-label", Findings());
    EXPECT_EQ(2, grade);
    EXPECT_EQ(Outcome::OutOfRange, Update("1.2.3").outcome);
    EXPECT_EQ(0u, unit->Unit().Chip().Segments());
}

TEST_F(ImageProblem, LabelOfOneCharacter) {
    UseImage("7" + Blanks(36));
    EXPECT_EQ("one-character-label", Findings());
    EXPECT_EQ(1, grade);
    ExpectNeverMatches("7");
}

TEST_F(ImageProblem, LabelOfTwoCharacters) {
    UseImage("V7" + Blanks(35));
    EXPECT_EQ("two-character-label", Findings());
    EXPECT_EQ(1, grade);
    ExpectNeverMatches("V7");
}

TEST_F(ImageProblem, ControlCharactersInTheLabel) {
    UseImage("1.2.3\n__" + Blanks(29));
    EXPECT_EQ("control-characters", Findings());
    EXPECT_EQ(1, grade);
    ExpectNeverMatches("1.2.3");
}

TEST_F(ImageProblem, LastSegmentExactlyFull) {
    UseImage(sim::MakeLabel("1.2.3"), FULL_SIZE);
    EXPECT_EQ("full-last-segment", Findings());
    EXPECT_EQ(2, grade);
    const RunResult result = Update("1.2.3");
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.out.find("80\n"));
    EXPECT_NE(std::string::npos, result.out.find("ERROR: filling"));
    EXPECT_EQ(461u, unit->Unit().Chip().Segments());
}

TEST_F(ImageProblem, LastSegmentExactlyFullGoesWithThePaddingThatIsAdvised) {
    UseImage(sim::MakeLabel("1.2.3"), FULL_SIZE + 1);
    EXPECT_EQ("", Findings());
    EXPECT_EQ(0, Update("1.2.3").status);
}

TEST_F(ImageProblem, MoreSegmentsThanCanBeNumbered) {
    UseImage(sim::MakeLabel("1.2.3"), 133363724);
    EXPECT_EQ("too-many-segments percentage", Findings());
    EXPECT_EQ(2, grade);
    const RunResult result = Update("1.2.3");
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.out.find("would exceed maximum"));
    EXPECT_EQ(0u, unit->Unit().Chip().Segments());
}

TEST_F(ImageProblem, PercentageBeyondItsExactRange) {
    UseImage(sim::MakeLabel("1.2.3"), 40000000);
    EXPECT_EQ("percentage", Findings());
    EXPECT_EQ(1, grade);
    checks_output = false;
    const RunResult result = Update("1.2.3");
    EXPECT_FALSE(ConformsToContract(result.out, BBPFLASH_MODE_STATUS, result.status));
}

}  // namespace
