// SPDX-License-Identifier: Apache-2.0
// A program at a terminal, and the person who types there.
#ifndef TESTS_SYSTEM_TERMINAL_H
#define TESTS_SYSTEM_TERMINAL_H

#include <sys/types.h>

#include <string>

#include "tests/system/Process.h"

namespace system_test {

class Terminal {
  public:
    explicit Terminal(const Words& words);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    pid_t Id() const { return pid_; }

    void Type(const std::string& text);

    // Reads the screen until the text stands on it that was not there before. False if the program
    // ends, or nothing comes for a long time, without it.
    bool Shows(const std::string& text);

    // Takes the terminal away.
    void HangUp();

    // Waits for the program's end; returns as Outcome::status.
    int Wait();

    // As Wait, with the key pressed now and then until the program ends.
    int WaitPressing(const std::string& key);

    const std::string& Screen() const { return screen_; }

  private:
    int line_ = -1;
    pid_t pid_ = -1;
    std::string screen_;
    std::size_t seen_ = 0;
};

}  // namespace system_test

#endif
