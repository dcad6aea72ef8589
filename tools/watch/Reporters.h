// SPDX-License-Identifier: Apache-2.0
// Those who tell people and programs what happens. They only make text.
#ifndef BBPFLASH_TOOLS_WATCH_REPORTERS_H
#define BBPFLASH_TOOLS_WATCH_REPORTERS_H

#include <functional>
#include <string>

#include "tools/watch/WatchEvent.h"

namespace tools {

// Where a reporter's text goes.
using TextSink = std::function<void(const std::string&)>;

// One line that stays at the terminal's bottom and moves, everything else above it.
class TerminalReporter : public Reporter {
  public:
    // `width` tells the terminal's columns each time it is asked.
    TerminalReporter(TextSink the_sink, std::function<int()> the_width, bool colour)
        : sink(std::move(the_sink)), width(std::move(the_width)), has_colour(colour) {}

    void Report(const WatchEvent& event) override;
    void Refresh(const Progress& progress) override;

  private:
    void Draw(const std::string& text, int columns);
    void PrintAbove(const std::string& line, const Progress& progress);

    const TextSink sink;
    const std::function<int()> width;
    const bool has_colour;
    int last_width = 0;
};

// Plain lines without any control character, for files and pipes: phases, every tenth per cent,
// messages.
class PlainReporter : public Reporter {
  public:
    explicit PlainReporter(TextSink the_sink) : sink(std::move(the_sink)) {}

    void Report(const WatchEvent& event) override;

  private:
    const TextSink sink;
    int last_tenth = 0;
};

// One JSON object a line for each event.
class JsonReporter : public Reporter {
  public:
    explicit JsonReporter(TextSink the_sink) : sink(std::move(the_sink)) {}

    void Report(const WatchEvent& event) override;

  private:
    const TextSink sink;
};

// Everything that the updater printed and what became of it, each line with the time of day.
class LogReporter : public Reporter {
  public:
    // `clock` gives the time of day as text.
    LogReporter(TextSink the_sink, std::function<std::string()> the_clock)
        : sink(std::move(the_sink)), clock(std::move(the_clock)) {}

    void Report(const WatchEvent& event) override;

  private:
    const TextSink sink;
    const std::function<std::string()> clock;
};

}  // namespace tools

#endif
