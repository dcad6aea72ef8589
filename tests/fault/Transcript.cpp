// SPDX-License-Identifier: Apache-2.0
#include "tests/fault/Transcript.h"

#include <cctype>

namespace fault {

namespace {

// The system logger's code of a message is its line plus this.
constexpr std::int64_t LOG_CODE = 11000;

constexpr std::string_view PREFIXES[] = {
    " MSG: ", " CRITICAL: ", " ERROR: ", " WRN: ", "", " INF: "};

// Above this verbosity, information and every message's place are shown.
constexpr int INFO_VERBOSITY = 5;
constexpr int ERROR_VERBOSITY = 10;

bool IsDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

Transcript::Transcript(const virt::CallLog& log, const virt::RunResult& result)
    : log_(log), result_(result) {}

void Transcript::Fail(const std::string& what) const {
    std::string text = "call " + std::to_string(next_) + ": " + what;
    if (next_ < log_.Calls().size()) {
        text += "\n  came: " + Describe(log_, log_.Calls()[next_]);
    }
    throw Difference{text};
}

// Whether the call read last is the one at which the surroundings ended the run.
bool Transcript::AtCut() const {
    return next_ == log_.Calls().size() && result_.outcome != Outcome::Exit;
}

const Call& Transcript::Next(CallKind kind) {
    for (;;) {
        SkipMemory();
        if (next_ == log_.Calls().size()) {
            Fail("no further call, though there must be: " + std::string(NameOf(kind)));
        }
        if (log_.Calls()[next_].kind != CallKind::Output) {
            break;
        }
        TakeOutput();
    }
    const Call& call = log_.Calls()[next_];
    if (call.kind != kind) {
        Fail("must be: " + std::string(NameOf(kind)));
    }
    ++next_;
    if (AtCut()) {
        const bool sleeps = kind == CallKind::Delay || kind == CallKind::Usleep;
        if (result_.outcome == Outcome::Endless && sleeps && polling) {
            throw RunEnds{Outcome::Endless};
        }
        if (result_.outcome == Outcome::Blocked && kind == CallKind::Lock) {
            throw RunEnds{Outcome::Blocked};
        }
    }
    return call;
}

const Call& Transcript::Next(CallKind kind, std::int64_t argument) {
    const Call& call = Next(kind);
    if (call.argument != argument) {
        --next_;
        Fail("must be: " + std::string(NameOf(kind)) + " " + std::to_string(argument));
    }
    return call;
}

int Transcript::Errno() const {
    return next_ < log_.Calls().size() ? log_.Calls()[next_].error_before : 0;
}

// Memory for texts and lists is taken where the library likes; when there is none, the run ends.
void Transcript::SkipMemory() {
    while (next_ < log_.Calls().size() && log_.Calls()[next_].kind == CallKind::NewStorage) {
        if (log_.Calls()[next_++].result != 0) {
            throw RunEnds{Outcome::BadAlloc};
        }
    }
}

void Transcript::TakeOutput() {
    const Call& call = log_.Calls()[next_];
    Match(log_.Data(call));
    ++next_;
    if (AtCut() && result_.outcome == Outcome::SigPipe) {
        throw RunEnds{Outcome::SigPipe};
    }
    const bool failed = call.result < static_cast<std::int64_t>(call.size);
    lossy_ = lossy_ || (failed && matched_ < pending_.size());
}

void Transcript::Match(std::string_view written) {
    if (lossy_) {
        return;
    }
    for (const char c : written) {
        const bool number =
            first_number_ < numbers_.size() && numbers_[first_number_] == pending_base_ + matched_;
        if (number && IsDigit(c)) {
            in_number_ = true;
            continue;
        }
        if (number) {
            if (!in_number_) {
                Fail("standard output has no line number where one belongs");
            }
            in_number_ = false;
            ++first_number_;
            ++matched_;
        }
        if (matched_ == pending_.size() || pending_[matched_] != c) {
            Fail("standard output must have: \"" + pending_.substr(matched_, 200) + "\"");
        }
        ++matched_;
    }
    if (matched_ == pending_.size()) {
        pending_base_ += matched_;
        pending_.clear();
        matched_ = 0;
    }
}

void Transcript::Print(std::string_view text) {
    pending_.append(text);
}

void Transcript::Flush() {
    while (!pending_.empty() && !lossy_) {
        SkipMemory();
        if (next_ == log_.Calls().size() || log_.Calls()[next_].kind != CallKind::Output) {
            Fail("must be flushed to standard output: \"" + pending_.substr(matched_, 200) + "\"");
        }
        TakeOutput();
    }
}

void Transcript::Say(Level level, std::string_view file, std::string_view text) {
    if (level == Level::Info && verbosity <= INFO_VERBOSITY) {
        return;
    }
    const bool is_failure = level == Level::Critical || level == Level::Error;
    const bool has_number = is_failure || verbosity > INFO_VERBOSITY;
    std::string line = program;
    line.append(PREFIXES[static_cast<std::size_t>(level)]).append(text);
    if (has_number) {
        line.append(" @").append(file).append(".cpp:");
        numbers_.push_back(pending_base_ + pending_.size() + line.size());
        Print(line + "#\n");
    } else {
        Print(line + "\n");
    }
    TakeLog(level, line, has_number);
    if (is_failure) {
        verbosity = ERROR_VERBOSITY;
    }
}

void Transcript::TakeLog(Level level, const std::string& text, bool has_number) {
    const Call& call = Next(CallKind::Log);
    const std::string line = std::to_string(call.argument - LOG_CODE);
    if (Data(call) != (has_number ? text + line : text) || call.detail != static_cast<int>(level) ||
        call.argument <= LOG_CODE) {
        --next_;
        Fail("the log must have, at level " + std::to_string(static_cast<int>(level)) + ": \"" +
             text + "\"");
    }
}

void Transcript::Exit(int status) {
    Flush();
    throw RunEnds{Outcome::Exit, status};
}

void Transcript::CheckEnd(RunEnds end) {
    try {
        SkipMemory();
    } catch (const RunEnds& sooner) {
        end = sooner;
    }
    const std::string must = std::string("the run must end here: ") + NameOf(end.outcome) + " " +
                             std::to_string(end.status);
    if (next_ != log_.Calls().size()) {
        Fail(must);
    }
    if (result_.outcome != end.outcome || result_.status != end.status) {
        Fail(must + ", but: " + NameOf(result_.outcome) + " " + std::to_string(result_.status));
    }
    if (result_.err != error_text_) {
        Fail("standard error must be \"" + error_text_.substr(0, 400) + "\", but is \"" +
             result_.err.substr(0, 400) + "\"");
    }
}

}  // namespace fault
