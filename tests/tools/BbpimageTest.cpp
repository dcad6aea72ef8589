// SPDX-License-Identifier: Apache-2.0
// bbpimage as it is typed: what it refuses, what it leaves alone, what it says.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "common/Spawn.h"
#include "common/UniqueFd.h"
#include "sim/SampleImage.h"
#include "tests/tools/TemporaryFolder.h"
#include "tests/tools/full_size.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class Bbpimage : public testing::Test {
  protected:
    // Runs it with these words; its standard output goes to `out`, and both are kept.
    int Run(std::vector<std::string> words, const std::string& out = "") {
        const std::string out_path = out.empty() ? folder_.Path(".out") : out;
        const auto open_new = [](const std::string& path) {
            return common::UniqueFd(
                open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        };
        const common::UniqueFd out_file = open_new(out_path);
        const common::UniqueFd err_file = open_new(folder_.Path(".err"));
        common::Start start;
        start.words = {BBPIMAGE};
        start.words.insert(start.words.end(), words.begin(), words.end());
        start.standard_output = out_file.Get();
        start.standard_error = err_file.Get();
        const int status = common::WaitForEnd(common::Spawn(start));
        out_ = out.empty() ? folder_.Read(".out") : "";
        err_ = folder_.Read(".err");
        std::filesystem::remove(folder_.Path(".out"));
        std::filesystem::remove(folder_.Path(".err"));
        return status;
    }

    // An image of `size` bytes with these bytes in its label field.
    std::string WriteImage(const std::string& field, std::size_t size = 930000) {
        const std::vector<std::uint8_t> sample = sim::MakeSampleImage("1.0", size);
        std::string image(sample.begin(), sample.end());
        image.replace(sim::LABEL_OFFSET, field.size(), field);
        return folder_.Write("image.bin", image);
    }

    std::string Image() { return WriteImage(sim::MakeLabel("1.0")); }

    TemporaryFolder folder_;
    std::string out_;
    std::string err_;
};

mode_t TypeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
    return status.st_mode & S_IFMT;
}

TEST_F(Bbpimage, MakesAnImageThatInfoFindsClean) {
    ASSERT_EQ(0, Run({"make", "--version", "HD 1.0", folder_.Path("new.bin")})) << err_;
    EXPECT_EQ("", out_ + err_);
    EXPECT_EQ(0, Run({"info", folder_.Path("new.bin")}));
    EXPECT_THAT(out_, AllOf(HasSubstr("\"HD\xE2\x90\xA3"
                                      "1.0\" [6]"),
                            HasSubstr("400 kHz")));
}

TEST_F(Bbpimage, MakeOverwritesNothingUnlessForced) {
    const std::string path = folder_.Write("old.bin", "precious");
    EXPECT_EQ(2, Run({"make", "--version", "1.0", path}));
    EXPECT_EQ("bbpimage: " + path + " is there already; --force replaces it\n", err_);
    EXPECT_EQ("precious", folder_.Read("old.bin"));
    EXPECT_EQ(0, Run({"make", "--version", "1.0", "--force", path}));
    EXPECT_EQ(sim::SAMPLE_IMAGE_SIZE, folder_.Read("old.bin").size());
}

TEST_F(Bbpimage, MakeRefusesSizesOfNoImage) {
    for (const std::string size : {"10", "925666", "-5", "99999999999999", "133363724", "1x", "",
                                   "99999999999999999999999999"}) {
        EXPECT_EQ(64, Run({"make", "--version", "1.0", "--size", size, folder_.Path("new.bin")}));
        EXPECT_THAT(err_, AllOf(StartsWith("bbpimage: "), HasSubstr("--size"))) << size;
        EXPECT_EQ(0, folder_.Count()) << size;
    }
    EXPECT_EQ(0, Run({"make", "--version", "1.0", "--size", "925667", folder_.Path("new.bin")}));
    EXPECT_EQ(925667u, folder_.Read("new.bin").size());
}

TEST_F(Bbpimage, MakeRefusesASizeThatTheUpdaterFailsOn) {
    const std::string size = std::to_string(FULL_SIZE);
    const std::string path = folder_.Path("new.bin");
    EXPECT_EQ(2, Run({"make", "--version", "1.0", "--size", size, path}));
    EXPECT_THAT(err_, HasSubstr("fills its last segment exactly"));
    EXPECT_EQ(0, folder_.Count());
    EXPECT_EQ(0, Run({"make", "--force", "--version", "1.0", "--size", size, path}));
    EXPECT_EQ(2, Run({"info", path}));
}

