// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_STREAM_UPDATEROPTIONS_H
#define BBPFLASH_TOOLS_STREAM_UPDATEROPTIONS_H

#include <string>
#include <vector>

namespace tools {

// What the updater takes from its command line.
struct UpdaterOptions {
    bool force = false;      // -f
    bool info_only = false;  // -i
    bool status = false;     // -s
    std::string image;       // the last argument, whatever it is; empty without any
};

// Reads a command line of the updater, the program's name first, exactly as it does: up to the
// first word that is no option, and without knowing that -l and -t have an argument.
UpdaterOptions ParseUpdaterOptions(const std::vector<std::string>& arguments);

}  // namespace tools

#endif
