// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_ENDING_H
#define BBPFLASH_TOOLS_WATCH_ENDING_H

#include <optional>
#include <string>
#include <vector>

#include "tools/watch/Advice.h"
#include "tools/watch/UpdateProgress.h"
#include "tools/watch/UpdateRecord.h"

namespace tools {

// bbpwatch's exit statuses, beyond those that an updater ends with, in the manner of sysexits.h.
constexpr int STATUS_USAGE = 64;
constexpr int STATUS_IMAGE = 65;
constexpr int STATUS_NOT_READY = 69;
constexpr int STATUS_SYSTEM = 71;
constexpr int STATUS_OUTPUT = 74;    // the events could not be written
constexpr int STATUS_DOUBTFUL = 76;  // the updater's own says success and something contradicts it
constexpr int STATUS_REFUSED = 77;   // the chip refuses the image

enum class Verdict {
    Success,      // programmed, verified, and the chip reports the image's version
    Current,      // the chip had that version already; nothing was written
    Answered,     // the chip's version was asked, and told
    Ready,        // a check found nothing that hinders an update
    NotReady,     // a check found something
    Refused,      // the chip refuses the image
    Failure,      // the updater failed, and says so
    Doubtful,     // contradictions, or no end: never a success
    Interrupted,  // ended on request
    NotStarted,   // no updater was started
};

// How it ended, for people and programs. Texts may have any bytes.
struct Ending {
    Verdict verdict = Verdict::Doubtful;
    int status = STATUS_DOUBTFUL;        // bbpwatch's own exit status
    std::optional<int> updaters_status;  // where an updater ran
    Content content = Content::Unknown;
    Milliseconds elapsed{0};
    std::string reason;  // the code of what went wrong; empty when nothing did
    std::string what;    // the first error, in the updater's words
    std::string next;    // what to do now
    Position where;
    int segments = 0;
    std::string from;  // the chip's version before and after, where they are known
    std::string to;
    std::string log;  // the file with all that the updater said; empty without one
};

const char* NameOf(Verdict verdict);

// Whether the unit has what it shall have, or an answer was given.
bool IsGood(Verdict verdict);

// The first line that people read: "1.0.0 -> 2.0.0, verified, 0:47".
std::string Headline(const Ending& ending);

// All that people read: the headline and, unless all is well, what failed, where, what the chip
// holds, what to do and where the log is; at most 12 lines at 60 columns or more. Lines are broken
// to fit `width` columns, 0 for no limit. No control characters.
std::vector<std::string> Lines(const Ending& ending, int width);

}  // namespace tools

#endif
