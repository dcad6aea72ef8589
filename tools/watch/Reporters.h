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

// Sorts what happens for those who tell it to a person: what is only a detail reaches none of them.
class PeopleReporter : public Reporter {
  public:
    void Report(const WatchEvent& event) final;

  private:
    virtual void OnStart(const WatchEvent&) {}
    virtual void OnPhase(const WatchEvent& event) = 0;
    virtual void OnProgress(const WatchEvent& event) = 0;
    virtual void OnText(const WatchEvent& event) = 0;
    virtual void OnEnd(const WatchEvent& event) = 0;
};

// One line that stays at the terminal's bottom and moves, everything else above it.
class TerminalReporter : public PeopleReporter {
  public:
    // `width` tells the terminal's columns each time it is asked.
    TerminalReporter(TextSink sink, std::function<int()> width, bool colour)
        : sink_(std::move(sink)), width_(std::move(width)), has_colour_(colour) {}

    void Refresh(const Progress& progress) override;

  private:
    void OnStart(const WatchEvent& event) override;
    void OnPhase(const WatchEvent& event) override;
    void OnProgress(const WatchEvent& event) override;
    void OnText(const WatchEvent& event) override;
    void OnEnd(const WatchEvent& event) override;

    void Draw(const std::string& text, int columns);
    void PrintAbove(const std::string& line, const Progress& progress);

    const TextSink sink_;
    const std::function<int()> width_;
    const bool has_colour_;
    int last_width_ = 0;
};

// Plain lines without any control character, for files and pipes: phases, every tenth per cent,
// messages.
class PlainReporter : public PeopleReporter {
  public:
    explicit PlainReporter(TextSink sink) : sink_(std::move(sink)) {}

  private:
    void OnPhase(const WatchEvent& event) override;
    void OnProgress(const WatchEvent& event) override;
    void OnText(const WatchEvent& event) override;
    void OnEnd(const WatchEvent& event) override;

    const TextSink sink_;
    int last_tenth_ = 0;
};

// Everything that the updater printed and what became of it, each line with the time of day.
class LogReporter : public Reporter {
  public:
    // `clock` gives the time of day as text.
    LogReporter(TextSink sink, std::function<std::string()> clock)
        : sink_(std::move(sink)), clock_(std::move(clock)) {}

    void Report(const WatchEvent& event) override;

  private:
    const TextSink sink_;
    const std::function<std::string()> clock_;
};

}  // namespace tools

#endif
