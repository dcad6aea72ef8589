// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_UPDATEPROGRESS_H
#define BBPFLASH_TOOLS_WATCH_UPDATEPROGRESS_H

#include <chrono>
#include <optional>

#include "tools/stream/bbpflash_stream.h"

namespace tools {

using Milliseconds = std::chrono::milliseconds;

// The percentage that ends the download; the burn comes behind it.
constexpr int LAST_OF_DOWNLOAD = 80;

// Where an update is at a moment.
struct Progress {
    bbpflash_phase phase = BBPFLASH_PHASE_RESET;
    int pass = 0;     // programming passes begun
    int percent = 0;  // the updater's own last percentage
    double done = 0;  // 0 to 1 of this pass in time; it never falls, and moves while the
                      // percentage stands still
    Milliseconds elapsed{0};
    std::optional<Milliseconds> remaining;  // of this pass, where there is something to guess from
    bool is_refused = false;                // the chip's last word is that it rejects the image
    bool writes_flash = false;              // the chip has the image: power must stay
    std::optional<Milliseconds> no_answer;  // so long the chip has answered nothing
};

// Follows an update through its phases and guesses what is left of it: from the pace of the
// download, and from what the other phases are known to take. All times count from the start.
class UpdateProgress {
  public:
    // `download` is how long the image's download should take.
    explicit UpdateProgress(Milliseconds download) : expected_download_(download) {}

    void Take(const bbpflash_event& event, Milliseconds now);

    Progress At(Milliseconds now) const;

    Milliseconds ExpectedDownload() const { return expected_download_; }

    // When the phase that is on began, and when the last line that told of progress came.
    Milliseconds PhaseBegan() const { return phase_began_; }
    Milliseconds LastProgress() const { return last_progress_; }

    // Since when the chip's last word is that it rejects the image; nothing while it is not.
    std::optional<Milliseconds> RefusedSince() const { return refused_since_; }

  private:
    Milliseconds Download() const;
    Milliseconds LengthOf(bbpflash_phase of) const;
    Milliseconds Before(bbpflash_phase until) const;
    double ShareOfPhase(Milliseconds now) const;
    bool IsLate(Milliseconds now) const;

    const Milliseconds expected_download_;
    bbpflash_phase phase_ = BBPFLASH_PHASE_RESET;
    int pass_ = 0;
    int percent_ = 0;
    std::optional<Milliseconds> refused_since_;
    double least_done_ = 0;  // of this pass
    Milliseconds phase_began_{0};
    Milliseconds last_progress_{0};
    int first_percent_ = 0;  // of this download, for its pace
    Milliseconds first_percent_came_{0};
    Milliseconds last_percent_came_{0};
};

}  // namespace tools

#endif
