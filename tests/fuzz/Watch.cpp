// SPDX-License-Identifier: Apache-2.0
// An input is the story of an update: its segments, the chip's burn, the lines that the updater
// writes of them, in pieces, the time that passes, and people who want it to end. What bbpwatch
// makes of the lines alone is held against the story: it never calls that a success which has not
// ended in DONE, and never lets the updater end while the chip may write its flash.
#include "tools/watch/Watch.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/fuzz/Require.h"

namespace {

using fuzz::Input;
using fuzz::Require;
using tools::Milliseconds;

// An image that can carry a label has more than one segment.
constexpr int SEGMENT = 2035;
constexpr Milliseconds LONGEST_SILENCE(180000);
const std::size_t MOST_STEPS = 400;

class Nobody : public tools::Reporter {
  public:
    void Report(const tools::WatchEvent&) override {}
};

class Story {
  public:
    explicit Story(Input& input)
        : input_(input), end_(input.Byte()), segments_(2 + input.Byte() * 3) {
        tools::WatchConfig config;
        config.segments = segments_;
        watch_ = std::make_unique<tools::Watch>(config, std::vector<tools::Reporter*>{&nobody_});
    }

    void Step();
    void End();

  private:
    enum class Stage { Reset, Download, Burn, Check, Ended };

    void Print(const std::string& line);
    void Deliver(std::size_t size);
    void SendSegment(bool is_asked_meanwhile);
    void TellBurn();
    void EndBurn();
    void Ask();
    bool MayWriteFlash() const;

    Input& input_;
    const std::uint8_t end_;  // how the updater ends; read first, for nothing is left then
    Nobody nobody_;
    std::unique_ptr<tools::Watch> watch_;
    const int segments_;
    Milliseconds now_{0};
    std::string last_line_;
    Milliseconds last_progress_{0};
    std::string pipe_;  // written by the updater, not read by bbpwatch yet
    Stage stage_ = Stage::Reset;
    int pass_ = 0;
    int sent_ = 0;
    int percent_ = 0;
    bool is_done_ = false;
};

void Story::Print(const std::string& line) {
    pipe_ += line + "\n";
    if (line != last_line_) {
        last_line_ = line;
        last_progress_ = now_;
    }
}

void Story::Deliver(std::size_t size) {
    const std::string part = pipe_.substr(0, size);
    pipe_.erase(0, part.size());
    watch_->Take(part.data(), part.size(), now_);
}

// A segment is on its way before its percentage is written: that is when somebody may ask.
void Story::SendSegment(bool is_asked_meanwhile) {
    if (stage_ == Stage::Reset && pass_ < 3) {
        stage_ = Stage::Download;
        pass_ += 1;
        sent_ = percent_ = 0;
    }
    if (stage_ != Stage::Download) {
        return;
    }
    sent_ += 1;
    if (is_asked_meanwhile) {
        Ask();
    }
    const int size = segments_ * SEGMENT - SEGMENT / 2;
    const int percent = std::min(size, sent_ * SEGMENT - 1) * 80 / size;
    if (percent != percent_) {
        percent_ = percent;
        Print(std::to_string(percent));
    }
    if (sent_ == segments_) {
        stage_ = Stage::Burn;
    }
}

void Story::TellBurn() {
    if (stage_ == Stage::Burn) {
        Print(std::to_string(85 + input_.Byte() % 3 * 5));
    }
}

void Story::EndBurn() {
    if (stage_ == Stage::Burn) {
        Print("99");
        stage_ = Stage::Check;
    } else if (stage_ == Stage::Check) {
        is_done_ = input_.Byte() % 4 != 0;
        if (is_done_ || pass_ == 3) {
            Print(is_done_ ? "100\nDONE" : "ERROR");
        }
        stage_ = is_done_ || pass_ == 3 ? Stage::Ended : Stage::Reset;  // it tries again
    }
}

bool Story::MayWriteFlash() const {
    return stage_ == Stage::Burn || (stage_ == Stage::Download && sent_ == segments_);
}

// As bbpwatch asks: the updater stands still, and all that it has written was read.
void Story::Ask() {
    Deliver(pipe_.size());
    watch_->Request("terminate", now_);
    if (watch_->MayEnd(now_)) {
        Require(!MayWriteFlash() || now_ - last_progress_ > LONGEST_SILENCE,
                "no update ends while the chip may write its flash");
    }
}

void Story::Step() {
    const std::uint8_t step = input_.Byte();
    switch (step % 8) {
        case 0:
            SendSegment(false);
            break;
        case 1:
            SendSegment(true);
            break;
        case 2:
            for (int i = input_.Byte() * 3; i > 0; --i) {
                SendSegment(false);
            }
            break;
        case 3:
            TellBurn();
            break;
        case 4:
            EndBurn();
            break;
        case 5:
            now_ += Milliseconds(step * step * 4);
            watch_->Tick(now_);
            break;
        case 6:
            Ask();
            break;
        default:
            Deliver(input_.Byte());
    }
}

void Story::End() {
    const int status = end_ % 4;
    if (stage_ != Stage::Ended && (end_ & 4) != 0) {
        Print("ERROR");
    }
    Deliver(pipe_.size());
    const bool says_success = watch_->Finish(status, false, now_) == 0;
    Require(!says_success || (status == 0 && is_done_), "no success without DONE and status 0");
    Require(says_success || status != 0 || !is_done_ || now_ > LONGEST_SILENCE,
            "an update that went well is a success");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Story story(input);
    for (std::size_t i = 0; i < MOST_STEPS && !input.Empty(); ++i) {
        story.Step();
    }
    story.End();
    return 0;
}
