// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Watch.h"

#include <cstdlib>
#include <utility>

#include "tools/watch/ProgressLine.h"

namespace tools {

Watch::Watch(const WatchConfig& the_config, std::vector<Reporter*> the_reporters)
    : config(the_config),
      reporters(std::move(the_reporters)),
      update(the_config.download),
      shield(the_config.mode, the_config.segments),
      parser(the_config.mode, [this](const bbpflash_event& event) { TakeEvent(event); }) {}

void Watch::Start(const std::string& command) {
    Tell(WatchEvent::START, command);
}

void Watch::Take(const char* bytes, std::size_t size, Milliseconds now) {
    HearSomething(now);
    parser.Feed(bytes, size);
}

void Watch::TakeError(const char* bytes, std::size_t size, Milliseconds now) {
    HearSomething(now);
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] != '\n') {
            error_line += bytes[i];
        }
        if (bytes[i] == '\n' || error_line.size() == BBPFLASH_LONGEST_LINE) {
            Tell(WatchEvent::MESSAGE, error_line);
            error_line.clear();
        }
    }
}

void Watch::HearSomething(Milliseconds now) {
    time = now;
    last_heard = now;
    is_silent = false;
}

void Watch::TakeEvent(const bbpflash_event& event) {
    update.Take(event, time);
    const std::string text(event.text, event.size);
    if (event.phase != phase || event.pass != pass) {
        phase = event.phase;
        pass = event.pass;
        refused_requests = 0;
        Tell(WatchEvent::PHASE);
    }
    const bool is_protocol = event.line == BBPFLASH_LINE_PERCENT ||
                             event.line == BBPFLASH_LINE_DONE || event.line == BBPFLASH_LINE_ERROR;
    Tell(is_protocol ? WatchEvent::PROGRESS : WatchEvent::MESSAGE, text, event.level);
    TellProblems(event.problems, text);
}

// Each kind of problem once: one that repeats has nothing new to say.
void Watch::TellProblems(unsigned problems, const std::string& line) {
    for (unsigned bit = 1; bit != 0 && bit <= problems; bit <<= 1) {
        if ((problems & bit & ~told_problems) != 0) {
            const std::string what = bbpflash_problem_text(static_cast<bbpflash_problem>(bit));
            Tell(WatchEvent::PROBLEM, line.empty() ? what : what + ": " + line);
            told_problems |= bit;
        }
    }
}

void Watch::Tick(Milliseconds now) {
    time = now;
    if (!is_silent && now - last_heard > config.stall) {
        is_silent = true;
        has_stalled = true;
        Tell(WatchEvent::STALL,
             "the updater has been silent for " + FormatTime(now - last_heard) + " minutes");
    }
    const Progress progress = update.At(now);
    for (Reporter* const reporter : reporters) {
        reporter->Refresh(progress);
    }
}

void Watch::Request(const std::string& signal, Milliseconds now) {
    time = now;
    is_requested = true;
    Tell(WatchEvent::NOTE, signal + " received");
}

bool Watch::MayEnd(Milliseconds now) {
    time = now;
    const Ruling ruling = config.only_asks ? Ruling{Ruling::END, ""} : shield.Judge(update, now);
    if (ruling.what == Ruling::END) {
        return true;
    }
    if (ruling.what == Ruling::WAIT) {
        is_requested = false;
        refused_requests += 1;
        Tell(WatchEvent::NOTE, refused_requests == 1
                                   ? "not now: do not switch off or interrupt; once more tells why"
                                   : "still waiting: " + ruling.reason);
    }
    return false;
}

void Watch::HangUp(Milliseconds now) {
    time = now;
    Tell(WatchEvent::NOTE, "hung up; the update goes on");
}

int Watch::Finish(int status, bool was_requested, Milliseconds now) {
    time = now;
    if (!error_line.empty()) {
        Tell(WatchEvent::MESSAGE, error_line);
    }
    bbpflash_verdict verdict = parser.Finish(status);
    TellProblems(parser.Problems(), "");
    if (has_stalled && verdict == BBPFLASH_VERDICT_SUCCESS) {
        verdict = BBPFLASH_VERDICT_DOUBTFUL;
    }

    WatchEvent event;
    event.kind = WatchEvent::END;
    event.progress = update.At(now);
    event.verdict = verdict;
    event.status = status;
    if (status == BBPFLASH_STATUS_UNKNOWN) {
        event.status = verdict == BBPFLASH_VERDICT_FAILURE ? EXIT_FAILURE : EXIT_SUCCESS;
    }
    if (event.status == EXIT_SUCCESS && verdict != BBPFLASH_VERDICT_SUCCESS) {
        event.status = STATUS_DOUBTFUL;
    }
    event.text = Ending(status, was_requested, verdict);
    for (Reporter* const reporter : reporters) {
        reporter->Report(event);
    }
    return event.status;
}

std::string Watch::Ending(int status, bool was_requested, bbpflash_verdict verdict) const {
    const std::string after = " after " + FormatTime(time);
    const std::string with =
        status == BBPFLASH_STATUS_UNKNOWN ? "" : ", status " + std::to_string(status);
    if (was_requested) {
        const bool is_untouched = pass == 0 || (pass == 1 && phase == BBPFLASH_PHASE_DOWNLOAD);
        return "ended on request" + after +
               (is_untouched ? "; the chip keeps the firmware that it has" : "");
    }
    if (config.only_asks && verdict != BBPFLASH_VERDICT_DOUBTFUL) {
        return (verdict == BBPFLASH_VERDICT_SUCCESS ? "done" : "failed" + with) + after;
    }
    switch (verdict) {
        case BBPFLASH_VERDICT_SUCCESS:
            return (pass == 0 ? "up to date" : "updated and verified") + after;
        case BBPFLASH_VERDICT_FAILURE:
            return "the update failed" + with + after;
        case BBPFLASH_VERDICT_DOUBTFUL:
            break;
    }
    return "the outcome is in doubt" + with + after + ": " +
           (has_stalled ? "the updater was silent for too long"
                        : "the updater contradicts itself") +
           "; ask the unit with bbpflash -i";
}

void Watch::Tell(WatchEvent::Kind kind, const std::string& text, bbpflash_level level) {
    WatchEvent event;
    event.kind = kind;
    event.progress = update.At(time);
    event.text = text;
    event.level = level;
    for (Reporter* const reporter : reporters) {
        reporter->Report(event);
    }
}

}  // namespace tools
