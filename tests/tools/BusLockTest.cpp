// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "common/Failure.h"
#include "common/Spawn.h"
#include "tests/tools/TemporaryFolder.h"
#include "tools/watch/BusLock.h"

namespace {

using tools::BusLock;

class BusLockTest : public testing::Test {
  protected:
    // What somebody is told who wants the lock, too; empty when it is free.
    std::string Refusal() const {
        try {
            const BusLock lock(path_);
            return "";
        } catch (const common::Failure& failure) {
            EXPECT_EQ(tools::STATUS_TAKEN, failure.Status());
            return failure.what();
        }
    }

    TemporaryFolder folder_;
    const std::string path_ = folder_.Path("lock");
};

TEST_F(BusLockTest, IsHeldByOneAtATime) {
    auto lock = std::make_unique<BusLock>(path_);
    EXPECT_NE("", Refusal());
    lock.reset();
    EXPECT_EQ("", Refusal());
}

TEST_F(BusLockTest, LastsAsLongAsAChildThatHasIt) {
    auto lock = std::make_unique<BusLock>(path_);
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    lock.reset();
    EXPECT_NE("", Refusal());
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ("", Refusal());
}

TEST_F(BusLockTest, NamesItsFileAndThoseWhoHoldIt) {
    BusLock lock(path_);
    const std::string self = std::to_string(getpid());
    EXPECT_EQ("another update runs on this bus: " + path_ + " is locked by process " + self,
              Refusal());
    lock.AddHolder(getppid());
    EXPECT_EQ("another update runs on this bus: " + path_ + " is locked by processes " + self +
                  " and " + std::to_string(getppid()),
              Refusal());
}

TEST_F(BusLockTest, NamesNobodyWhoIsGone) {
    const pid_t gone = common::Fork([] { return 0; });
    common::WaitForEnd(gone);
    BusLock lock(path_);
    folder_.Write("lock", std::to_string(gone) + "\n");
    EXPECT_NE(std::string::npos, Refusal().find("a process that left no number there"));
}

TEST_F(BusLockTest, IsOfTheSimulatedUnitInsideOne) {
    const std::string outside = BusLock::DefaultPath();
    std::filesystem::create_directories(folder_.Path("dev"));
    setenv("UMOCKDEV_DIR", folder_.Path("").c_str(), 1);
    EXPECT_EQ(outside, BusLock::DefaultPath()) << "a folder without a bus";
    folder_.Write("dev/i2c1", "");
    EXPECT_EQ(folder_.Path("") + "/bbpwatch.lock", BusLock::DefaultPath());
    unsetenv("UMOCKDEV_DIR");
    EXPECT_EQ(outside, BusLock::DefaultPath());
}

TEST_F(BusLockTest, IsAnErrorWhereNoFileCanBe) {
    EXPECT_THROW(BusLock{folder_.Path("missing/lock")}, common::Failure);
}

TEST_F(BusLockTest, FollowsNoLink) {
    std::filesystem::create_symlink("other", path_);
    EXPECT_THROW(BusLock{path_}, common::Failure);
}

}  // namespace
