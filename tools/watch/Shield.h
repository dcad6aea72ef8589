// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_SHIELD_H
#define BBPFLASH_TOOLS_WATCH_SHIELD_H

#include <string>

#include "tools/stream/bbpflash_stream.h"
#include "tools/watch/UpdateProgress.h"

namespace tools {

// Whether an update may be ended.
struct Ruling {
    enum class What {
        End,    // nothing is lost
        Later,  // in less than a second it may be
        Wait,   // it could leave the chip without firmware
    };
    What what;
    std::string reason;  // of WAIT, for people
};

// Knows when the end of the updater hurts: from the last segments of the download on, when the chip
// begins to write its flash on its own, until it says that it has ended.
class Shield {
  public:
    // `segments` of the download, 0 when nobody knows.
    Shield(bbpflash_mode mode, int segments) : mode_(mode), segments_(segments) {}

    Ruling Judge(const UpdateProgress& update, Milliseconds now) const;

  private:
    bool HasSegmentsToGo(int percent) const;

    const bbpflash_mode mode_;
    const int segments_;
};

}  // namespace tools

#endif
