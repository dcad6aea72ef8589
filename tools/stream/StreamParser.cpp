// SPDX-License-Identifier: Apache-2.0
#include "tools/stream/StreamParser.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <utility>

namespace tools {

namespace {

constexpr int LAST_OF_DOWNLOAD = 80;
constexpr int ERASING = 85;
constexpr int PROGRAMMING = 90;
constexpr int VERIFYING = 95;
constexpr int COMPLETE = 99;
constexpr int ALL = 100;

constexpr int MAX_PASSES = 3;

constexpr int LAST_EXIT_STATUS = 127;  // a shell's statuses beyond are those of signals

// What a message that begins so tells about where the update is.
struct Stage {
    std::string_view beginning;
    bbpflash_phase phase;
};
constexpr Stage STAGES[] = {
    {"Checking HD update versions", BBPFLASH_PHASE_CHECK},
    {"Completed file transmission", BBPFLASH_PHASE_BURN},
    {"erasing old flash contents", BBPFLASH_PHASE_ERASE},
    {"programming new flash contents", BBPFLASH_PHASE_PROGRAM},
    {"verifying new flash contents", BBPFLASH_PHASE_VERIFY},
    {"BBP is erasing", BBPFLASH_PHASE_ERASE},
    {"BBP is programming", BBPFLASH_PHASE_PROGRAM},
    {"BBP is verifying", BBPFLASH_PHASE_VERIFY},
    {"BBP programming completed", BBPFLASH_PHASE_CHECK},
};

// The messages of the chip's statuses after which it does nothing more for this image.
constexpr std::string_view REFUSALS[] = {
    "image verification failed, CRC error",
    "flash image and NVM security status mismatch",
    "using single tuner image on dual tuner flash",
    "using dual tuner image on single tuner flash",
};

// All that a run without an argument says, with status 1.
constexpr std::string_view HINT = "Please try \"use bbpflash\"";

}  // namespace

StreamParser::StreamParser(bbpflash_mode mode, Handler handler)
    : mode_(mode), handler_(std::move(handler)) {
    text_.reserve(BBPFLASH_LONGEST_LINE);
}

void StreamParser::Feed(const char* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] == '\n') {
            EndLine();
            continue;
        }
        is_pending_ = true;
        if (text_.size() < BBPFLASH_LONGEST_LINE) {
            text_ += bytes[i];
        }
    }
}

void StreamParser::EndLine() {
    const Line line = lines_.Parse(text_);
    line_problems_ = 0;
    TakeLine(line);
    if (handler_) {
        bbpflash_event event;
        event.line = line.kind;
        event.level = line.level;
        event.phase = phase_;
        event.pass = pass_;
        event.percent = percent_;
        event.refused = is_refused_ ? 1 : 0;
        event.problems = line_problems_;
        event.text = text_.data();
        event.size = text_.size();
        event.message = line.kind == BBPFLASH_LINE_MESSAGE ? line.message.data() : nullptr;
        event.message_size = line.message.size();
        handler_(event);
    }
    text_.clear();
    is_pending_ = false;
}

void StreamParser::TakeLine(const Line& line) {
    if (phase_ == BBPFLASH_PHASE_ENDED) {
        Complain(BBPFLASH_PROBLEM_AFTER_END);
    }
    const bool is_after_100 = last_ == BBPFLASH_LINE_PERCENT && percent_ == ALL;
    last_ = line.kind;
    if (is_after_100 != (line.kind == BBPFLASH_LINE_DONE)) {
        Complain(is_after_100 ? BBPFLASH_PROBLEM_ORDER : BBPFLASH_PROBLEM_DONE_WITHOUT_100);
    }
    switch (line.kind) {
        case BBPFLASH_LINE_PERCENT:
            TakePercent(line.number);
            break;
        case BBPFLASH_LINE_DONE:
        case BBPFLASH_LINE_ERROR:
            phase_ = BBPFLASH_PHASE_ENDED;
            break;
        case BBPFLASH_LINE_MESSAGE:
            TakeMessage(line);
            break;
        case BBPFLASH_LINE_UNKNOWN:
            Complain(BBPFLASH_PROBLEM_UNKNOWN_LINE);
            break;
        case BBPFLASH_LINE_CONTINUATION:
        case BBPFLASH_LINE_OPTIONS:
        case BBPFLASH_LINE_DUMP:
            break;
    }
    const bool is_of_status_mode =
        line.kind == BBPFLASH_LINE_PERCENT || line.kind == BBPFLASH_LINE_DONE;
    if (mode_ == BBPFLASH_MODE_NARRATING && is_of_status_mode) {
        Complain(BBPFLASH_PROBLEM_UNKNOWN_LINE);
    }
}

