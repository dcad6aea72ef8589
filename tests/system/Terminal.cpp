// SPDX-License-Identifier: Apache-2.0
#include "tests/system/Terminal.h"

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace system_test {

namespace {

constexpr int PATIENCE = 60000;    // milliseconds
constexpr int BETWEEN_KEYS = 100;  // milliseconds

int StatusOf(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

Terminal::Terminal(const Words& words) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    pid_ = forkpty(&line_, nullptr, nullptr, nullptr);
    if (pid_ == 0) {
        setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0", 1);
        setenv("TERM", "dumb", 1);
        execvp(arguments[0], arguments.data());
        _exit(EXIT_FAILURE);
    }
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
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return StatusOf(status);
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
    return StatusOf(status);
}

}  // namespace system_test
