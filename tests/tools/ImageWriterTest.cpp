// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <stdexcept>

#include "sim/SampleImage.h"
#include "tests/tools/TemporaryFolder.h"
#include "tools/image/ImageInspector.h"
#include "tools/image/ImageWriter.h"

namespace {

class ImageWriter : public testing::Test {
  protected:
    TemporaryFolder folder;
};

TEST_F(ImageWriter, ChangesNothingButTheLabelField) {
    const std::string path = folder.Path("image.bin");
    tools::WriteSample("1.0", 930000, path);
    std::string expected = folder.Read("image.bin");
    expected.replace(sim::LABEL_OFFSET, sim::LABEL_SIZE, sim::MakeLabel("2.0 beta"));

    tools::WriteLabelled(path, "2.0 beta", path);

    EXPECT_EQ(expected, folder.Read("image.bin"));
    EXPECT_EQ("2.0 beta", tools::InspectImage(path).label);
}

TEST_F(ImageWriter, LeavesTheSourceAloneWhenItWritesANewImage) {
    tools::WriteSample("1.0", 930000, folder.Path("old.bin"));
    tools::WriteLabelled(folder.Path("old.bin"), "2.0", folder.Path("new.bin"));
    EXPECT_EQ("1.0", tools::InspectImage(folder.Path("old.bin")).label);
    EXPECT_EQ("2.0", tools::InspectImage(folder.Path("new.bin")).label);
}

TEST_F(ImageWriter, RefusesALabelThatCannotBeRepresentedAndWritesNothing) {
    const std::string path = folder.Path("image.bin");
    tools::WriteSample("1.0", 930000, path);
    const std::string before = folder.Read("image.bin");
    EXPECT_THROW(tools::WriteLabelled(path, " 2.0", path), std::runtime_error);
    EXPECT_THROW(tools::WriteLabelled(path, std::string(36, '2'), path), std::runtime_error);
    EXPECT_THROW(tools::WriteSample(" 2.0", 930000, path), std::runtime_error);
    EXPECT_EQ(before, folder.Read("image.bin"));
}

TEST_F(ImageWriter, RefusesToLabelAnImageThatEndsInsideTheField) {
    const std::string path = folder.Path("image.bin");
    tools::WriteSample("1.0", 925666, path);
    EXPECT_THROW(tools::WriteLabelled(path, "2.0", path), std::runtime_error);
    EXPECT_EQ(1, folder.Count());
}

TEST_F(ImageWriter, RefusesAnImageThatIsNotThere) {
    EXPECT_THROW(tools::WriteLabelled(folder.Path("no.bin"), "2.0", folder.Path("new.bin")),
                 std::runtime_error);
    EXPECT_EQ(0, folder.Count());
}

TEST_F(ImageWriter, MakesAnImageThatIsTooShortForALabelOnRequest) {
    tools::WriteSample("1.0", 5000, folder.Path("image.bin"));
    EXPECT_EQ(5000u, folder.Read("image.bin").size());
}

}  // namespace
