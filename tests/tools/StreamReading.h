// SPDX-License-Identifier: Apache-2.0
// What a reader of the updater's output has seen when the run has ended.
#ifndef BBPFLASH_TESTS_TOOLS_STREAMREADING_H
#define BBPFLASH_TESTS_TOOLS_STREAMREADING_H

#include <string>
#include <vector>

#include "tools/stream/StreamParser.h"

struct SeenEvent {
    bbpflash_event event;
    std::string text;
    std::string message;
};

// A reader that has read `output` and then the end of the run.
class Reading {
  public:
    Reading(bbpflash_mode mode, const std::string& output, int exit_status = 0)
        : parser_(mode, [this](const bbpflash_event& event) {
              const std::string message =
                  event.message == nullptr ? "" : std::string(event.message, event.message_size);
              events.push_back({event, std::string(event.text, event.size), message});
          }) {
        parser_.Feed(output.data(), output.size());
        verdict = parser_.Finish(exit_status);
    }

    std::vector<bbpflash_line> Kinds() const {
        std::vector<bbpflash_line> kinds;
        for (const SeenEvent& event : events) {
            kinds.push_back(event.event.line);
        }
        return kinds;
    }

    std::vector<bbpflash_phase> Phases() const {
        std::vector<bbpflash_phase> phases;
        for (const SeenEvent& event : events) {
            phases.push_back(event.event.phase);
        }
        return phases;
    }

    const bbpflash_event& Last() const { return events.back().event; }
    unsigned Problems() const { return parser_.Problems(); }

    std::vector<SeenEvent> events;
    bbpflash_verdict verdict = BBPFLASH_VERDICT_DOUBTFUL;

  private:
    tools::StreamParser parser_;
};

// The percentages of a download and, behind them, `rest`.
inline std::string Download(const std::string& rest = "") {
    std::string lines;
    for (int percent = 1; percent <= 80; ++percent) {
        lines += std::to_string(percent) + "\n";
    }
    return lines + rest;
}

const char BURN[] = "85\n90\n95\n99\n";
const char END[] = "100\nDONE\n";
const char FAILURE[] =
    "bbpflash ERROR: confirming BIN write @HdChip.cpp:278\n"
    "bbpflash ERROR: Unable to program file @bbpflash.cpp:212\n"
    "bbpflash CRITICAL: Programming terminated @bbpflash.cpp:121\n"
    "ERROR\n";

#endif
