// SPDX-License-Identifier: Apache-2.0
#include "sim/host/WorkFolder.h"

#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <random>
#include <system_error>

#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/Spawn.h"
#include "sim/host/NodeFolder.h"

namespace sim {

namespace {

// What the cleaning process is told of the folder; only the first alone makes it remove it.
const char OURS[] = "ours";
const char NOT_OURS[] = ", no";

// The folder that is to be made. Its name is known before it is there, so that it can be removed
// whenever this process is killed; that nobody else has it is seen when it is made.
std::string ChoosePath() {
    const char* const variable = std::getenv("TMPDIR");
    const std::string parent = variable != nullptr && *variable != '\0' ? variable : "/tmp";
    const std::string need = "the devices need a folder for temporary files, and ";
    if (access(parent.c_str(), W_OK | X_OK) != 0) {
        throw common::ErrnoFailure(need + parent + " is none", errno);
    }
    std::string path = parent + "/bbpsim." + std::to_string(std::random_device()());
    // Each node is a socket in the folder, and a socket's path is short.
    const std::string longest = path + RESET_SOCKET;
    if (longest.size() >= sizeof sockaddr_un().sun_path) {
        throw common::Failure(need + "the path " + parent + " is too long");
    }
    return path;
}

// Waits until the other end of the pipe goes, and removes the folder.
int RemoveWhenAlone(int pipe_end, const std::string& folder) {
    // Signals of the terminal and of service managers end the others; this one's end is theirs.
    setsid();
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    // Who reads what this program prints must not wait for this process.
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        close(descriptor);
    }
    std::error_code error;
    if (common::ReadAll(pipe_end, "from the simulator") == OURS) {
        std::filesystem::remove_all(folder, error);
    }
    return error ? 1 : 0;
}

}  // namespace

WorkFolder::WorkFolder() : path_(ChoosePath()) {
    common::Pipe pipe = common::MakePipe();
    pid_ = common::Fork([&] {
        pipe.write_end.Reset();
        return RemoveWhenAlone(pipe.read_end.Get(), path_);
    });
    pipe_ = std::move(pipe.write_end);
    common::WriteAll(pipe_.Get(), OURS, "to the cleaning process");
    if (mkdir(path_.c_str(), 0700) != 0) {
        const int error = errno;
        common::WriteAll(pipe_.Get(), NOT_OURS, "to the cleaning process");
        errno = error;
        throw common::ErrnoFailure("making the folder " + path_, errno);
    }
}

WorkFolder::~WorkFolder() {
    pipe_.Reset();
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    // The other process may have been killed.
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

}  // namespace sim
