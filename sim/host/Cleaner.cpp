// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Cleaner.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <initializer_list>
#include <system_error>

#include "common/Pipe.h"
#include "common/Spawn.h"

namespace sim {

namespace {

// Reads a folder's name until the other end of the pipe goes, and removes the folder.
int CleanWhenAlone(int pipe_end) {
    // Signals of the terminal and of service managers end the others; this one's end is theirs.
    setsid();
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    // Who reads what this program prints must not wait for this process.
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        close(descriptor);
    }
    const std::string folder = common::ReadAll(pipe_end, "the folder's name");
    std::error_code error;
    if (!folder.empty()) {
        std::filesystem::remove_all(folder, error);
    }
    return error ? 1 : 0;
}

}  // namespace

Cleaner::Cleaner() {
    common::Pipe pipe = common::MakePipe();
    pid_ = common::Fork([&pipe] {
        pipe.write_end.Reset();
        return CleanWhenAlone(pipe.read_end.Get());
    });
    pipe_ = std::move(pipe.write_end);
}

Cleaner::~Cleaner() {
    pipe_.Reset();
    waitpid(pid_, nullptr, 0);
}

void Cleaner::Watch(const std::string& folder) {
    common::WriteAll(pipe_.Get(), folder, "to the cleaning process");
}

}  // namespace sim
