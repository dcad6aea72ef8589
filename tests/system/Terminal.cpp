// SPDX-License-Identifier: Apache-2.0
#include "tests/system/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "common/Failure.h"
#include "common/UniqueFd.h"

namespace system_test {

namespace {

constexpr int PATIENCE = 60000;    // milliseconds
constexpr int BETWEEN_KEYS = 100;  // milliseconds

}  // namespace

Terminal::Terminal(const Words& words) {
    HearKeyboard();
    int terminal = -1;
    if (openpty(&line_, &terminal, nullptr, nullptr, nullptr) != 0) {
        throw common::ErrnoFailure("opening a terminal", errno);
    }
    fcntl(line_, F_SETFD, FD_CLOEXEC);
    const common::UniqueFd owner(terminal);
    fcntl(terminal, F_SETFD, FD_CLOEXEC);
    common::Start start;
    start.words = words;
    start.variables = {SANITIZER_OPTIONS, {"TERM", "dumb"}};
    start.standard_input = start.standard_output = start.standard_error = terminal;
    start.new_session = start.controlling_terminal = true;
    pid_ = common::Spawn(start);
}

Terminal::~Terminal() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    HangUp();
}

void Terminal::HangUp() {
    if (line_ >= 0) {
        close(line_);
        line_ = -1;
    }
}

void Terminal::Type(const std::string& text) {
    (void)!write(line_, text.data(), text.size());
}

bool Terminal::Shows(const std::string& text) {
    for (;;) {
        const std::size_t found = screen_.find(text, seen_);
        if (found != std::string::npos) {
            seen_ = found + text.size();
            return true;
        }
        pollfd waiting = {line_, POLLIN, 0};
        char buffer[256];
        const ssize_t size =
            poll(&waiting, 1, PATIENCE) == 1 ? read(line_, buffer, sizeof buffer) : -1;
        if (size <= 0) {
            return false;
        }
        screen_.append(buffer, static_cast<std::size_t>(size));
    }
}

int Terminal::Wait() {
    // A terminal that nobody reads stops the program.
    while (line_ >= 0 && Shows("\n")) {
    }
    const int status = common::WaitForEnd(pid_);
    pid_ = -1;
    return status;
}

int Terminal::WaitPressing(const std::string& key) {
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
        Type(key);
        // A terminal that nobody reads stops the program.
        pollfd waiting = {line_, POLLIN, 0};
        char buffer[256];
        if (poll(&waiting, 1, BETWEEN_KEYS) == 1) {
            (void)!read(line_, buffer, sizeof buffer);
        }
    }
    pid_ = -1;
    return common::ExitStatus(status);
}

}  // namespace system_test
