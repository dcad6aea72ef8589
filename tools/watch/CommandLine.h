// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_COMMANDLINE_H
#define BBPFLASH_TOOLS_WATCH_COMMANDLINE_H

#include <optional>
#include <string>
#include <vector>

#include "tools/image/ImageReport.h"
#include "tools/watch/Watch.h"

namespace tools {

// What bbpwatch was asked for.
struct Options {
    std::string image;                 // to be programmed or checked; empty without one
    std::vector<std::string> command;  // the updater and its arguments; empty without one
    bool as_json = false;
    bool no_check = false;
    bool force = false;
    bool only_checks = false;
    double stall = 180;  // seconds
    std::string log;
    std::string lock;
};

// Returns the exit status where help or the version was all that was asked for. Throws
// common::Failure with STATUS_USAGE.
std::optional<int> ParseCommandLine(int argc, char** argv, Options& options);

// Whether events are asked for in JSON, as far as that can be seen in any command line.
bool WantsJson(int argc, char** argv);

// The command that updates with options.image, or options.command.
std::vector<std::string> UpdatersCommand(const Options& options);

// The updater that bbpwatch starts itself: the one beside it, or else "bbpflash".
std::string OwnUpdater();

// What the watch is to expect of the command, and the image that it programs: empty when it only
// asks or when nobody can tell.
struct Expectation {
    WatchConfig config;
    std::string image;
    bool tells_little = false;  // bbpflash without -s
};
Expectation Expect(const Options& options);

// Adds what an inspection of the image has found.
void Expect(const ImageReport& report, WatchConfig& config);

}  // namespace tools

#endif
