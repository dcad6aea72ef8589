// SPDX-License-Identifier: Apache-2.0
// What happens while an update is watched, and who is told.
#ifndef BBPFLASH_TOOLS_WATCH_WATCHEVENT_H
#define BBPFLASH_TOOLS_WATCH_WATCHEVENT_H

#include <optional>
#include <string>
#include <vector>

#include "tools/watch/Ending.h"
#include "tools/watch/UpdateProgress.h"

namespace tools {

struct WatchEvent {
    enum class Kind {
        Start,     // `words`: the command
        Phase,     // a phase or a pass began
        Progress,  // `text`: a line of the updater's protocol, most often a percentage
        Message,   // `text`: a line of the updater's for people; `level` of a message
        Note,      // `text`: what bbpwatch has to say
        Problem,   // `text`: a contradiction to the contract on the updater's output
        Stall,     // `text`: no progress for too long
        Check,     // `text`: what was found; `name` and `is_well`
        End,       // `ending`
    };
    Kind kind = Kind::Note;
    Progress progress;
    std::string text;  // any bytes
    bbpflash_level level = BBPFLASH_LEVEL_NONE;
    bool is_detail = false;  // for logs and programs, not for a person's eyes
    std::vector<std::string> words;
    std::string name;
    std::optional<bool> is_well;  // nothing: it cannot be known
    Ending ending;
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