TEST_F(Bbpimage, WritesToStandardOutput) {
    ASSERT_EQ(0, Run({"make", "--version", "1.0", folder_.Path("new.bin")}));
    ASSERT_EQ(0, Run({"make", "--version", "1.0", "-"}));
    EXPECT_TRUE(folder_.Read("new.bin") == out_);
    ASSERT_EQ(0, Run({"label", folder_.Path("new.bin"), "2.0", "-o", "-"})) << err_;
    EXPECT_EQ(sim::MakeLabel("2.0"), out_.substr(sim::LABEL_OFFSET, sim::LABEL_SIZE));
    EXPECT_EQ(1, folder_.Count());
}

TEST_F(Bbpimage, ReplacesNothingButRegularFiles) {
    const std::string image = Image();
    ASSERT_EQ(0, mkfifo(folder_.Path("pipe").c_str(), 0600));
    std::filesystem::create_symlink("/dev/null", folder_.Path("device"));
    for (const std::string name : {"pipe", "device"}) {
        const std::string path = folder_.Path(name);
        EXPECT_EQ(2, Run({"make", "--force", "--version", "1.0", path}));
        EXPECT_EQ("bbpimage: " + path + " is no regular file: it stays as it is\n", err_);
        EXPECT_EQ(2, Run({"label", "--force", image, "2.0", "-o", path}));
        EXPECT_EQ(2, Run({"label", path, "2.0"}));
        EXPECT_EQ(2, Run({"pad", path}));
        EXPECT_EQ(2, Run({"info", path}));
    }
    EXPECT_EQ(S_IFIFO, TypeOf(folder_.Path("pipe")));
    EXPECT_EQ(S_IFLNK, TypeOf(folder_.Path("device")));
    EXPECT_EQ(S_IFCHR, TypeOf("/dev/null"));
    EXPECT_EQ(3, folder_.Count());
}

TEST_F(Bbpimage, WritesWhatALinkLeadsTo) {
    folder_.Write("target.bin", "old");
    std::filesystem::create_symlink("target.bin", folder_.Path("link.bin"));
    EXPECT_EQ(0, Run({"make", "--force", "--version", "1.0", folder_.Path("link.bin")}));
    EXPECT_EQ(S_IFLNK, TypeOf(folder_.Path("link.bin")));
    EXPECT_EQ(sim::SAMPLE_IMAGE_SIZE, folder_.Read("target.bin").size());
}

TEST_F(Bbpimage, LabelRefusesWhatInfoWouldComplainAbout) {
    const std::string image = Image();
    const std::string before = folder_.Read("image.bin");
    for (const std::string label : {"", "2.0\n", "2\x07", "v\xE9"}) {
        EXPECT_EQ(2, Run({"label", image, label})) << label;
        EXPECT_THAT(err_, AllOf(StartsWith("bbpimage: the label"), HasSubstr("--force")));
        EXPECT_TRUE(before == folder_.Read("image.bin"));
        EXPECT_EQ(0, Run({"label", "--force", image, label})) << err_;
        EXPECT_EQ(1, Run({"info", image})) << out_;
        folder_.Write("image.bin", before);
    }
    for (const std::string& label : {std::string(" 2.0"), std::string(36, '2')}) {
        EXPECT_EQ(2, Run({"label", "--force", image, label}));
        EXPECT_THAT(err_, HasSubstr("no image can carry the label"));
    }
    EXPECT_TRUE(before == folder_.Read("image.bin"));
}

TEST_F(Bbpimage, LabelOverwritesNoOtherFileUnlessForced) {
    const std::string image = Image();
    const std::string other = folder_.Write("other.bin", "precious");
    EXPECT_EQ(2, Run({"label", image, "2.0", "-o", other}));
    EXPECT_EQ("precious", folder_.Read("other.bin"));
    EXPECT_EQ(0, Run({"label", image, "2.0", "-o", other, "--force"}));
    EXPECT_EQ(0, Run({"info", "--expect", "2.0", other}));
}

