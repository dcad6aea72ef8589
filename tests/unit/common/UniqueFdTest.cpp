// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/UniqueFd.h"

namespace {

using common::UniqueFd;

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

int Open() {
    return open("/", O_RDONLY | O_CLOEXEC);
}

TEST(UniqueFd, ClosesWhatItHas) {
    const int descriptor = Open();
    {
        const UniqueFd owner(descriptor);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.Get(), descriptor);
        EXPECT_TRUE(IsOpen(descriptor));
    }
    EXPECT_FALSE(IsOpen(descriptor));
}

TEST(UniqueFd, HasNoneAtFirst) {
    EXPECT_FALSE(UniqueFd());
    EXPECT_EQ(UniqueFd().Get(), -1);
}

TEST(UniqueFd, MovesItsDescriptor) {
    const int first = Open();
    const int second = Open();
    UniqueFd owner{first};
    UniqueFd other{second};
    owner = std::move(other);
    EXPECT_FALSE(IsOpen(first));
    EXPECT_EQ(owner.Get(), second);
    const UniqueFd last(std::move(owner));
    EXPECT_EQ(last.Get(), second);
    EXPECT_TRUE(IsOpen(second));
}

TEST(UniqueFd, LetsGo) {
    UniqueFd owner(Open());
    const int descriptor = owner.Release();
    EXPECT_FALSE(owner);
    EXPECT_TRUE(IsOpen(descriptor));
    close(descriptor);
}

TEST(UniqueFd, KeepsErrno) {
    UniqueFd owner(Open());
    errno = EDOM;
    owner.Reset();
    EXPECT_EQ(errno, EDOM);
}

TEST(UniqueFd, TellsAFailedClose) {
    UniqueFd owner(Open());
    EXPECT_TRUE(owner.Close());
    EXPECT_FALSE(owner);
    owner.Reset(Open());
    close(owner.Get());
    EXPECT_FALSE(owner.Close());
    EXPECT_EQ(errno, EBADF);
}

TEST(Pipe, CarriesEverything) {
    common::Pipe pipe = common::MakePipe();
    common::WriteAll(pipe.write_end.Get(), std::string(5000, 'x'), "a pipe");
    pipe.write_end.Reset();
    EXPECT_EQ(common::ReadAll(pipe.read_end.Get(), "a pipe"), std::string(5000, 'x'));
    EXPECT_EQ(fcntl(pipe.read_end.Get(), F_GETFD), FD_CLOEXEC);
}

TEST(Pipe, ReportsWhatCannotBeDone) {
    EXPECT_THROW(common::WriteAll(-1, "x", "a pipe"), common::Failure);
    EXPECT_THROW(common::ReadAll(-1, "a pipe"), common::Failure);
}

}  // namespace
