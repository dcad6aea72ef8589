// SPDX-License-Identifier: Apache-2.0
// What the updater itself makes of an image's label.
#ifndef BBPFLASH_TOOLS_IMAGE_UPDATERLABEL_H
#define BBPFLASH_TOOLS_IMAGE_UPDATERLABEL_H

#include <string>
#include <vector>

namespace tools {

struct LabelReading {
    enum Result {
        READ,         // `label` holds what the updater compares with the chip's version
        REFUSED,      // the updater reports `messages` and gives up
        BREAKS_DOWN,  // the updater ends abnormally
    };
    Result result = REFUSED;
    std::string label;                  // may hold any byte
    std::vector<std::string> messages;  // the updater's, without its name and level
};

// Reads the label of the image `path` with the updater's own function, in a child process: that
// function keeps its file open, speaks to standard output and may throw. Throws std::system_error
// when the child cannot be made.
LabelReading ReadLabelAsUpdater(const std::string& path);

}  // namespace tools

#endif
