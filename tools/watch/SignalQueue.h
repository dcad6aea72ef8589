// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_SIGNALQUEUE_H
#define BBPFLASH_TOOLS_WATCH_SIGNALQUEUE_H

#include <optional>

#include "common/UniqueFd.h"

namespace tools {

// Lets signals be waited for: interrupt, quit, terminate, hang-up, the end of a child, another size
// of the terminal. They are blocked from then on; broken pipe and the terminal's job control are
// ignored. The ends of children must not be. There is one for the whole process, for the rest of
// its life.
class SignalQueue {
  public:
    // Throws common::Failure.
    SignalQueue();

    // Readable when a signal has come.
    int Descriptor() const { return descriptor_.Get(); }

    // The next signal that has come, or nothing.
    std::optional<int> Next();

  private:
    common::UniqueFd descriptor_;
};

}  // namespace tools

#endif
