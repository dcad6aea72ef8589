// SPDX-License-Identifier: Apache-2.0
#include "tests/system/Process.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "tests/support/StreamChecker.h"

namespace system_test {

namespace {

constexpr unsigned LONGEST_RUN = 240;  // seconds
constexpr uid_t NOBODY = 65534;

void Redirect(const std::string& path, int flags, int descriptor) {
    dup2(open(path.c_str(), flags | O_CLOEXEC, 0600), descriptor);
}

}  // namespace

std::string ProgramFolder() {
    return BBP_PROGRAM_FOLDER;
}

Process::Process(const Words& words, bool as_nobody) : words_(words) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const std::string out = folder_.Path("out");
    const std::string err = folder_.Path("err");
    pid_ = fork();
    if (pid_ != 0) {
        return;
    }
    Redirect("/dev/null", O_RDONLY, STDIN_FILENO);
    Redirect(out, O_WRONLY | O_CREAT, STDOUT_FILENO);
    Redirect(err, O_WRONLY | O_CREAT, STDERR_FILENO);
    // A sanitizer's runtime would not have the device nodes' library before itself, and counts what
    // the updater leaves to the process's end.
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0", 1);
    if (as_nobody && (setgroups(0, nullptr) != 0 || setgid(NOBODY) != 0 || setuid(NOBODY) != 0)) {
        _exit(EXIT_FAILURE);
    }
    // What is printed of the program's descriptors must not depend on who runs the test.
    close_range(STDERR_FILENO + 1, ~0U, 0);
    alarm(LONGEST_RUN);
    execvp(arguments[0], arguments.data());
    _exit(EXIT_FAILURE);
}

Process::~Process() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

Outcome Process::Wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    const int code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    const Outcome outcome = {code, folder_.Read("out"), folder_.Read("err")};
    CheckOutput(outcome);
    return outcome;
}

void Process::CheckOutput(const Outcome& outcome) const {
    const auto mark = std::find(words_.begin(), words_.end(), "--");
    if (mark == words_.end() || mark + 1 == words_.end()) {
        return;
    }
    const Words arguments(mark + 1, words_.end());
    const std::string name = std::filesystem::path(arguments[0]).filename();
    if (name == "bbpflash") {
        EXPECT_TRUE(ConformsToContract(outcome.out, ModeOf(arguments), outcome.status));
    }
}

Words operator+(Words first, const Words& then) {
    first.insert(first.end(), then.begin(), then.end());
    return first;
}

}  // namespace system_test
