// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "common/AtomicFile.h"
#include "common/Failure.h"
#include "tests/tools/TemporaryFolder.h"

namespace {

using common::AtomicFile;

class AtomicFileTest : public testing::Test {
  protected:
    struct stat Look(const std::string& name) {
        struct stat result = {};
        EXPECT_EQ(0, stat(folder_.Path(name).c_str(), &result));
        return result;
    }

    TemporaryFolder folder_;
};

TEST_F(AtomicFileTest, ReplacesTheContentAndLeavesNothingBesides) {
    folder_.Write("image.bin", "old and longer");
    {
        AtomicFile file(folder_.Path("image.bin"));
        file.Write("new");
        EXPECT_EQ("old and longer", folder_.Read("image.bin"));
        file.Commit();
    }
    EXPECT_EQ("new", folder_.Read("image.bin"));
    EXPECT_EQ(1, folder_.Count());
}

TEST_F(AtomicFileTest, LeavesTheFileAsItWasWithoutACommit) {
    folder_.Write("image.bin", "old");
    {
        AtomicFile file(folder_.Path("image.bin"));
        file.Write("new");
    }
    EXPECT_EQ("old", folder_.Read("image.bin"));
    EXPECT_EQ(1, folder_.Count());
}

TEST_F(AtomicFileTest, KeepsTheMode) {
    folder_.Write("image.bin", "old");
    std::filesystem::permissions(folder_.Path("image.bin"), std::filesystem::perms(0640));
    AtomicFile file(folder_.Path("image.bin"));
    file.Commit();
    EXPECT_EQ(0640u, Look("image.bin").st_mode & 07777);
}

TEST_F(AtomicFileTest, KeepsTheOwner) {
    // Only root can give files away; others see that their own files stay theirs.
    const bool root = geteuid() == 0;
    const uid_t user = root ? 1234 : getuid();
    const gid_t group = root ? 5678 : getgid();
    folder_.Write("image.bin", "old");
    ASSERT_EQ(0, chown(folder_.Path("image.bin").c_str(), user, group));
    AtomicFile file(folder_.Path("image.bin"));
    file.Commit();
    EXPECT_EQ(user, Look("image.bin").st_uid);
    EXPECT_EQ(group, Look("image.bin").st_gid);
}

TEST_F(AtomicFileTest, GivesANewFileTheModeThatTheMaskLeaves) {
    const mode_t before = umask(027);
    {
        AtomicFile file(folder_.Path("new.bin"));
        file.Commit();
    }
    umask(before);
    EXPECT_EQ(0640u, Look("new.bin").st_mode & 07777);
}

TEST_F(AtomicFileTest, FollowsASymbolicLinkAndKeepsIt) {
    folder_.Write("image.bin", "old");
    std::filesystem::create_symlink("image.bin", folder_.Path("link.bin"));
    AtomicFile file(folder_.Path("link.bin"));
    file.Write("new");
    file.Commit();
    EXPECT_TRUE(std::filesystem::is_symlink(folder_.Path("link.bin")));
    EXPECT_EQ("new", folder_.Read("image.bin"));
}

TEST_F(AtomicFileTest, MakesTheFileThatALinkLeadsTo) {
    std::filesystem::create_symlink("second", folder_.Path("first"));
    std::filesystem::create_symlink(folder_.Path("new.bin"), folder_.Path("second"));
    AtomicFile file(folder_.Path("first"));
    file.Write("new");
    file.Commit();
    EXPECT_TRUE(std::filesystem::is_symlink(folder_.Path("first")));
    EXPECT_FALSE(std::filesystem::is_symlink(folder_.Path("new.bin")));
    EXPECT_EQ("new", folder_.Read("new.bin"));
}

TEST_F(AtomicFileTest, IsAnErrorWhereLinksGoInACircle) {
    std::filesystem::create_symlink("link", folder_.Path("link"));
    EXPECT_THROW(AtomicFile(folder_.Path("link")), common::Failure);
}

TEST_F(AtomicFileTest, RefusesAFolderThatIsNotThere) {
    EXPECT_THROW(AtomicFile(folder_.Path("missing/image.bin")), common::Failure);
}

TEST_F(AtomicFileTest, StandsInTheWorkingFolderUnlessItsPathSaysOtherwise) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder_.Path(""));
    {
        AtomicFile file("new.bin");
        file.Write("new");
        file.Commit();
    }
    std::filesystem::current_path(before);
    EXPECT_EQ("new", folder_.Read("new.bin"));
    EXPECT_EQ(1, folder_.Count());
}

// What the failed commit of the file `path` says, of which `spoil` has changed the surroundings.
std::string FailureOfCommit(const std::string& path, const std::function<void()>& spoil) {
    AtomicFile file(path);
    spoil();
    try {
        file.Commit();
    } catch (const common::Failure& failure) {
        return failure.what();
    }
    return "none";
}

TEST_F(AtomicFileTest, SaysWhatWentWrongLast) {
    const std::string path = folder_.Path("image.bin");
    EXPECT_EQ("replacing " + path + ": Is a directory",
              FailureOfCommit(path, [&] { std::filesystem::create_directory(path); }));
    EXPECT_EQ(1, folder_.Count()) << "the temporary file is gone";
    std::filesystem::create_directory(folder_.Path("inner"));
    const std::string inner = folder_.Path("inner/image.bin");
    EXPECT_EQ("opening the folder of " + inner + ": No such file or directory",
              FailureOfCommit(inner, [&] { std::filesystem::remove_all(folder_.Path("inner")); }));
    folder_.Write("file", "");
    EXPECT_THROW(common::FollowLinks(folder_.Path("file/x")), common::Failure);
}

TEST_F(AtomicFileTest, NamesWhatItCannotRemove) {
    std::string temporary;
    testing::internal::CaptureStderr();
    common::RunProgram("program", 1, [&] {
        const AtomicFile file(folder_.Path("image.bin"));
        temporary = file.TemporaryPath();
        std::filesystem::remove(temporary);
        std::filesystem::create_directory(temporary);
        return 0;
    });
    EXPECT_EQ("program: " + temporary + " cannot be removed: Is a directory\n",
              testing::internal::GetCapturedStderr());
}

TEST_F(AtomicFileTest, ReplacesNothingButARegularFile) {
    std::filesystem::create_directory(folder_.Path("folder"));
    ASSERT_EQ(0, mkfifo(folder_.Path("pipe").c_str(), 0600));
    std::filesystem::create_symlink("/dev/null", folder_.Path("device"));
    for (const std::string name : {"folder", "pipe", "device"}) {
        EXPECT_THROW(AtomicFile(folder_.Path(name)), common::Failure) << name;
    }
    EXPECT_TRUE(S_ISFIFO(Look("pipe").st_mode));
    EXPECT_TRUE(S_ISCHR(Look("device").st_mode));
    EXPECT_EQ(3, folder_.Count());
}

}  // namespace
