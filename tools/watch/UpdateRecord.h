// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_UPDATERECORD_H
#define BBPFLASH_TOOLS_WATCH_UPDATERECORD_H

#include <optional>
#include <string>
#include <string_view>

#include "tools/stream/bbpflash_stream.h"
#include "tools/watch/Advice.h"

namespace tools {

// Where an update was at a moment.
struct Position {
    bbpflash_phase phase = BBPFLASH_PHASE_RESET;
    int pass = 0;
    int percent = 0;
    std::optional<int> segment;  // of the download, counted from 1
};

// Keeps what the updater's lines have told: its mode, the versions, the first error and what the
// chip must hold.
class UpdateRecord {
  public:
    // `segments` of the image's download, 0 when nobody knows.
    explicit UpdateRecord(int segments) : segments_(segments) {}

    void Take(const bbpflash_event& event);

    // Learned from the lines; UNKNOWN before one tells.
    bbpflash_mode Mode() const { return mode_; }

    bool IsMixed() const { return is_mixed_; }            // with lines of the other mode
    bool IsDone() const { return is_done_; }              // DONE was read
    bool HasMatched() const { return has_matched_; }      // it said that the versions match
    bool HasTold() const { return !installed_.empty(); }  // it showed the chip's version
    bool HasProgrammed() const { return position_.pass > 0; }

    // The versions that the updater has shown, empty where it has not: the chip's at first, its
    // last one, and the image's.
    const std::string& From() const { return from_; }
    const std::string& Installed() const { return installed_; }
    const std::string& Label() const { return label_; }

    // The first error since the update last came forward: its text without level and place. Empty
    // without one.
    const std::string& FirstError() const { return first_error_; }

    // Where the update is, or was when that error came; where it ended, before DONE or ERROR.
    const Position& Where() const { return position_; }

    int Segments() const { return segments_; }

    // The code of the refusal that was the chip's last word, or nothing.
    const std::string& Refusal() const { return refusal_; }

    // What the flash holds. `is_cut`: the updater was ended from outside, or nobody knows how, and
    // its last lines may be lost.
    Content Held(bool is_cut) const;

  private:
    void TakeMessage(const bbpflash_event& event);
    void TakeError(std::string_view message);
    void TakeDump(std::string_view text);
    void TakeProgress(const bbpflash_event& event);
    bool LacksSegments() const;

    int segments_;
    bbpflash_mode mode_ = BBPFLASH_MODE_UNKNOWN;
    Position position_;
    std::string from_;
    std::string installed_;
    std::string label_;
    std::string first_error_;
    std::string refusal_;
    bool is_done_ = false;
    bool has_matched_ = false;
    bool has_banner_ = false;
    bool is_mixed_ = false;  // lines of both modes
    bool has_ended_ = false;
    bool was_programmed_ = false;  // a pass came to its end
    bool began_to_write_ = false;  // this pass was seen erasing or programming
    bool missed_polls_ = false;    // in the burn of this pass
};

// Whether the chip must lack a segment that the updater has not even begun to send. One may have
// gone out unheard since this percentage was written.
bool HasSegmentsToGo(int percent, int segments);

}  // namespace tools

#endif
