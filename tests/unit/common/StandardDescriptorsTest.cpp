// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "common/Spawn.h"
#include "common/StandardDescriptors.h"

namespace {

// What is seen in a process that starts with these descriptors missing: the number that the next
// file gets.
int NextDescriptorWithout(std::initializer_list<int> missing) {
    return common::WaitForEnd(common::Fork([missing] {
        for (const int descriptor : missing) {
            close(descriptor);
        }
        close_range(STDERR_FILENO + 1, ~0U, 0);
        common::OpenMissingStandardDescriptors();
        return open("/", O_RDONLY | O_CLOEXEC);
    }));
}

TEST(OpenMissingStandardDescriptors, LeavesNoStandardNumberForAFile) {
    EXPECT_EQ(NextDescriptorWithout({0}), 3);
    EXPECT_EQ(NextDescriptorWithout({1}), 3);
    EXPECT_EQ(NextDescriptorWithout({2}), 3);
    EXPECT_EQ(NextDescriptorWithout({0, 1, 2}), 3);
    EXPECT_EQ(NextDescriptorWithout({}), 3);
}

TEST(OpenMissingStandardDescriptors, MakesThemUseless) {
    const pid_t child = common::Fork([] {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        common::OpenMissingStandardDescriptors();
        char byte = 0;
        const bool read_fails = read(STDIN_FILENO, &byte, 1) == -1 && errno == EBADF;
        const bool write_fails = write(STDOUT_FILENO, &byte, 1) == -1 && errno == EBADF;
        return read_fails && write_fails ? 0 : 1;
    });
    EXPECT_EQ(common::WaitForEnd(child), 0);
}

}  // namespace
