// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/Spawn.h"

namespace {

using namespace common;
using testing::HasSubstr;
using testing::Not;

Start Shell(const std::string& script) {
    Start start;
    start.words = {"sh", "-c", script};
    return start;
}

// What the program writes to standard output, until its end.
std::string OutputOf(Start start) {
    Pipe pipe = MakePipe();
    start.standard_output = pipe.write_end.Get();
    const pid_t child = Spawn(start);
    pipe.write_end.Reset();
    const std::string output = ReadAll(pipe.read_end.Get(), "the pipe");
    EXPECT_EQ(WaitForEnd(child), 0);
    return output;
}

Failure FailureOf(const Start& start) {
    try {
        Spawn(start);
    } catch (const Failure& failure) {
        return failure;
    }
    return Failure("none");
}

// A folder in the temporary one that goes with the test.
class Folder {
  public:
    Folder() { EXPECT_NE(mkdtemp(path_.data()), nullptr); }
    ~Folder() { std::filesystem::remove_all(path_); }

    std::string Script(const std::string& name, const std::string& text, mode_t mode) const {
        const std::string path = path_ + "/" + name;
        std::ofstream(path) << text;
        chmod(path.c_str(), mode);
        return path;
    }
    const std::string& Path() const { return path_; }

  private:
    std::string path_ = testing::TempDir() + "spawn.XXXXXX";
};

TEST(Spawn, SearchesTheUsualFoldersAndTheWorkingFolderWhereThePathSaysSo) {
    const std::string before = std::getenv("PATH");
    unsetenv("PATH");
    EXPECT_EQ("x\n", OutputOf(Shell("echo x")));
    setenv("PATH", "/nowhere:", 1);
    const std::filesystem::path folder = std::filesystem::current_path();
    std::filesystem::current_path("/bin");
    EXPECT_EQ("y\n", OutputOf(Shell("echo y")));
    std::filesystem::current_path(folder);
    setenv("PATH", before.c_str(), 1);
}

TEST(Spawn, RunsAProgramFoundInThePath) {
    EXPECT_EQ(OutputOf(Shell("echo \"$0\"; echo here")), "sh\nhere\n");
}

TEST(Spawn, ReportsEndsAsAShellDoes) {
    EXPECT_EQ(WaitForEnd(Spawn(Shell("exit 3"))), 3);
    EXPECT_EQ(WaitForEnd(Spawn(Shell("kill -KILL $$"))), STATUS_SIGNAL + SIGKILL);
}

TEST(Spawn, TellsThatNothingIsFound) {
    Start start;
    start.words = {"no-such-program"};
    const Failure failure = FailureOf(start);
    EXPECT_EQ(failure.Status(), STATUS_NOT_FOUND);
    EXPECT_EQ(failure.Error(), ENOENT);
    EXPECT_STREQ(failure.what(), "no-such-program: No such file or directory");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(Spawn, TellsThatAFileIsNoProgram) {
    const Folder folder;
    Start start;
    start.words = {folder.Script("text", "echo ran", 0600)};
    EXPECT_EQ(FailureOf(start).Status(), STATUS_NOT_EXECUTABLE);
    start.words = {folder.Path()};
    EXPECT_EQ(FailureOf(start).Error(), EACCES);
}

TEST(Spawn, SearchesTheNewPath) {
    const Folder folder;
    folder.Script("common-test", "#!/bin/sh\necho found", 0700);
    Start start;
    start.words = {"common-test"};
    EXPECT_EQ(FailureOf(start).Status(), STATUS_NOT_FOUND);
    start.variables = {{"PATH", "/nowhere:" + folder.Path()}};
    EXPECT_EQ(OutputOf(start), "found\n");
}

TEST(Spawn, RemembersThatAProgramWasNotAllowed) {
    const Folder folder;
    folder.Script("common-test", "#!/bin/sh\necho found", 0600);
    Start start;
    start.words = {"common-test"};
    start.variables = {{"PATH", folder.Path() + ":/nowhere"}};
    EXPECT_EQ(FailureOf(start).Error(), EACCES);
}

TEST(Spawn, RunsAScriptWithoutAnInterpreter) {
    const Folder folder;
    Start start;
    start.words = {folder.Script("plain", "echo \"plain $1\"", 0700), "x"};
    EXPECT_EQ(OutputOf(start), "plain x\n");
}

TEST(Spawn, ChangesVariablesAndKeepsTheOthers) {
    setenv("COMMON_KEPT", "kept", 1);
    setenv("COMMON_CHANGED", "old", 1);
    Start start = Shell("echo $COMMON_KEPT $COMMON_CHANGED $COMMON_NEW; env | grep -c COMMON_");
    start.variables = {{"COMMON_CHANGED", "new"}, {"COMMON_NEW", "set"}};
    EXPECT_EQ(OutputOf(start), "kept new set\n3\n");
}

TEST(Spawn, GivesDescriptorsEvenInEachOthersPlace) {
    Pipe in = MakePipe();
    WriteAll(in.write_end.Get(), "text", "the pipe");
    in.write_end.Reset();
    Start start = Shell("cat; echo to-error >&2");
    start.standard_input = in.read_end.Get();
    Pipe out = MakePipe();
    // Standard error's place is taken by standard output's pipe, and the other way round.
    const UniqueFd kept(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    dup2(out.write_end.Get(), STDERR_FILENO);
    start.standard_output = STDERR_FILENO;
    start.standard_error = STDERR_FILENO;
    const pid_t child = Spawn(start);
    dup2(kept.Get(), STDERR_FILENO);
    out.write_end.Reset();
    EXPECT_EQ(ReadAll(out.read_end.Get(), "the pipe"), "textto-error\n");
    EXPECT_EQ(WaitForEnd(child), 0);
}

TEST(Spawn, LeavesNoDescriptorOfItsOwn) {
    const std::string open_ones = OutputOf(Shell("echo /proc/self/fd/*"));
    Start start = Shell("echo /proc/self/fd/*");
    start.only_standard_descriptors = true;
    const int leaked = fcntl(STDIN_FILENO, F_DUPFD, 200);
    EXPECT_THAT(OutputOf(Shell("echo /proc/self/fd/*")), HasSubstr("/200"));
    EXPECT_THAT(OutputOf(start), Not(HasSubstr("/200")));
    close(leaked);
    EXPECT_EQ(OutputOf(Shell("echo /proc/self/fd/*")), open_ones);
}

TEST(Spawn, LeadsASession) {
    Start start = Shell("test \"$(ps -o sid= -p $$)\" -eq $$");
    start.new_session = true;
    EXPECT_EQ(WaitForEnd(Spawn(start)), 0);
    start.new_session = false;
    EXPECT_EQ(WaitForEnd(Spawn(start)), 1);
}

TEST(Spawn, IgnoresSignals) {
    Start start = Shell("kill -TERM $$; kill -HUP $$; exit 5");
    start.ignored_signals = {SIGTERM, SIGHUP};
    EXPECT_EQ(WaitForEnd(Spawn(start)), 5);
}

TEST(Spawn, SetsTheSignalMask) {
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    Start start = Shell("kill -USR1 $$; exit 5");
    EXPECT_EQ(WaitForEnd(Spawn(start)), STATUS_SIGNAL + SIGUSR1);
    start.signal_mask = usr1;
    EXPECT_EQ(WaitForEnd(Spawn(start)), 5);
}

TEST(Spawn, KeepsTheCallersMask) {
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    Spawn(Shell("exit"));
    wait(nullptr);
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(sigismember(&before, SIGINT), sigismember(&after, SIGINT));
    EXPECT_EQ(sigismember(&after, SIGUSR1), 0);
}

TEST(Spawn, EndsWithItsParent) {
    // The middle process ends; its child holds the pipe until the signal comes.
    Pipe pipe = MakePipe();
    const pid_t middle = Fork([&] {
        Start start = Shell("exec sleep 1000");
        start.standard_output = pipe.write_end.Get();
        start.parent_death_signal = SIGKILL;
        Spawn(start);
        return 0;
    });
    EXPECT_EQ(WaitForEnd(middle), 0);
    pipe.write_end.Reset();
    EXPECT_EQ(ReadAll(pipe.read_end.Get(), "the pipe"), "");
}

TEST(Spawn, EndsWhenItsTimeIsUp) {
    Start start = Shell("exec sleep 1000");
    start.seconds_to_live = 1;
    EXPECT_EQ(WaitForEnd(Spawn(start)), STATUS_SIGNAL + SIGALRM);
}

TEST(Fork, EndsWithTheResult) {
    EXPECT_EQ(WaitForEnd(Fork([] { return 7; })), 7);
    testing::internal::CaptureStderr();
    const auto fork_and_fail = [] {
        return WaitForEnd(Fork([]() -> int { throw Failure("as the test wants"); }));
    };
    EXPECT_EQ(common::RunProgram("program", 1, fork_and_fail), 125);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "program: as the test wants\n");
}

TEST(WaitForEnd, FailsWithoutAChild) {
    EXPECT_THROW(WaitForEnd(getpid()), Failure);
}

}  // namespace
