// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/Spawn.h"
#include "tools/watch/Standstill.h"

namespace {

using tools::Standstill;

// A group of processes that this test has started, ended with it.
class Group {
  public:
    explicit Group(const std::string& script) {
        common::Start start;
        start.words = {"sh", "-c", script};
        start.new_session = true;
        id_ = common::Spawn(start);
    }
    explicit Group(pid_t id) : id_(id) {}
    ~Group() {
        kill(-id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    pid_t Id() const { return id_; }

    // Of its first process, as in proc(5).
    char State() const {
        std::ifstream file("/proc/" + std::to_string(id_) + "/stat");
        std::string word;
        file >> word >> word >> word;
        return word.empty() ? '?' : word[0];
    }

    // Of all its processes.
    std::string States() const {
        std::string states;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            std::ifstream file(entry.path() / "stat");
            std::string number;
            std::string name;
            std::string state;
            pid_t parent = -1;
            pid_t group = -1;
            file >> number >> name >> state >> parent >> group;
            states += group == id_ ? state : "";
        }
        return states;
    }

    void AwaitState(const std::string& states) const {
        while (states.find(State()) == std::string::npos) {
            usleep(1000);
        }
    }

  private:
    pid_t id_;
};

TEST(Standstill, HoldsTheGroupAsLongAsItLives) {
    const Group group("while :; do :; done");
    {
        const Standstill standstill(group.Id());
        EXPECT_EQ('T', group.State());
    }
    group.AwaitState("RS");
}

TEST(Standstill, HoldsAllThatTheFirstProcessHasStarted) {
    const Group group("for i in 1 2 3 4 5 6 7; do while :; do :; done & done; wait");
    while (group.States().size() != 8) {
        usleep(1000);
    }
    for (int i = 0; i < 20; ++i) {
        const Standstill standstill(group.Id());
        EXPECT_EQ("TTTTTTTT", group.States());
    }
}

TEST(Standstill, NeverWaitsForOneThatCannotStop) {
    // Whatever the shell is just about: it may be starting its child.
    for (int i = 0; i < 200; ++i) {
        const Group group("sleep 1000; echo never");
        const Standstill standstill(group.Id());
    }
}

// The parent is inside vfork, where no signal reaches it until its child runs another program.
TEST(Standstill, TakesAParentThatWaitsInVforkForStill) {
    common::Pipe started = common::MakePipe();
    const int written = started.write_end.Get();
    const Group group(common::Fork([written] {
        setsid();
        if (vfork() == 0) {
            [[maybe_unused]] const ssize_t count = write(written, "x", 1);
            pause();
            _exit(0);
        }
        return 0;
    }));
    char byte = 0;
    ASSERT_EQ(1, read(started.read_end.Get(), &byte, 1));
    group.AwaitState("D");
    const Standstill standstill(group.Id());
    EXPECT_EQ('D', group.State());
}

TEST(Standstill, EndsWithTheProcessThatHolds) {
    const Group group("while :; do :; done");
    const pid_t holder = common::Fork([&group] {
        const Standstill standstill(group.Id());
        pause();
        return 0;
    });
    group.AwaitState("T");
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    group.AwaitState("RS");
}

TEST(Standstill, SaysWhenItMayNot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can start a process for another user";
    }
    const Group group("sleep 1000");
    const pid_t stranger = common::Fork([&group] {
        if (setuid(65534) != 0) {
            return 2;
        }
        try {
            const Standstill standstill(group.Id());
        } catch (const common::Failure& failure) {
            return failure.Error() == EPERM ? 0 : 1;
        }
        return 1;
    });
    EXPECT_EQ(0, common::WaitForEnd(stranger));
}

TEST(Standstill, SaysWhenThereIsNobodyToHold) {
    pid_t gone = common::Fork([] { return 0; });
    common::WaitForEnd(gone);
    EXPECT_THROW(Standstill{gone}, common::Failure);
}

}  // namespace