void StreamParser::TakePercent(int value) {
    if (value >= 1 && value <= LAST_OF_DOWNLOAD) {
        TakeDownloadPercent(value);
        return;
    }
    const bool is_burning = is_counting_ && percent_ >= LAST_OF_DOWNLOAD && percent_ < COMPLETE;
    switch (value) {
        case ERASING:
            phase_ = BBPFLASH_PHASE_ERASE;
            break;
        case PROGRAMMING:
            phase_ = BBPFLASH_PHASE_PROGRAM;
            break;
        case VERIFYING:
            phase_ = BBPFLASH_PHASE_VERIFY;
            break;
        case COMPLETE:
            phase_ = BBPFLASH_PHASE_CHECK;
            break;
        case ALL:
            if (pass_ != 0 && percent_ != COMPLETE) {
                Complain(BBPFLASH_PROBLEM_ORDER);
            }
            percent_ = ALL;
            return;
        default:
            Complain(BBPFLASH_PROBLEM_NUMBER);
            return;
    }
    if (!is_burning) {
        Complain(BBPFLASH_PROBLEM_ORDER);
    }
    percent_ = value;
    is_refused_ = false;
}

void StreamParser::TakeDownloadPercent(int value) {
    const bool is_first_of_pass = phase_ == BBPFLASH_PHASE_DOWNLOAD && !is_counting_;
    if (MayBeginPass()) {
        BeginPass();
    } else if (!is_first_of_pass && value <= percent_) {
        Complain(BBPFLASH_PROBLEM_FALLING);
    }
    is_counting_ = true;
    percent_ = value;
    phase_ = value == LAST_OF_DOWNLOAD ? BBPFLASH_PHASE_BURN : BBPFLASH_PHASE_DOWNLOAD;
}

// Before the first pass, and when the one before it has ended with the chip's word.
bool StreamParser::MayBeginPass() const {
    return pass_ == 0 || phase_ == BBPFLASH_PHASE_CHECK;
}

void StreamParser::BeginPass() {
    if (!MayBeginPass()) {
        Complain(BBPFLASH_PROBLEM_ORDER);
    }
    phase_ = BBPFLASH_PHASE_DOWNLOAD;
    is_counting_ = false;
    is_refused_ = false;
    pass_ = std::min(pass_ + 1, MAX_PASSES + 1);
    if (pass_ > MAX_PASSES) {
        Complain(BBPFLASH_PROBLEM_PASSES);
    }
}

void StreamParser::TakeMessage(const Line& line) {
    const std::string_view message = line.message;
    if (line.level == BBPFLASH_LEVEL_ERROR) {
        is_hint_ = is_hint_ || StartsWith(message, HINT);
        is_refused_ = is_refused_ || std::any_of(std::begin(REFUSALS), std::end(REFUSALS),
                                                 [message](std::string_view refusal) {
                                                     return StartsWith(message, refusal);
                                                 });
    } else if (line.level == BBPFLASH_LEVEL_INFO && StartsWith(message, "burning \"")) {
        BeginPass();
    } else if (line.level == BBPFLASH_LEVEL_PLAIN && StartsWith(message, "Sending \"")) {
        // The message before it, where it is shown, has begun the same pass.
        if (phase_ != BBPFLASH_PHASE_DOWNLOAD) {
            BeginPass();
        }
    } else if (line.level == BBPFLASH_LEVEL_PLAIN || line.level == BBPFLASH_LEVEL_INFO) {
        for (const Stage& stage : STAGES) {
            if (StartsWith(message, stage.beginning)) {
                phase_ = stage.phase;
                is_refused_ = false;
            }
        }
    }
}

void StreamParser::Complain(bbpflash_problem problem) {
    line_problems_ |= problem;
    problems_ |= problem;
}

bbpflash_verdict StreamParser::Finish(int exit_status) {
    // A run that a signal has ended may stop anywhere.
    const bool is_broken_off = exit_status > LAST_EXIT_STATUS;
    if (is_pending_) {
        last_ = BBPFLASH_LINE_UNKNOWN;
        if (!is_broken_off) {
            Complain(BBPFLASH_PROBLEM_UNFINISHED_LINE);
        }
    }
    CheckEnd(exit_status);
    if (problems_ != 0) {
        return BBPFLASH_VERDICT_DOUBTFUL;
    }
    const bool is_success =
        exit_status == 0 || (exit_status == BBPFLASH_STATUS_UNKNOWN && last_ == BBPFLASH_LINE_DONE);
    return is_success ? BBPFLASH_VERDICT_SUCCESS : BBPFLASH_VERDICT_FAILURE;
}

void StreamParser::CheckEnd(int exit_status) {
    const bool is_done = last_ == BBPFLASH_LINE_DONE;
    const bool is_error = last_ == BBPFLASH_LINE_ERROR;
    const bool is_success = exit_status == 0;
    if (exit_status != BBPFLASH_STATUS_UNKNOWN && (is_success ? is_error : is_done)) {
        Complain(BBPFLASH_PROBLEM_STATUS);
        return;
    }
    const bool needs_done = is_success && mode_ == BBPFLASH_MODE_STATUS;
    const bool needs_error = exit_status == EXIT_FAILURE && !is_hint_;
    const bool needs_either = exit_status == BBPFLASH_STATUS_UNKNOWN && !is_hint_;
    if ((needs_done && !is_done) || (needs_error && !is_error) ||
        (needs_either && !is_done && !is_error)) {
        Complain(BBPFLASH_PROBLEM_NO_END);
    }
}

}  // namespace tools
