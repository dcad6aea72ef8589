// SPDX-License-Identifier: Apache-2.0
// The way to start a process.
#ifndef COMMON_SPAWN_H
#define COMMON_SPAWN_H

#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace common {

// Exit statuses as shells have them.
constexpr int STATUS_NOT_EXECUTABLE = 126;
constexpr int STATUS_NOT_FOUND = 127;
constexpr int STATUS_SIGNAL = 128;  // and the signal's number

// A variable of a process's environment.
struct Variable {
    std::string name;
    std::string value;
};

// What is to be started, and how. Beyond this a process inherits what its parent has.
struct Start {
    // The program, found as a shell finds it, and its arguments.
    std::vector<std::string> words;
    // Replace the parent's of the same name. The PATH among them is the one that is searched.
    std::vector<Variable> variables;
    // Descriptors of the caller's that become 0, 1 and 2; -1: those of the caller.
    int standard_input = -1;
    int standard_output = -1;
    int standard_error = -1;
    // Leads a session of its own; with `controlling_terminal`, standard input is its terminal.
    bool new_session = false;
    bool controlling_terminal = false;
    // The program has no descriptors but 0, 1 and 2, whatever the caller inherited.
    bool only_standard_descriptors = false;
    std::vector<int> ignored_signals;
    std::optional<sigset_t> signal_mask;
    // The signal that it gets when the thread that started it ends; 0 for none.
    int parent_death_signal = 0;
    // SIGALRM comes after so many seconds; 0 for never.
    unsigned seconds_to_live = 0;
};

// Starts it and returns its process id when the program runs. Throws Failure when it does not:
// "NAME: reason", with STATUS_NOT_FOUND or STATUS_NOT_EXECUTABLE, or without a status when there
// can be no process. Threads may run meanwhile.
pid_t Spawn(const Start& start);

// Runs `body` in a copy of this process, which ends with its result (125 if it throws), and returns
// the copy's process id. To be called before the first thread is made. Throws Failure.
pid_t Fork(const std::function<int()>& body);

// Waits for a child's end: its exit status, or STATUS_SIGNAL and the signal that ended it. Throws
// Failure if there is no such child.
int WaitForEnd(pid_t child);

// What a status from waitpid says, in the same terms.
int ExitStatus(int wait_status);

}  // namespace common

#endif
