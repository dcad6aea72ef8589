// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "common/Failure.h"
#include "sim/SampleImage.h"
#include "tests/tools/TemporaryFolder.h"
#include "tools/image/ImageInspector.h"
#include "tools/image/ImageWriter.h"

namespace {

class ImageWriter : public testing::Test {
  protected:
    TemporaryFolder folder_;
};

TEST_F(ImageWriter, ChangesNothingButTheLabelField) {
    const std::string path = folder_.Path("image.bin");
    tools::WriteSample("1.0", 930000, {path}, false);
    std::string expected = folder_.Read("image.bin");
    expected.replace(sim::LABEL_OFFSET, sim::LABEL_SIZE, sim::MakeLabel("2.0 beta"));

    tools::WriteLabelled(path, "2.0 beta", {path}, false);

    EXPECT_EQ(expected, folder_.Read("image.bin"));
    EXPECT_EQ("2.0 beta", tools::InspectImage(path).label);
}

TEST_F(ImageWriter, LeavesTheSourceAloneWhenItWritesANewImage) {
    tools::WriteSample("1.0", 930000, {folder_.Path("old.bin")}, false);
    tools::WriteLabelled(folder_.Path("old.bin"), "2.0", {folder_.Path("new.bin")}, false);
    EXPECT_EQ("1.0", tools::InspectImage(folder_.Path("old.bin")).label);
    EXPECT_EQ("2.0", tools::InspectImage(folder_.Path("new.bin")).label);
}

TEST_F(ImageWriter, RefusesALabelThatCannotBeRepresentedAndWritesNothing) {
    const std::string path = folder_.Path("image.bin");
    tools::WriteSample("1.0", 930000, {path}, false);
    const std::string before = folder_.Read("image.bin");
    EXPECT_THROW(tools::WriteLabelled(path, " 2.0", {path}, false), common::Failure);
    EXPECT_THROW(tools::WriteLabelled(path, std::string(36, '2'), {path}, false), common::Failure);
    EXPECT_THROW(tools::WriteSample(" 2.0", 930000, {path}, false), common::Failure);
    EXPECT_EQ(before, folder_.Read("image.bin"));
}

TEST_F(ImageWriter, RefusesToLabelAnImageThatEndsInsideTheField) {
    const std::string path = folder_.Path("image.bin");
    EXPECT_THROW(tools::WriteSample("1.0", 925666, {path}, true), common::Failure);
    folder_.Write("image.bin", std::string(925666, 'x'));
    EXPECT_THROW(tools::WriteLabelled(path, "2.0", {path}, false), common::Failure);
    EXPECT_EQ(1, folder_.Count());
}

TEST_F(ImageWriter, RefusesAnImageThatIsNotThere) {
    EXPECT_THROW(
        tools::WriteLabelled(folder_.Path("no.bin"), "2.0", {folder_.Path("new.bin")}, false),
        common::Failure);
    EXPECT_EQ(0, folder_.Count());
}

}  // namespace
