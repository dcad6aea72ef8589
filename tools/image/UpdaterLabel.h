// SPDX-License-Identifier: Apache-2.0
// What the updater itself makes of an image's label.
#ifndef BBPFLASH_TOOLS_IMAGE_UPDATERLABEL_H
#define BBPFLASH_TOOLS_IMAGE_UPDATERLABEL_H

#include <string>

namespace tools {

struct LabelReading {
    enum class Result {
        Read,        // `label` holds what the updater compares with the chip's version
        Refused,     // the updater says `message` and gives up
        BreaksDown,  // the updater ends abnormally
    };
    Result result = Result::Refused;
    std::string label;    // may hold any byte
    std::string message;  // the updater's, without its name, level and place
};

// Reads the label of the image `path` with the updater's own function, in a child process: that
// function keeps its file open, speaks to standard output and may throw. Throws common::Failure
// when the child cannot do its work: then nothing is known about the label.
LabelReading ReadLabelAsUpdater(const std::string& path);

}  // namespace tools

#endif
