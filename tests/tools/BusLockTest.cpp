// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <system_error>

#include "tests/tools/TemporaryFolder.h"
#include "tools/watch/BusLock.h"

namespace {

using tools::BusIsTaken;
using tools::BusLock;

class BusLockTest : public testing::Test {
  protected:
    TemporaryFolder folder;
    const std::string path = folder.Path("lock");
};

TEST_F(BusLockTest, IsHeldByOneAtATime) {
    auto lock = std::make_unique<BusLock>(path);
    EXPECT_THROW(BusLock{path}, BusIsTaken);
    lock.reset();
    EXPECT_NO_THROW(BusLock{path});
}

TEST_F(BusLockTest, LastsAsLongAsAChildThatHasIt) {
    auto lock = std::make_unique<BusLock>(path);
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    lock.reset();
    EXPECT_THROW(BusLock{path}, BusIsTaken);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_NO_THROW(BusLock{path});
}

TEST_F(BusLockTest, IsAnErrorWhereNoFileCanBe) {
    EXPECT_THROW(BusLock{folder.Path("missing/lock")}, std::system_error);
}

TEST_F(BusLockTest, FollowsNoLink) {
    std::filesystem::create_symlink("other", path);
    EXPECT_THROW(BusLock{path}, std::system_error);
}

}  // namespace
