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

bool StartsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

}  // namespace

StreamParser::StreamParser(bbpflash_mode the_mode, Handler the_handler)
    : mode(the_mode), handler(std::move(the_handler)) {
    text.reserve(BBPFLASH_LONGEST_LINE);
}

void StreamParser::Feed(const char* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] == '\n') {
            EndLine();
            continue;
        }
        is_pending = true;
        if (text.size() < BBPFLASH_LONGEST_LINE) {
            text += bytes[i];
        }
    }
}

void StreamParser::EndLine() {
    const Line line = lines.Parse(text);
    line_problems = 0;
    TakeLine(line);
    if (handler) {
        bbpflash_event event;
        event.line = line.kind;
        event.level = line.level;
        event.phase = phase;
        event.pass = pass;
        event.percent = percent;
        event.refused = is_refused ? 1 : 0;
        event.problems = line_problems;
        event.text = text.data();
        event.size = text.size();
        event.message = line.kind == BBPFLASH_LINE_MESSAGE ? line.message.data() : nullptr;
        event.message_size = line.message.size();
        handler(event);
    }
    text.clear();
    is_pending = false;
}

void StreamParser::TakeLine(const Line& line) {
    if (phase == BBPFLASH_PHASE_ENDED) {
        Complain(BBPFLASH_PROBLEM_AFTER_END);
    }
    const bool is_after_100 = last == BBPFLASH_LINE_PERCENT && percent == ALL;
    last = line.kind;
    if (is_after_100 != (line.kind == BBPFLASH_LINE_DONE)) {
        Complain(is_after_100 ? BBPFLASH_PROBLEM_ORDER : BBPFLASH_PROBLEM_DONE_WITHOUT_100);
    }
    switch (line.kind) {
        case BBPFLASH_LINE_PERCENT:
            TakePercent(line.number);
            break;
        case BBPFLASH_LINE_DONE:
        case BBPFLASH_LINE_ERROR:
            phase = BBPFLASH_PHASE_ENDED;
            break;
        case BBPFLASH_LINE_MESSAGE:
            TakeMessage(line);
            break;
        case BBPFLASH_LINE_UNKNOWN:
            Complain(BBPFLASH_PROBLEM_UNKNOWN_LINE);
            break;
        default:
            break;
    }
    const bool is_of_status_mode =
        line.kind == BBPFLASH_LINE_PERCENT || line.kind == BBPFLASH_LINE_DONE;
    if (mode == BBPFLASH_MODE_NARRATING && is_of_status_mode) {
        Complain(BBPFLASH_PROBLEM_UNKNOWN_LINE);
    }
}

void StreamParser::TakePercent(int value) {
    if (value >= 1 && value <= LAST_OF_DOWNLOAD) {
        TakeDownloadPercent(value);
        return;
    }
    const bool is_burning = is_counting && percent >= LAST_OF_DOWNLOAD && percent < COMPLETE;
    switch (value) {
        case ERASING:
            phase = BBPFLASH_PHASE_ERASE;
            break;
        case PROGRAMMING:
            phase = BBPFLASH_PHASE_PROGRAM;
            break;
        case VERIFYING:
            phase = BBPFLASH_PHASE_VERIFY;
            break;
        case COMPLETE:
            phase = BBPFLASH_PHASE_CHECK;
            break;
        case ALL:
            if (pass != 0 && percent != COMPLETE) {
                Complain(BBPFLASH_PROBLEM_ORDER);
            }
            percent = ALL;
            return;
        default:
            Complain(BBPFLASH_PROBLEM_NUMBER);
            return;
    }
    if (!is_burning) {
        Complain(BBPFLASH_PROBLEM_ORDER);
    }
    percent = value;
    is_refused = false;
}

