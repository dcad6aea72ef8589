// SPDX-License-Identifier: Apache-2.0
#include "common/Spawn.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#ifdef __linux__
#include <sys/prctl.h>
#endif

#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/ProgramFiles.h"

namespace common {

namespace {

constexpr int STATUS_THREW = 125;
const char SHELL[] = "/bin/sh";

// For exec: does not own the texts.
std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Keeps this thread's signals back as long as it lives.
class SignalsHeld {
  public:
    SignalsHeld() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

    const sigset_t& Before() const { return before_; }

  private:
    sigset_t before_;
};

// All that the child needs between fork and exec, where it may not take memory.
struct Plan {
    const Start& start;
    std::vector<std::string> environment;
    std::vector<std::string> files;
    std::vector<std::string> words;  // with the shell before them, for a script without a #! line
    std::vector<char*> arguments;
    std::vector<char*> shell_arguments;
    std::vector<char*> variables;

    explicit Plan(const Start& the_start)
        : start(the_start),
          environment(Environment(start.variables)),
          files(ProgramFiles(start.words.at(0), environment)),
          words{SHELL},
          arguments(Pointers(start.words)),
          variables(Pointers(environment)) {
        words.insert(words.end(), start.words.begin(), start.words.end());
        shell_arguments = Pointers(words);
    }
};

// In the child. Returns false, with errno, when something cannot be done.
bool TakeDescriptors(const Start& start) {
    int given[] = {start.standard_input, start.standard_output, start.standard_error};
    // Out of the way first: a descriptor may be given for the place of another.
    for (int& descriptor : given) {
        if (descriptor >= 0 && (descriptor = fcntl(descriptor, F_DUPFD_CLOEXEC, 3)) < 0) {
            return false;
        }
    }
    for (int place = STDIN_FILENO; place <= STDERR_FILENO; ++place) {
        if (given[place] >= 0 && dup2(given[place], place) < 0) {
            return false;
        }
    }
    return true;
}

// In the child. Standard error is the last of three; the failure pipe is marked to go with exec.
bool MarkOtherDescriptors() {
#ifdef __linux__
    return close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0;
#else
    const long limit = sysconf(_SC_OPEN_MAX);
    for (int descriptor = STDERR_FILENO + 1; descriptor < limit; ++descriptor) {
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
    return true;
#endif
}

// In the child.
bool DieWithParent(int signal, pid_t parent) {
#ifdef __linux__
    return signal == 0 || (prctl(PR_SET_PDEATHSIG, signal) == 0 && getppid() == parent);
#else
    (void)signal;
    (void)parent;
    return true;
#endif
}

// In the child. The caller's handlers are not for its signals.
void ForgetHandlers() {
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action;
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN &&
            action.sa_handler != SIG_DFL) {
            std::signal(number, SIG_DFL);
        }
    }
}

// In the child, with all signals blocked.
bool Prepare(const Start& start, pid_t parent, const sigset_t& mask) {
    ForgetHandlers();
    if (!DieWithParent(start.parent_death_signal, parent) || (start.new_session && setsid() < 0) ||
        !TakeDescriptors(start) ||
        (start.controlling_terminal && ioctl(STDIN_FILENO, TIOCSCTTY, 0) != 0) ||
        (start.only_standard_descriptors && !MarkOtherDescriptors())) {
        return false;
    }
    for (const int signal : start.ignored_signals) {
        if (std::signal(signal, SIG_IGN) == SIG_ERR) {
            return false;
        }
    }
    alarm(start.seconds_to_live);
    return sigprocmask(SIG_SETMASK, &mask, nullptr) == 0;
}

// In the child: the last thing that it does. Returns an errno value.
int Execute(Plan& plan) {
    int worst = ENOENT;
    for (const std::string& file : plan.files) {
        execve(file.c_str(), plan.arguments.data(), plan.variables.data());
        if (errno == ENOEXEC) {
            plan.shell_arguments[1] = const_cast<char*>(file.c_str());
            execve(SHELL, plan.shell_arguments.data(), plan.variables.data());
        }
        if (errno != ENOENT && errno != ENOTDIR) {
            worst = errno;
            if (worst != EACCES) {
                break;
            }
        }
    }
    return worst;
}

// The write end goes with a successful exec; a failed one sends its errno. Throws Failure when this
// cannot be heard.
int ErrorOfExec(int pipe_end) {
    const std::string told = ReadAll(pipe_end, "how a program's start went");
    int error = 0;
    std::memcpy(&error, told.data(), std::min(told.size(), sizeof error));
    return error;
}

void WaitForGone(pid_t child) {
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

pid_t Spawn(const Start& start) {
    Plan plan(start);
    Pipe failure = MakePipe();
    // Not one of the numbers that the program's own descriptors get.
    UniqueFd tell(fcntl(failure.write_end.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    failure.write_end.Reset();
    if (!tell) {
        throw ErrnoFailure("making a pipe", errno);
    }
    const SignalsHeld held;
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        const sigset_t& mask = start.signal_mask ? *start.signal_mask : held.Before();
        const int error = Prepare(start, parent, mask) ? Execute(plan) : errno;
        while (write(tell.Get(), &error, sizeof error) < 0 && errno == EINTR) {
        }
        _exit(STATUS_NOT_EXECUTABLE);
    }
    if (child < 0) {
        throw ErrnoFailure("making a process", errno);
    }
    tell.Reset();
    int error = 0;
    try {
        error = ErrorOfExec(failure.read_end.Get());
    } catch (const Failure&) {
        // Nobody would wait for it.
        kill(child, SIGKILL);
        WaitForGone(child);
        throw;
    }
    if (error != 0) {
        WaitForGone(child);
        const bool missing = error == ENOENT || error == ENOTDIR;
        throw ErrnoFailure(start.words[0], error,
                           missing ? STATUS_NOT_FOUND : STATUS_NOT_EXECUTABLE);
    }
    return child;
}

pid_t Fork(const std::function<int()>& body) {
    // What standard output holds back must not be written twice.
    std::fflush(stdout);
    const pid_t child = fork();
    if (child < 0) {
        throw ErrnoFailure("making a process", errno);
    }
    if (child == 0) {
        int status = STATUS_THREW;
        try {
            status = body();
        } catch (const std::exception& error) {
            Warn(error.what());
        }
        _exit(status);
    }
    return child;
}

int WaitForEnd(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) != child) {
        if (errno != EINTR) {
            throw ErrnoFailure("waiting for a process", errno);
        }
    }
    return ExitStatus(status);
}

int ExitStatus(int wait_status) {
    return WIFSIGNALED(wait_status) ? STATUS_SIGNAL + WTERMSIG(wait_status)
                                    : WEXITSTATUS(wait_status);
}

}  // namespace common
