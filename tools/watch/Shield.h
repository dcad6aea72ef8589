// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_SHIELD_H
#define BBPFLASH_TOOLS_WATCH_SHIELD_H

#include <string>

#include "tools/stream/bbpflash_stream.h"
#include "tools/watch/UpdateProgress.h"

namespace tools {

// Whether an update may be ended.
struct Ruling {
    enum What {
        END,    // nothing is lost
        LATER,  // in less than a second it may be
        WAIT,   // it could leave the chip without firmware
    };
    What what;
    std::string reason;  // of WAIT, for people
};

// Knows when the end of the updater hurts: from the last segments of the download on, when the chip
// begins to write its flash on its own, until it says that it has ended.
class Shield {
  public:
    // `segments` of the download, 0 when nobody knows.
    Shield(bbpflash_mode the_mode, int the_segments) : mode(the_mode), segments(the_segments) {}

    Ruling Judge(const UpdateProgress& update, Milliseconds now) const;

  private:
    bool HasSegmentsToGo(int percent) const;

    const bbpflash_mode mode;
    const int segments;
};

}  // namespace tools

#endif
