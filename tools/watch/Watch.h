// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_WATCH_H
#define BBPFLASH_TOOLS_WATCH_WATCH_H

#include <string>
#include <vector>

#include "tools/stream/StreamParser.h"
#include "tools/watch/Shield.h"
#include "tools/watch/UpdateProgress.h"
#include "tools/watch/WatchEvent.h"

namespace tools {

struct WatchConfig {
    bbpflash_mode mode = BBPFLASH_MODE_UNKNOWN;
    bool only_asks = false;        // -i: the updater changes nothing
    int segments = 0;              // of the image's download, 0 when unknown
    Milliseconds download{25000};  // that it should take
    Milliseconds stall{180000};    // silence that is too long
};

// The exit status when the updater's own says success and something contradicts it.
constexpr int STATUS_DOUBTFUL = 76;

// The watcher's head: it is told what the updater writes, how it ends, which signals come and what
// time it is since the start, and decides what that means. It does no input, output or waiting.
class Watch {
  public:
    // The reporters stay the caller's.
    Watch(const WatchConfig& config, std::vector<Reporter*> reporters);

    void Start(const std::string& command);

    // Bytes of the updater's standard output.
    void Take(const char* bytes, std::size_t size, Milliseconds now);

    // Bytes of its standard error, which mean nothing for the outcome.
    void TakeError(const char* bytes, std::size_t size, Milliseconds now);

    // Time has passed.
    void Tick(Milliseconds now);

    // Somebody wants the update to end (the signal's name). Whether that is possible is the
    // caller's to ask with MayEnd, when it has taken all that the updater had to say.
    void Request(const std::string& signal, Milliseconds now);

    // Whether a request is open.
    bool IsRequested() const { return is_requested_; }

    // Whether the update can be ended now without harm. When not, and not soon either, tells why
    // and drops the request.
    bool MayEnd(Milliseconds now);

    // The update could have been ended, but the system does not let us, for this reason. Drops the
    // request.
    void CannotEnd(const std::string& reason, Milliseconds now);

    // The terminal is gone; the update goes on.
    void HangUp(Milliseconds now);

    // The updater has ended with this status (see bbpflash_stream_finish), of its own accord or by
    // the request. Returns bbpwatch's exit status.
    int Finish(int status, bool was_requested, Milliseconds now);

  private:
    void TakeEvent(const bbpflash_event& event);
    void Tell(WatchEvent::Kind kind, const std::string& text = "",
              bbpflash_level level = BBPFLASH_LEVEL_NONE);
    void TellProblems(unsigned problems, const std::string& line);
    void HearSomething(Milliseconds now);
    std::string Ending(int status, bool was_requested, bbpflash_verdict verdict) const;

    const WatchConfig config_;
    const std::vector<Reporter*> reporters_;
    UpdateProgress update_;
    const Shield shield_;
    StreamParser parser_;
    std::string error_line_;
    Milliseconds time_{0};
    Milliseconds last_heard_{0};
    bool is_silent_ = false;    // the silence that is on was told
    bool has_stalled_ = false;  // at any time
    bool is_requested_ = false;
    int refused_requests_ = 0;
    unsigned told_problems_ = 0;
    bbpflash_phase phase_ = BBPFLASH_PHASE_RESET;
    int pass_ = 0;
};

}  // namespace tools

#endif
