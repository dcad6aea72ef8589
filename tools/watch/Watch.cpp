// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Watch.h"

#include <cstdlib>
#include <utility>

#include "tools/watch/ProgressLine.h"

namespace tools {

Watch::Watch(const WatchConfig& config, std::vector<Reporter*> reporters)
    : config_(config),
      reporters_(std::move(reporters)),
      update_(config.download),
      shield_(config.mode, config.segments),
      parser_(config.mode, [this](const bbpflash_event& event) { TakeEvent(event); }) {}

void Watch::Start(const std::string& command) {
    Tell(WatchEvent::Kind::Start, command);
}

void Watch::Take(const char* bytes, std::size_t size, Milliseconds now) {
    HearSomething(now);
    parser_.Feed(bytes, size);
}

void Watch::TakeError(const char* bytes, std::size_t size, Milliseconds now) {
    HearSomething(now);
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] != '\n') {
            error_line_ += bytes[i];
        }
        if (bytes[i] == '\n' || error_line_.size() == BBPFLASH_LONGEST_LINE) {
            Tell(WatchEvent::Kind::Message, error_line_);
            error_line_.clear();
        }
    }
}

void Watch::HearSomething(Milliseconds now) {
    time_ = now;
    last_heard_ = now;
    is_silent_ = false;
}

void Watch::TakeEvent(const bbpflash_event& event) {
    update_.Take(event, time_);
    const std::string text(event.text, event.size);
    if (event.phase != phase_ || event.pass != pass_) {
        phase_ = event.phase;
        pass_ = event.pass;
        refused_requests_ = 0;
        Tell(WatchEvent::Kind::Phase);
    }
    const bool is_protocol = event.line == BBPFLASH_LINE_PERCENT ||
                             event.line == BBPFLASH_LINE_DONE || event.line == BBPFLASH_LINE_ERROR;
    Tell(is_protocol ? WatchEvent::Kind::Progress : WatchEvent::Kind::Message, text, event.level);
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

void Watch::Tick(Milliseconds now) {
    time_ = now;
    if (!is_silent_ && now - last_heard_ > config_.stall) {
        is_silent_ = true;
        has_stalled_ = true;
        Tell(WatchEvent::Kind::Stall,
             "the updater has been silent for " + FormatTime(now - last_heard_) + " minutes");
    }
    const Progress progress = update_.At(now);
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
    const Ruling ruling =
        config_.only_asks ? Ruling{Ruling::What::End, ""} : shield_.Judge(update_, now);
    if (ruling.what == Ruling::What::End) {
        return true;
    }
    if (ruling.what == Ruling::What::Wait) {
        is_requested_ = false;
        refused_requests_ += 1;
        Tell(WatchEvent::Kind::Note,
             refused_requests_ == 1 ? "not now: do not switch off or interrupt; once more tells why"
                                    : "still waiting: " + ruling.reason);
    }
    return false;
}

void Watch::CannotEnd(const std::string& reason, Milliseconds now) {
    time_ = now;
    is_requested_ = false;
    Tell(WatchEvent::Kind::Note, "the update goes on: " + reason);
}

void Watch::HangUp(Milliseconds now) {
    time_ = now;
    Tell(WatchEvent::Kind::Note, "hung up; the update goes on");
}

int Watch::Finish(int status, bool was_requested, Milliseconds now) {
    time_ = now;
    if (!error_line_.empty()) {
        Tell(WatchEvent::Kind::Message, error_line_);
    }
    bbpflash_verdict verdict = parser_.Finish(status);
    TellProblems(parser_.Problems(), "");
    if (has_stalled_ && verdict == BBPFLASH_VERDICT_SUCCESS) {
        verdict = BBPFLASH_VERDICT_DOUBTFUL;
    }

    WatchEvent event;
    event.kind = WatchEvent::Kind::End;
    event.progress = update_.At(now);
    event.verdict = verdict;
    event.status = status;
    if (status == BBPFLASH_STATUS_UNKNOWN) {
        event.status = verdict == BBPFLASH_VERDICT_FAILURE ? EXIT_FAILURE : EXIT_SUCCESS;
    }
    if (event.status == EXIT_SUCCESS && verdict != BBPFLASH_VERDICT_SUCCESS) {
        event.status = STATUS_DOUBTFUL;
    }
    event.text = Ending(status, was_requested, verdict);
    for (Reporter* const reporter : reporters_) {
        reporter->Report(event);
    }
    return event.status;
}

std::string Watch::Ending(int status, bool was_requested, bbpflash_verdict verdict) const {
    const std::string after = " after " + FormatTime(time_);
    const std::string with =
        status == BBPFLASH_STATUS_UNKNOWN ? "" : ", status " + std::to_string(status);
    if (was_requested) {
        const bool is_untouched = pass_ == 0 || (pass_ == 1 && phase_ == BBPFLASH_PHASE_DOWNLOAD);
        return "ended on request" + after +
               (is_untouched ? "; the chip keeps the firmware that it has" : "");
    }
    if (config_.only_asks && verdict != BBPFLASH_VERDICT_DOUBTFUL) {
        return (verdict == BBPFLASH_VERDICT_SUCCESS ? "done" : "failed" + with) + after;
    }
    switch (verdict) {
        case BBPFLASH_VERDICT_SUCCESS:
            return (pass_ == 0 ? "up to date" : "updated and verified") + after;
        case BBPFLASH_VERDICT_FAILURE:
            return "the update failed" + with + after;
        case BBPFLASH_VERDICT_DOUBTFUL:
            break;
    }
    return "the outcome is in doubt" + with + after + ": " +
           (has_stalled_ ? "the updater was silent for too long"
                         : "the updater contradicts itself") +
           "; ask the unit with bbpflash -i";
}

void Watch::Tell(WatchEvent::Kind kind, const std::string& text, bbpflash_level level) {
    WatchEvent event;
    event.kind = kind;
    event.progress = update_.At(time_);
    event.text = text;
    event.level = level;
    for (Reporter* const reporter : reporters_) {
        reporter->Report(event);
    }
}

}  // namespace tools
