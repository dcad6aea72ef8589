// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_WATCHLOOP_H
#define BBPFLASH_TOOLS_WATCH_WATCHLOOP_H

#include <chrono>

#include "tools/watch/OutputQueue.h"
#include "tools/watch/SignalQueue.h"
#include "tools/watch/UpdaterProcess.h"
#include "tools/watch/Watch.h"

namespace tools {

// Waits for what happens and tells the watch: bytes, signals, time, the end.
class WatchLoop {
  public:
    // `output` is where reporters write; all of them stay the caller's.
    WatchLoop(Watch& watch, SignalQueue& signals, OutputQueue& output)
        : watch_(watch), signals_(signals), output_(output) {}

    // Each returns bbpwatch's exit status: of an updater that is watched until it ends, or of
    // lines that were read until `descriptor` had no more.
    int Run(UpdaterProcess& updater);
    int Read(int descriptor);

  private:
    Milliseconds Now() const;
    void Wait(int first, int second);
    void TakeSignals();
    void Drain(UpdaterProcess& updater);
    bool TakeOutput(int descriptor, bool is_error_output);
    bool TryToEnd(UpdaterProcess& updater);
    void Tick();

    Watch& watch_;
    SignalQueue& signals_;
    OutputQueue& output_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    Milliseconds next_tick_{0};
    bool has_output_ = true;  // the updater's streams are open
    bool has_error_output_ = true;
    int request_ = 0;  // the signal that asks for the end
};

}  // namespace tools

#endif
