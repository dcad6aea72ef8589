// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Watch.h"

#include <utility>

#include "tools/watch/Judgement.h"
#include "tools/watch/ProgressLine.h"

namespace tools {

namespace {

// So long after the last progress errors mean that the chip answers nothing any more.
constexpr Milliseconds NO_ANSWER(10000);

// So long a refusal must stay the chip's last word; it is asked several times meanwhile.
constexpr Milliseconds SURE_REFUSAL(3000);

bool IsError(bbpflash_level level) {
    return level == BBPFLASH_LEVEL_ERROR || level == BBPFLASH_LEVEL_CRITICAL;
}

// Standard error has dumps in hexadecimal, and what other programs say.
bool LooksLikeDump(const std::string& line) {
    return line.find_first_not_of("0123456789abcdefABCDEF \t:") == std::string::npos;
}

}  // namespace

Watch::Watch(const WatchConfig& config, std::vector<Reporter*> reporters)
    : config_(config),
      reporters_(std::move(reporters)),
      update_(config.download),
      record_(config.segments),
      shield_(config.segments),
      parser_(BBPFLASH_MODE_UNKNOWN, [this](const bbpflash_event& event) { TakeEvent(event); }) {}

void Watch::Start(const std::vector<std::string>& command) {
    WatchEvent event = Event(WatchEvent::Kind::Start, "");
    event.words = command;
    Tell(event);
}

void Watch::Take(const char* bytes, std::size_t size, Milliseconds now) {
    time_ = now;
    parser_.Feed(bytes, size);
}

void Watch::TakeError(const char* bytes, std::size_t size, Milliseconds now) {
    time_ = now;
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] != '\n') {
            error_line_ += bytes[i];
        }
        if (bytes[i] == '\n' || error_line_.size() == BBPFLASH_LONGEST_LINE) {
            EndErrorLine();
        }
    }
}

void Watch::EndErrorLine() {
    WatchEvent event = Event(WatchEvent::Kind::Message, error_line_);
    event.is_detail = LooksLikeDump(error_line_);
    Tell(event);
    error_line_.clear();
}

void Watch::TakeEvent(const bbpflash_event& event) {
    update_.Take(event, time_);
    record_.Take(event);
    const std::string text(event.text, event.size);
    const bbpflash_phase phase = update_.At(time_).phase;
    if (phase != phase_ || event.pass != pass_) {
        phase_ = phase;
        pass_ = event.pass;
        Tell(WatchEvent::Kind::Phase);
    }
    if (IsError(event.level)) {
        last_error_ = time_;
        has_failed_ = true;
    }
    const bool is_protocol = event.line == BBPFLASH_LINE_PERCENT ||
                             event.line == BBPFLASH_LINE_DONE || event.line == BBPFLASH_LINE_ERROR;
    WatchEvent told =
        Event(is_protocol ? WatchEvent::Kind::Progress : WatchEvent::Kind::Message, text);
    told.level = event.level;
    // Beginning with its first error the updater shows everything, and what counts of it stands in
    // the end's report.
    told.is_detail = config_.is_talkative || has_failed_ || event.line == BBPFLASH_LINE_DUMP;
    Tell(told);
    TellProblems(event.problems, text);
}

// Each kind of problem once: one that repeats has nothing new to say.
void Watch::TellProblems(unsigned problems, const std::string& line) {
    for (unsigned bit = 1; bit != 0 && bit <= problems; bit <<= 1) {
        if ((problems & bit & ~told_problems_) != 0) {
            const std::string what = bbpflash_problem_text(static_cast<bbpflash_problem>(bit));
            Tell(WatchEvent::Kind::Problem, line.empty() ? what : what + ": " + line);
            told_problems_ |= bit;
        }
    }
}

bool Watch::HasNoAnswer() const {
    const Milliseconds since = update_.LastProgress();
    return has_failed_ && last_error_ > since && time_ - since > NO_ANSWER &&
           time_ - last_error_ < NO_ANSWER && !update_.RefusedSince();
}

void Watch::LookForAnswers() {
    const Milliseconds since = update_.LastProgress();
    if (!HasNoAnswer() || silence_of_ == since) {
        return;
    }
    silence_of_ = since;
    const bool writes_flash = update_.At(time_).writes_flash;
    Tell(WatchEvent::Kind::Stall,
         "the chip has stopped answering at " + FormatTime(since) +
             (writes_flash ? ", and it may still be writing its flash: do not switch off"
                           : "; what it had before is untouched"));
}

