// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_SIGNALPIPE_H
#define BBPFLASH_TOOLS_WATCH_SIGNALPIPE_H

#include <optional>

namespace tools {

// Turns signals into bytes that can be waited for: interrupt, quit, terminate, hang-up, the end of
// a child, another size of the terminal. Broken pipe and the terminal's job control are ignored
// from then on. There is one for the whole process, for the rest of its life.
class SignalPipe {
  public:
    // Throws std::system_error.
    SignalPipe();

    // Readable when a signal has come.
    int Descriptor() const;

    // The next signal that has come, or nothing.
    std::optional<int> Next();
};

}  // namespace tools

#endif
