// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "tests/tools/TemporaryFolder.h"
#include "tools/image/AtomicFile.h"

namespace {

using tools::AtomicFile;

class AtomicFileTest : public testing::Test {
  protected:
    struct stat Look(const std::string& name) {
        struct stat result = {};
        EXPECT_EQ(0, stat(folder.Path(name).c_str(), &result));
        return result;
    }

    TemporaryFolder folder;
};

TEST_F(AtomicFileTest, ReplacesTheContentAndLeavesNothingBesides) {
    folder.Write("image.bin", "old and longer");
    {
        AtomicFile file(folder.Path("image.bin"));
        file.Write("new");
        EXPECT_EQ("old and longer", folder.Read("image.bin"));
        file.Commit();
    }
    EXPECT_EQ("new", folder.Read("image.bin"));
    EXPECT_EQ(1, folder.Count());
}

TEST_F(AtomicFileTest, LeavesTheFileAsItWasWithoutACommit) {
    folder.Write("image.bin", "old");
    {
        AtomicFile file(folder.Path("image.bin"));
        file.Write("new");
    }
    EXPECT_EQ("old", folder.Read("image.bin"));
    EXPECT_EQ(1, folder.Count());
}

TEST_F(AtomicFileTest, KeepsTheMode) {
    folder.Write("image.bin", "old");
    std::filesystem::permissions(folder.Path("image.bin"), std::filesystem::perms(0640));
    AtomicFile file(folder.Path("image.bin"));
    file.Commit();
    EXPECT_EQ(0640u, Look("image.bin").st_mode & 07777);
}

TEST_F(AtomicFileTest, KeepsTheOwner) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    folder.Write("image.bin", "old");
    ASSERT_EQ(0, chown(folder.Path("image.bin").c_str(), 1234, 5678));
    AtomicFile file(folder.Path("image.bin"));
    file.Commit();
    EXPECT_EQ(1234u, Look("image.bin").st_uid);
    EXPECT_EQ(5678u, Look("image.bin").st_gid);
}

TEST_F(AtomicFileTest, GivesANewFileTheModeThatTheMaskLeaves) {
    const mode_t before = umask(027);
    {
        AtomicFile file(folder.Path("new.bin"));
        file.Commit();
    }
    umask(before);
    EXPECT_EQ(0640u, Look("new.bin").st_mode & 07777);
}

TEST_F(AtomicFileTest, FollowsASymbolicLinkAndKeepsIt) {
    folder.Write("image.bin", "old");
    std::filesystem::create_symlink("image.bin", folder.Path("link.bin"));
    AtomicFile file(folder.Path("link.bin"));
    file.Write("new");
    file.Commit();
    EXPECT_TRUE(std::filesystem::is_symlink(folder.Path("link.bin")));
    EXPECT_EQ("new", folder.Read("image.bin"));
}

TEST_F(AtomicFileTest, RefusesAFolderThatIsNotThere) {
    EXPECT_THROW(AtomicFile(folder.Path("missing/image.bin")), std::system_error);
}

TEST_F(AtomicFileTest, LeavesNothingBehindWhenTheNameIsTakenByAFolder) {
    std::filesystem::create_directory(folder.Path("image.bin"));
    {
        AtomicFile file(folder.Path("image.bin"));
        EXPECT_THROW(file.Commit(), std::system_error);
    }
    EXPECT_EQ(1, folder.Count());
}

}  // namespace
