// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_WATCH_H
#define BBPFLASH_TOOLS_WATCH_WATCH_H

#include <optional>
#include <string>
#include <vector>

#include "tools/stream/StreamParser.h"
#include "tools/watch/Shield.h"
#include "tools/watch/UpdateProgress.h"
#include "tools/watch/UpdateRecord.h"
#include "tools/watch/WatchEvent.h"

namespace tools {

struct WatchConfig {
    bool only_asks = false;        // -i: the updater changes nothing
    bool is_only_heard = false;    // bbpwatch has not started the updater
    bool is_talkative = false;     // the updater says more than people want to read
    int segments = 0;              // of the image's download, 0 when unknown
    Milliseconds download{25000};  // that it should take
    Milliseconds stall{180000};    // without progress that is too long
    std::string label;             // of the image, empty when unknown
    std::string log;               // the file that keeps everything, empty without one
};

// The watcher's head: it is told what the updater writes, how it ends, which signals come and what
// time it is since the start, and decides what that means. It does no input, output or waiting.
class Watch {
  public:
    // The reporters stay the caller's.
    Watch(const WatchConfig& config, std::vector<Reporter*> reporters);

    void Start(const std::vector<std::string>& command);

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

    // Whether the chip's last word, for some seconds now, is that it refuses the image: nothing but
    // an end can come of this update.
    bool IsOver(Milliseconds now) const;

    // The terminal is gone; the update goes on.
    void HangUp(Milliseconds now);

    // The updater has ended with this status (see bbpflash_stream_finish), of its own accord or by
    // the request, or because the update was over. Returns bbpwatch's exit status.
    int Finish(int status, bool was_requested, Milliseconds now);

  private:
    void TakeEvent(const bbpflash_event& event);
    void EndErrorLine();
    WatchEvent Event(WatchEvent::Kind kind, const std::string& text) const;
    void Tell(const WatchEvent& event);
    void Tell(WatchEvent::Kind kind, const std::string& text = "") { Tell(Event(kind, text)); }
    void TellProblems(unsigned problems, const std::string& line);
    bool HasNoAnswer() const;
    void LookForAnswers();
    void LookForProgress();
    void Complete(WatchEvent& event, int status) const;

    const WatchConfig config_;
    const std::vector<Reporter*> reporters_;
    UpdateProgress update_;
    UpdateRecord record_;
    const Shield shield_;
    StreamParser parser_;
    std::string error_line_;
    Milliseconds time_{0};
    Milliseconds last_error_{0};
    Milliseconds stall_of_{-1};    // the progress after which a stall was told
    Milliseconds silence_of_{-1};  // the progress after which a missing answer was told
    bool has_failed_ = false;      // an error was heard
    bool is_requested_ = false;
    unsigned told_problems_ = 0;
    bbpflash_phase phase_ = BBPFLASH_PHASE_RESET;
    int pass_ = 0;
};

}  // namespace tools

#endif
