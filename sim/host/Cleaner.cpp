// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Cleaner.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

namespace sim {

namespace {

// Reads a folder's name until the other end of the pipe goes, and removes the folder.
[[noreturn]] void CleanWhenAlone(int pipe_end) {
    // Signals of the terminal and of service managers end the others; this one's end is theirs.
    setsid();
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    // Who reads what this program prints must not wait for this process.
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        close(descriptor);
    }
    std::string folder;
    char buffer[256];
    ssize_t size = 0;
    while ((size = read(pipe_end, buffer, sizeof buffer)) > 0) {
        folder.append(buffer, static_cast<std::size_t>(size));
    }
    if (!folder.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    _exit(0);
}

}  // namespace

Cleaner::Cleaner() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    pid_ = fork();
    if (pid_ < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (pid_ == 0) {
        close(ends[1]);
        CleanWhenAlone(ends[0]);
    }
    close(ends[0]);
    pipe_ = ends[1];
}

Cleaner::~Cleaner() {
    close(pipe_);
    waitpid(pid_, nullptr, 0);
}

void Cleaner::Watch(const std::string& folder) {
    (void)!write(pipe_, folder.data(), folder.size());
}

}  // namespace sim
