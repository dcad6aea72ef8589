// SPDX-License-Identifier: Apache-2.0
// What happens while an update is watched, and who is told.
#ifndef BBPFLASH_TOOLS_WATCH_WATCHEVENT_H
#define BBPFLASH_TOOLS_WATCH_WATCHEVENT_H

#include <optional>
#include <string>

#include "tools/watch/UpdateProgress.h"

namespace tools {

struct WatchEvent {
    enum class Kind {
        Start,     // `text`: the command
        Phase,     // a phase or a pass began
        Progress,  // `text`: a line of the updater's protocol, most often a percentage
        Message,   // `text`: a line of the updater's for people; `level` of a message
        Note,      // `text`: what bbpwatch has to say
        Problem,   // `text`: a contradiction to the contract on the updater's output
        Stall,     // `text`: silence for too long
        End,       // `text`: how it ended; `status` and `verdict`
    };
    Kind kind = Kind::Note;
    Progress progress;
    std::string text;  // any bytes
    bbpflash_level level = BBPFLASH_LEVEL_NONE;
    int status = 0;  // bbpwatch's own exit status
    bbpflash_verdict verdict = BBPFLASH_VERDICT_DOUBTFUL;
};

// Somebody who is told what happens.
class Reporter {
  public:
    virtual ~Reporter() = default;

    virtual void Report(const WatchEvent& event) = 0;

    // Time has passed, and nothing else happened.
    virtual void Refresh(const Progress&) {}
};

}  // namespace tools

#endif
