// SPDX-License-Identifier: Apache-2.0
// The command that runs in the simulated head unit.
#ifndef SIM_HOST_CHILD_H
#define SIM_HOST_CHILD_H

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

#include "common/Spawn.h"

namespace sim {

// The exit status that says that this program itself failed, as other programs that run a command
// have it.
constexpr int STATUS_OWN_FAILURE = 125;

class Child {
  public:
    // Blocks the signals that are to reach the child, in this thread and all that it will start.
    Child();

    // Starts the command, found as a shell finds it, with these variables changed. Throws
    // common::Failure as common::Spawn does.
    void Start(const std::vector<std::string>& command,
               const std::vector<common::Variable>& environment);

    // What SIGTERM is passed as: an interactive shell does not heed it, but a SIGHUP.
    void EndWith(int signal) { end_signal_ = signal; }

    // Waits for the child's end and passes it the signals that this process is sent meanwhile.
    // Returns its exit status, or common::STATUS_SIGNAL and the signal that ended it.
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
