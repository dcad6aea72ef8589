// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>

#include "common/Failure.h"
#include "tools/watch/UpdaterProcess.h"

namespace {

using tools::UpdaterProcess;

// What comes from the descriptor until its other end is closed.
std::string ReadToEnd(int descriptor) {
    std::string text;
    char bytes[256];
    for (;;) {
        pollfd entry = {descriptor, POLLIN, 0};
        poll(&entry, 1, -1);
        const ssize_t count = read(descriptor, bytes, sizeof bytes);
        if (count == 0) {
            return text;
        }
        if (count > 0) {
            text.append(bytes, static_cast<std::size_t>(count));
        }
    }
}

int StatusOf(UpdaterProcess& process) {
    while (!process.Status()) {
        usleep(1000);
    }
    return *process.Status();
}

TEST(UpdaterProcess, HasItsOutputsApartAndItsStatus) {
    UpdaterProcess process({"sh", "-c", "echo out; echo err >&2; exit 7"});
    EXPECT_EQ("out\n", ReadToEnd(process.Output()));
    EXPECT_EQ("err\n", ReadToEnd(process.ErrorOutput()));
    EXPECT_EQ(7, StatusOf(process));
}

TEST(UpdaterProcess, IsDeafToEverySignalThatCutsUpdatesOff) {
    UpdaterProcess process(
        {"sh", "-c", "for s in HUP INT QUIT TERM PIPE; do kill -$s $$; done; echo alive"});
    EXPECT_EQ("alive\n", ReadToEnd(process.Output()));
    EXPECT_EQ(0, StatusOf(process));
}

TEST(UpdaterProcess, IsInASessionOfItsOwn) {
    UpdaterProcess process({"sh", "-c", "test $(cut -d' ' -f6 /proc/$$/stat) = $$"});
    EXPECT_EQ(0, StatusOf(process));
}

TEST(UpdaterProcess, HasNothingToRead) {
    UpdaterProcess process({"cat"});
    EXPECT_EQ("", ReadToEnd(process.Output()));
    EXPECT_EQ(0, StatusOf(process));
}

TEST(UpdaterProcess, TellsTheSignalThatEndedIt) {
    UpdaterProcess process({"sh", "-c", "kill -ABRT $$"});
    EXPECT_EQ(128 + SIGABRT, StatusOf(process));
}

TEST(UpdaterProcess, IsEndedWithAllThatItHasStarted) {
    UpdaterProcess process({"sh", "-c", "echo started; sleep 1000; echo never"});
    process.Kill();
    EXPECT_EQ(128 + SIGKILL, StatusOf(process));
    // The end of the pipe: no process has it any more.
    EXPECT_EQ(std::string::npos, ReadToEnd(process.Output()).find("never"));
}

TEST(UpdaterProcess, SaysWhyItCannotBeStarted) {
    try {
        UpdaterProcess process({"no-such-program"});
        FAIL() << "it was started";
    } catch (const common::Failure& failure) {
        EXPECT_EQ(ENOENT, failure.Error());
        EXPECT_EQ(127, failure.Status());
    }
}

}  // namespace