TEST_F(Bbpimage, TellsByItsStatusWhetherTheLabelIsTheExpectedOne) {
    const std::string image = Image();
    EXPECT_EQ(0, Run({"info", "--expect", "1.0", image}));
    EXPECT_EQ(2, Run({"info", "--expect", "1.1", image}));
    EXPECT_THAT(out_, HasSubstr("the label is not \"1.1\", as expected (unexpected-label)"));
    EXPECT_EQ(2, Run({"info", "--expect", "", image}));
}

TEST_F(Bbpimage, CallsNoImageCleanThatHoldsNothing) {
    for (const char byte : {'\xFF', '\0'}) {
        folder_.Write("image.bin", std::string(1048576, byte));
        EXPECT_EQ(2, Run({"info", folder_.Path("image.bin")}));
        EXPECT_THAT(out_, HasSubstr("it holds no firmware")) << out_;
    }
}

TEST_F(Bbpimage, SeesALabelFieldThatWasNeverWritten) {
    for (const char byte : {'\xFF', '\0'}) {
        EXPECT_EQ(2, Run({"info", WriteImage(std::string(37, byte))}));
        EXPECT_THAT(out_, HasSubstr("(unwritten-label)")) << out_;
    }
}

TEST_F(Bbpimage, SeesAnImageThatIsHalfWritten) {
    const std::string image = Image();
    std::filesystem::resize_file(image, 930000 + 65535);
    EXPECT_EQ(0, Run({"info", image})) << out_;
    std::filesystem::resize_file(image, 930000 + 65537);
    EXPECT_EQ(1, Run({"info", image}));
    EXPECT_THAT(out_, AllOf(HasSubstr("bytes from byte 930000 on are all 0x00"),
                            HasSubstr("(half-written)")));
}

TEST_F(Bbpimage, PadsAnImageThatTheUpdaterWouldFailOn) {
    const std::string image = WriteImage(sim::MakeLabel("1.0"), FULL_SIZE);
    const std::string before = folder_.Read("image.bin");
    EXPECT_EQ(2, Run({"info", image}));
    EXPECT_EQ(0, Run({"pad", image}));
    EXPECT_THAT(err_, HasSubstr("1 byte, 0xFF, was added"));
    EXPECT_TRUE(before + '\xFF' == folder_.Read("image.bin"));
    EXPECT_EQ(0, Run({"info", image})) << out_;
    EXPECT_EQ(0, Run({"pad", image}));
    EXPECT_THAT(err_, HasSubstr("no padding is needed"));
    EXPECT_EQ(before.size() + 1, folder_.Read("image.bin").size());
    EXPECT_EQ(2, Run({"pad", folder_.Write("short.bin", "x")}));
    EXPECT_THAT(err_, StartsWith("bbpimage: " + folder_.Path("short.bin") + " is too short"));
}

TEST_F(Bbpimage, SaysWhenItCannotSayIt) {
    EXPECT_EQ(2, Run({"info", Image()}, "/dev/full"));
    EXPECT_EQ("bbpimage: writing standard output: No space left on device\n", err_);
    EXPECT_EQ(2, Run({"make", "--version", "1.0", "-"}, "/dev/full"));
    EXPECT_THAT(err_, HasSubstr("standard output: No space left on device"));
}

TEST_F(Bbpimage, NamesItselfInEveryUsageError) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{}, {"bogus"}, {"info"}, {"label", "--bogus", "a", "b"}}) {
        EXPECT_EQ(64, Run(words));
        EXPECT_THAT(err_, StartsWith("bbpimage: "));
    }
}

TEST_F(Bbpimage, TellsItsVersion) {
    EXPECT_EQ(0, Run({"--version"}));
    EXPECT_EQ(BBP_VERSION "\n", out_);
}

TEST_F(Bbpimage, HasAPageThatNamesEachLineOfInfo) {
    ASSERT_EQ(0, Run({"info", Image()}));
    std::ifstream file(BBPIMAGE_PAGE);
    const std::string page(std::istreambuf_iterator<char>(file), {});
    std::istringstream lines(out_);
    std::string line;
    std::getline(lines, line);  // the file's name
    int named = 0;
    for (; std::getline(lines, line) && line.find("no problem found") == std::string::npos;
         ++named) {
        const std::string name = line.substr(2, line.find_last_not_of(' ', 11) - 1);
        EXPECT_TRUE(std::regex_search(page, std::regex("\n\\.BR? \"?" + name + "\"?[ \n]")))
            << name;
    }
    EXPECT_EQ(6, named);
}

}  // namespace
