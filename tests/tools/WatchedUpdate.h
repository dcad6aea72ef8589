// SPDX-License-Identifier: Apache-2.0
// An update's progress as its lines come in, at times that the test gives.
#ifndef BBPFLASH_TESTS_TOOLS_WATCHEDUPDATE_H
#define BBPFLASH_TESTS_TOOLS_WATCHEDUPDATE_H

#include <string>

#include "tools/stream/StreamParser.h"
#include "tools/watch/UpdateProgress.h"

constexpr int SEGMENTS = 516;  // of an image of 1 MiB

class WatchedUpdate {
  public:
    explicit WatchedUpdate(tools::Milliseconds download)
        : progress(download), parser_(BBPFLASH_MODE_UNKNOWN, [this](const bbpflash_event& event) {
              progress.Take(event, time_);
          }) {}

    // The lines arrive `now` milliseconds after the start.
    void Hear(int now, const std::string& lines) {
        time_ = tools::Milliseconds(now);
        parser_.Feed(lines.data(), lines.size());
    }

    tools::Progress At(int now) const { return progress.At(tools::Milliseconds(now)); }

    tools::UpdateProgress progress;

  private:
    tools::StreamParser parser_;
    tools::Milliseconds time_{0};
};

#endif
