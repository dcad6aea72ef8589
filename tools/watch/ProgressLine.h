// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_PROGRESSLINE_H
#define BBPFLASH_TOOLS_WATCH_PROGRESSLINE_H

#include <string>

#include "tools/watch/UpdateProgress.h"

namespace tools {

// One line for a terminal of `width` columns, without its end and never longer than fits: phase,
// bar, percentage, times, and a warning while the flash is being written. What a narrow terminal
// has no room for is left out, the warning last. Escape sequences only with `has_colour`.
std::string FormatProgress(const Progress& progress, int width, bool has_colour);

// "1:05"; with hours "1:00:05".
std::string FormatTime(Milliseconds time);

}  // namespace tools

#endif
