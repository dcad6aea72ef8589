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
    explicit Shield(int segments) : segments_(segments) {}

    // `mode` as far as the updater's lines have told it.
    Ruling Judge(const UpdateProgress& update, bbpflash_mode mode, Milliseconds now) const;

    // The chip has had more time than it ever needs to write its flash.
    static bool IsOverdue(const UpdateProgress& update, Milliseconds now);

  private:
    Ruling JudgeReset(const UpdateProgress& update, Milliseconds now) const;
    Ruling JudgeDownload(const UpdateProgress& update, bbpflash_mode mode, Milliseconds now) const;

    const int segments_;
};

}  // namespace tools

#endif