void StreamParser::TakeDownloadPercent(int value) {
    const bool is_first_of_pass = phase == BBPFLASH_PHASE_DOWNLOAD && !is_counting;
    if (MayBeginPass()) {
        BeginPass();
    } else if (!is_first_of_pass && value <= percent) {
        Complain(BBPFLASH_PROBLEM_FALLING);
    }
    is_counting = true;
    percent = value;
    phase = value == LAST_OF_DOWNLOAD ? BBPFLASH_PHASE_BURN : BBPFLASH_PHASE_DOWNLOAD;
}

// Before the first pass, and when the one before it has ended with the chip's word.
bool StreamParser::MayBeginPass() const {
    return pass == 0 || phase == BBPFLASH_PHASE_CHECK;
}

void StreamParser::BeginPass() {
    if (!MayBeginPass()) {
        Complain(BBPFLASH_PROBLEM_ORDER);
    }
    phase = BBPFLASH_PHASE_DOWNLOAD;
    is_counting = false;
    is_refused = false;
    pass = std::min(pass + 1, MAX_PASSES + 1);
    if (pass > MAX_PASSES) {
        Complain(BBPFLASH_PROBLEM_PASSES);
    }
}

void StreamParser::TakeMessage(const Line& line) {
    const std::string_view message = line.message;
    if (line.level == BBPFLASH_LEVEL_ERROR) {
        is_hint = is_hint || StartsWith(message, HINT);
        is_refused = is_refused || std::any_of(std::begin(REFUSALS), std::end(REFUSALS),
                                               [message](std::string_view refusal) {
                                                   return StartsWith(message, refusal);
                                               });
    } else if (line.level == BBPFLASH_LEVEL_INFO && StartsWith(message, "burning \"")) {
        BeginPass();
    } else if (line.level == BBPFLASH_LEVEL_PLAIN && StartsWith(message, "Sending \"")) {
        // The message before it, where it is shown, has begun the same pass.
        if (phase != BBPFLASH_PHASE_DOWNLOAD) {
            BeginPass();
        }
    } else if (line.level == BBPFLASH_LEVEL_PLAIN || line.level == BBPFLASH_LEVEL_INFO) {
        for (const Stage& stage : STAGES) {
            if (StartsWith(message, stage.beginning)) {
                phase = stage.phase;
                is_refused = false;
            }
        }
    }
}

void StreamParser::Complain(bbpflash_problem problem) {
    line_problems |= problem;
    problems |= problem;
}

bbpflash_verdict StreamParser::Finish(int exit_status) {
    // A run that a signal has ended may stop anywhere.
    const bool is_broken_off = exit_status > LAST_EXIT_STATUS;
    if (is_pending) {
        last = BBPFLASH_LINE_UNKNOWN;
        if (!is_broken_off) {
            Complain(BBPFLASH_PROBLEM_UNFINISHED_LINE);
        }
    }
    CheckEnd(exit_status);
    if (problems != 0) {
        return BBPFLASH_VERDICT_DOUBTFUL;
    }
    const bool is_success =
        exit_status == 0 || (exit_status == BBPFLASH_STATUS_UNKNOWN && last == BBPFLASH_LINE_DONE);
    return is_success ? BBPFLASH_VERDICT_SUCCESS : BBPFLASH_VERDICT_FAILURE;
}

void StreamParser::CheckEnd(int exit_status) {
    const bool is_done = last == BBPFLASH_LINE_DONE;
    const bool is_error = last == BBPFLASH_LINE_ERROR;
    const bool is_success = exit_status == 0;
    if (exit_status != BBPFLASH_STATUS_UNKNOWN && (is_success ? is_error : is_done)) {
        Complain(BBPFLASH_PROBLEM_STATUS);
        return;
    }
    const bool needs_done = is_success && mode == BBPFLASH_MODE_STATUS;
    const bool needs_error = exit_status == EXIT_FAILURE && !is_hint;
    const bool needs_either = exit_status == BBPFLASH_STATUS_UNKNOWN && !is_hint;
    if ((needs_done && !is_done) || (needs_error && !is_error) ||
        (needs_either && !is_done && !is_error)) {
        Complain(BBPFLASH_PROBLEM_NO_END);
    }
}

}  // namespace tools
