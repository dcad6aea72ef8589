// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_OUTPUTQUEUE_H
#define BBPFLASH_TOOLS_WATCH_OUTPUTQUEUE_H

#include <string>

#include "tools/watch/UpdateProgress.h"

namespace tools {

// Writes to a descriptor that may be slow, stopped or gone, and never waits for it: what it does
// not take is kept, up to a bound, and what a dead one does not take is dropped.
class OutputQueue {
  public:
    explicit OutputQueue(int descriptor) : descriptor_(descriptor) {}

    void Put(const std::string& text);

    // Writes what can be written at once.
    void Flush();

    // Waits until everything is written, at most this long.
    void Drain(Milliseconds limit);

    // Whether something is left to be written.
    bool IsPending() const { return !pending_.empty(); }

    int Descriptor() const { return descriptor_; }

    // Why text was lost: an errno value, 0 when none was.
    int Error() const { return error_; }

  private:
    bool WriteSome(int timeout);

    const int descriptor_;
    std::string pending_;
    int error_ = 0;
};

}  // namespace tools

#endif
