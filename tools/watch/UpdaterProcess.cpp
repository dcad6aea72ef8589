// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/UpdaterProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace tools {

namespace {

struct Pipe {
    int read_end = -1;
    int write_end = -1;

    Pipe() {
        std::array<int, 2> ends;
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "making a pipe");
        }
        read_end = ends[0];
        write_end = ends[1];
    }
};

// Never returns; what goes wrong is told as an errno value on the pipe.
[[noreturn]] void BecomeUpdater(char** words, const Pipe& output, const Pipe& error_output,
                                int failure_pipe) {
    setsid();
    // A signal that is ignored stays so in the new program.
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
        std::signal(number, SIG_IGN);
    }
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output.write_end, STDOUT_FILENO);
    dup2(error_output.write_end, STDERR_FILENO);
    execvp(words[0], words);
    const int error = errno;
    const ssize_t told = write(failure_pipe, &error, sizeof error);
    _exit(told == sizeof error ? 126 : 127);
}

}  // namespace

UpdaterProcess::UpdaterProcess(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);

    const Pipe out;
    const Pipe err;
    const Pipe failure;
    id_ = fork();
    if (id_ == 0) {
        BecomeUpdater(arguments.data(), out, err, failure.write_end);
    }
    const int fork_error = errno;
    close(out.write_end);
    close(err.write_end);
    close(failure.write_end);
    output_ = out.read_end;
    error_output_ = err.read_end;
    int error = 0;
    if (id_ == -1) {
        error = fork_error;
    } else if (read(failure.read_end, &error, sizeof error) == sizeof error) {
        waitpid(id_, nullptr, 0);
    }
    close(failure.read_end);
    if (error != 0) {
        close(output_);
        close(error_output_);
        throw std::system_error(error, std::generic_category(), "starting " + words[0]);
    }
    fcntl(output_, F_SETFL, O_NONBLOCK);
    fcntl(error_output_, F_SETFL, O_NONBLOCK);
}

UpdaterProcess::~UpdaterProcess() {
    close(output_);
    close(error_output_);
}

void UpdaterProcess::Look(int flags) {
    int state = 0;
    pid_t result;
    do {
        result = waitpid(id_, &state, flags);
    } while (result == -1 && errno == EINTR);
    if (result != id_) {
        return;
    }
    if (WIFSTOPPED(state)) {
        is_stopped_ = true;
    } else if (WIFEXITED(state)) {
        status_ = WEXITSTATUS(state);
    } else if (WIFSIGNALED(state)) {
        status_ = 128 + WTERMSIG(state);
    }
}

void UpdaterProcess::Stop() {
    kill(-id_, SIGSTOP);
    while (!is_stopped_ && !status_) {
        Look(WUNTRACED);
    }
}

void UpdaterProcess::Continue() {
    is_stopped_ = false;
    kill(-id_, SIGCONT);
}

void UpdaterProcess::Kill() {
    kill(-id_, SIGKILL);
    while (!status_) {
        Look(0);
    }
}

std::optional<int> UpdaterProcess::Status() {
    if (!status_) {
        Look(WNOHANG);
    }
    return status_;
}

}  // namespace tools