void Watch::LookForProgress() {
    const Milliseconds since = update_.LastProgress();
    if (time_ - since <= config_.stall || stall_of_ == since || update_.RefusedSince()) {
        return;
    }
    stall_of_ = since;
    const Progress progress = update_.At(time_);
    const std::string phase = bbpflash_phase_name(progress.phase);
    const bool may_end = shield_.Judge(update_, record_.Mode(), time_).what == Ruling::What::End;
    Tell(WatchEvent::Kind::Stall,
         "no progress for " + FormatTime(time_ - since) + " minutes in the phase " + phase +
             (may_end ? "; Ctrl-C ends the updater now" : "; Ctrl-C must wait"));
}

void Watch::Tick(Milliseconds now) {
    time_ = now;
    LookForAnswers();
    LookForProgress();
    const Progress progress = Event(WatchEvent::Kind::Progress, "").progress;
    for (Reporter* const reporter : reporters_) {
        reporter->Refresh(progress);
    }
}

void Watch::Request(const std::string& signal, Milliseconds now) {
    time_ = now;
    is_requested_ = true;
    Tell(WatchEvent::Kind::Note, signal + " received");
}

bool Watch::MayEnd(Milliseconds now) {
    time_ = now;
    if (config_.only_asks || IsOver(now)) {
        return true;
    }
    const Ruling ruling = shield_.Judge(update_, record_.Mode(), now);
    if (ruling.what == Ruling::What::Wait) {
        is_requested_ = false;
        Tell(WatchEvent::Kind::Note, "not now: " + ruling.reason);
    }
    return ruling.what == Ruling::What::End;
}

void Watch::CannotEnd(const std::string& reason, Milliseconds now) {
    time_ = now;
    is_requested_ = false;
    Tell(WatchEvent::Kind::Note, "the updater cannot be ended: " + reason);
}

bool Watch::IsOver(Milliseconds now) const {
    const std::optional<Milliseconds> since = update_.RefusedSince();
    return since && now - *since >= SURE_REFUSAL;
}

void Watch::HangUp(Milliseconds now) {
    time_ = now;
    Tell(WatchEvent::Kind::Note, "hung up; the update goes on");
}

int Watch::Finish(int status, bool was_requested, Milliseconds now) {
    time_ = now;
    if (!error_line_.empty()) {
        EndErrorLine();
    }
    Evidence evidence;
    evidence.status = status;
    evidence.was_requested = was_requested;
    evidence.is_only_heard = config_.is_only_heard;
    evidence.is_over = IsOver(now) && (was_requested || config_.is_only_heard);
    evidence.is_slow = Shield::IsOverdue(update_, now);
    evidence.stream = parser_.Finish(status);
    unsigned problems = parser_.Problems();

    WatchEvent event = Event(WatchEvent::Kind::End, "");
    event.ending = Judge(record_, evidence);
    if (event.ending.verdict == Verdict::Doubtful && problems == 0) {
        problems = BBPFLASH_PROBLEM_NO_END;
    }
    if (!was_requested) {
        TellProblems(problems, "");
    }
    Complete(event, status);
    Tell(event);
    return event.ending.status;
}

// Times, versions and the log, which the judgement does not need.
void Watch::Complete(WatchEvent& event, int status) const {
    Ending& ending = event.ending;
    ending.elapsed = time_;
    ending.log = config_.log;
    if (status != BBPFLASH_STATUS_UNKNOWN) {
        ending.updaters_status = status;
    }
    ending.from = record_.From();
    const bool has_new = ending.verdict == Verdict::Success || ending.verdict == Verdict::Current;
    ending.to = has_new && record_.Label().empty() ? config_.label : record_.Label();
    if (has_new) {
        event.progress.done = 1;
    }
}

WatchEvent Watch::Event(WatchEvent::Kind kind, const std::string& text) const {
    WatchEvent event;
    event.kind = kind;
    event.text = text;
    event.progress = update_.At(time_);
    if (HasNoAnswer()) {
        event.progress.no_answer = time_ - update_.LastProgress();
        event.progress.remaining.reset();
    }
    return event;
}

void Watch::Tell(const WatchEvent& event) {
    for (Reporter* const reporter : reporters_) {
        reporter->Report(event);
    }
}

}  // namespace tools
