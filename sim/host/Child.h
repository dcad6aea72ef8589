// SPDX-License-Identifier: Apache-2.0
// The command that runs in the simulated head unit.
#ifndef SIM_HOST_CHILD_H
#define SIM_HOST_CHILD_H

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

namespace sim {

// Exit statuses of this program's own, as other programs that run a command have them.
constexpr int STATUS_OWN_FAILURE = 125;
constexpr int STATUS_NOT_EXECUTABLE = 126;
constexpr int STATUS_NOT_FOUND = 127;
constexpr int STATUS_SIGNAL = 128;  // and the signal's number

// A variable of a process's environment.
struct Variable {
    std::string name;
    std::string value;
};

class Child {
  public:
    // Blocks the signals that are to reach the child, in this thread and all that it will start.
    Child();

    // Starts the command, found as a shell finds it, with these variables changed. Returns 0, or
    // STATUS_NOT_FOUND or STATUS_NOT_EXECUTABLE with errno set.
    int Start(const std::vector<std::string>& command, const std::vector<Variable>& environment);

    // What SIGTERM is passed as: an interactive shell does not heed it, but a SIGHUP.
    void EndWith(int signal) { end_signal_ = signal; }

    // Waits for the child's end and passes it the signals that this process is sent meanwhile.
    // Returns its exit status, or STATUS_SIGNAL and the signal that ended it.
    int Wait();

  private:
    void Pass(const siginfo_t& signal);

    sigset_t watched_;
    sigset_t before_;
    pid_t pid_ = -1;
    int end_signal_ = SIGTERM;
    bool asked_to_end_ = false;
};

}  // namespace sim

#endif
