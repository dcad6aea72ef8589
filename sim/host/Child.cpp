// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace sim {

namespace {

const int PASSED_SIGNALS[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2};

// The write end goes with a successful exec; a failed one sends its errno.
int FailureOfExec(int pipe_end) {
    int failure = 0;
    const ssize_t size = read(pipe_end, &failure, sizeof failure);
    return size == static_cast<ssize_t>(sizeof failure) ? failure : 0;
}

int ExitStatus(int wait_status) {
    return WIFSIGNALED(wait_status) ? STATUS_SIGNAL + WTERMSIG(wait_status)
                                    : WEXITSTATUS(wait_status);
}

}  // namespace

Child::Child() {
    sigemptyset(&watched_);
    sigaddset(&watched_, SIGCHLD);
    for (const int signal : PASSED_SIGNALS) {
        sigaddset(&watched_, signal);
    }
    pthread_sigmask(SIG_BLOCK, &watched_, &before_);
}

int Child::Start(const std::vector<std::string>& command,
                 const std::vector<Variable>& environment) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return STATUS_OWN_FAILURE;
    }
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        // Nothing of the simulated head unit is left when this program goes.
        prctl(PR_SET_PDEATHSIG, SIGHUP);
        if (getppid() != parent) {
            _exit(STATUS_OWN_FAILURE);
        }
        for (const Variable& variable : environment) {
            setenv(variable.name.c_str(), variable.value.c_str(), 1);
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        execvp(arguments[0], arguments.data());
        const int failure = errno;
        (void)!write(ends[1], &failure, sizeof failure);
        _exit(STATUS_NOT_EXECUTABLE);
    }
    close(ends[1]);
    if (pid_ < 0) {
        close(ends[0]);
        return STATUS_OWN_FAILURE;
    }
    const int failure = FailureOfExec(ends[0]);
    close(ends[0]);
    if (failure == 0) {
        return 0;
    }
    waitpid(pid_, nullptr, 0);
    errno = failure;
    return failure == ENOENT || failure == ENOTDIR ? STATUS_NOT_FOUND : STATUS_NOT_EXECUTABLE;
}

int Child::Wait() {
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(pid_, &status, WNOHANG);
        if (ended == pid_ && (WIFEXITED(status) || WIFSIGNALED(status))) {
            return ExitStatus(status);
        }
        siginfo_t signal;
        if (sigwaitinfo(&watched_, &signal) > 0 && signal.si_signo != SIGCHLD) {
            Pass(signal);
        }
    }
}

void Child::Pass(const siginfo_t& signal) {
    // What is typed at the terminal reaches the child as well; that the terminal has gone, only the
    // first program that it had.
    const bool typed = signal.si_signo == SIGINT || signal.si_signo == SIGQUIT;
    if (typed && signal.si_code == SI_KERNEL) {
        return;
    }
    const bool ends = signal.si_signo == SIGTERM || signal.si_signo == SIGHUP;
    const int passed = signal.si_signo == SIGTERM ? end_signal_ : signal.si_signo;
    // Who asks a second time means it.
    kill(pid_, ends && asked_to_end_ ? SIGKILL : passed);
    asked_to_end_ = asked_to_end_ || ends;
}

}  // namespace sim
