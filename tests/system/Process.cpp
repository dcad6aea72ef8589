// SPDX-License-Identifier: Apache-2.0
#include "tests/system/Process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "common/UniqueFd.h"
#include "tests/support/StreamChecker.h"

namespace system_test {

namespace {

constexpr unsigned LONGEST_RUN = 240;  // seconds

common::UniqueFd Open(const std::string& path, int flags) {
    return common::UniqueFd(open(path.c_str(), flags | O_CLOEXEC, 0600));
}

}  // namespace

const common::Variable SANITIZER_OPTIONS = {"ASAN_OPTIONS",
                                            "verify_asan_link_order=0:detect_leaks=0"};

std::string ProgramFolder() {
    return BBP_PROGRAM_FOLDER;
}

// A shell that runs this test in the background has it ignore what is typed at the terminal.
void HearKeyboard() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGQUIT, SIG_DFL);
}

Process::Process(const Words& words, bool as_nobody) : words_(words) {
    HearKeyboard();
    const common::UniqueFd nothing = Open("/dev/null", O_RDONLY);
    const common::UniqueFd out = Open(folder_.Path("out"), O_WRONLY | O_CREAT);
    const common::UniqueFd err = Open(folder_.Path("err"), O_WRONLY | O_CREAT);
    common::Start start;
    if (as_nobody) {
        start.words = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    }
    start.words.insert(start.words.end(), words.begin(), words.end());
    start.variables = {SANITIZER_OPTIONS};
    start.standard_input = nothing.Get();
    start.standard_output = out.Get();
    start.standard_error = err.Get();
    // What is printed of the program's descriptors must not depend on who runs the test.
    start.only_standard_descriptors = true;
    start.seconds_to_live = LONGEST_RUN;
    pid_ = common::Spawn(start);
}

Process::~Process() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

Outcome Process::Wait() {
    Outcome outcome;
    outcome.status = common::WaitForEnd(pid_);
    pid_ = -1;
    outcome.out = folder_.Read("out");
    outcome.err = folder_.Read("err");
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
