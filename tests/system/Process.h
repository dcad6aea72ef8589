// SPDX-License-Identifier: Apache-2.0
// Runs a built program as a person does, and keeps what it says.
#ifndef TESTS_SYSTEM_PROCESS_H
#define TESTS_SYSTEM_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "common/Spawn.h"
#include "tests/tools/TemporaryFolder.h"

namespace system_test {

using Words = std::vector<std::string>;

// A sanitizer's runtime would not have the device nodes' library before itself, and counts what the
// updater leaves to the process's end.
extern const common::Variable SANITIZER_OPTIONS;

// What this process starts takes the signals of the keyboard, even if this one was told not to.
void HearKeyboard();

// The folder of the built programs.
std::string ProgramFolder();

struct Outcome {
    int status = -1;  // the exit status, or 128 and the signal's number
    std::string out;
    std::string err;
};

// A running program, whose standard input is empty. One that does not end is killed after a while,
// which fails the test by its status.
class Process {
  public:
    // Starts the program at words[0], found in the path. `as_nobody`: without any privilege.
    explicit Process(const Words& words, bool as_nobody = false);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t Id() const { return pid_; }

    // What it has written to standard output so far.
    std::string Output() const { return folder_.Read("out"); }

    // Waits for its end. What an updater that was run directly in the simulated head unit has
    // written must keep to the contract on its output, or the test fails.
    Outcome Wait();

  private:
    void CheckOutput(const Outcome& outcome) const;

    const Words words_;
    TemporaryFolder folder_;
    pid_t pid_ = -1;
};

inline Outcome RunToEnd(const Words& words) {
    return Process(words).Wait();
}

Words operator+(Words first, const Words& then);

}  // namespace system_test

#endif
