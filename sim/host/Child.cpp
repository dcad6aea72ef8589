// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Child.h"

#include <sys/wait.h>

#include <cerrno>

#include "common/Failure.h"

namespace sim {

namespace {

const int PASSED_SIGNALS[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2};

}  // namespace

Child::Child() {
    sigemptyset(&watched_);
    sigaddset(&watched_, SIGCHLD);
    for (const int signal : PASSED_SIGNALS) {
        sigaddset(&watched_, signal);
    }
    pthread_sigmask(SIG_BLOCK, &watched_, &before_);
}

void Child::Start(const std::vector<std::string>& command,
                  const std::vector<common::Variable>& environment) {
    common::Start start;
    start.words = command;
    start.variables = environment;
    start.signal_mask = before_;
    // Nothing of the simulated head unit is left when this program goes.
    start.parent_death_signal = SIGHUP;
    pid_ = common::Spawn(start);
}

int Child::Wait() {
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(pid_, &status, WNOHANG);
        if (ended == pid_) {
            return common::ExitStatus(status);
        }
        if (ended < 0) {
            if (errno != EINTR) {
                throw common::ErrnoFailure("waiting for the command", errno);
            }
            // Its end may have been told of already: that is no time to wait for a signal.
            continue;
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
    if (signal.si_signo != SIGTERM) {
        // One hang-up may come as several signals: from the terminal and from the shell.
        kill(pid_, signal.si_signo);
        return;
    }
    // Who asks a second time means it.
    kill(pid_, asked_to_end_ ? SIGKILL : end_signal_);
    asked_to_end_ = true;
}

}  // namespace sim
