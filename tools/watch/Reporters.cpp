// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Reporters.h"

#include <algorithm>

#include "common/Text.h"
#include "tools/watch/ProgressLine.h"
#include "tools/watch/Wrap.h"

namespace tools {

namespace {

const char HIDE_CURSOR[] = "\x1B[?25l";
const char SHOW_CURSOR[] = "\x1B[?25h";

const char CLEAR_LINE[] = "\r\x1B[K";
const char CLEAR_BELOW[] = "\r\x1B[J";

std::string PhaseSentence(const Progress& progress) {
    std::string text = "bbpwatch: ";
    text += bbpflash_phase_name(progress.phase);
    if (progress.pass > 1) {
        text += ", pass " + std::to_string(progress.pass);
    }
    return text + (progress.writes_flash ? ": do not switch off" : "");
}

// All lines of the end's report, without the last line's end.
std::string EndText(const WatchEvent& event, int width) {
    return common::Join(Lines(event.ending, width), "\n");
}

std::size_t Columns(int width) {
    return static_cast<std::size_t>(std::max(width, 0));
}

std::string CheckSentence(const WatchEvent& event, int width) {
    const char* const answer = !event.is_well ? "?    " : *event.is_well ? "yes  " : "NO   ";
    const std::string text = event.name + ": " + common::Escape(event.text);
    return common::Join(WrapBehind(answer, text, Columns(width)), "\n");
}

// As a person reads it, without the last line's end: the updater's lines as they are, bbpwatch's
// own with its name. No line of bbpwatch's own is longer than `width`, where it is not 0.
std::string Sentence(const WatchEvent& event, int width = 0) {
    switch (event.kind) {
        case WatchEvent::Kind::Progress:
        case WatchEvent::Kind::Message:
            return common::Escape(event.text);
        case WatchEvent::Kind::Start:
            return "bbpwatch: started " + common::Escape(common::Join(event.words, " "));
        case WatchEvent::Kind::Phase:
            return PhaseSentence(event.progress);
        case WatchEvent::Kind::Check:
            return CheckSentence(event, width);
        case WatchEvent::Kind::End:
            return EndText(event, width);
        case WatchEvent::Kind::Note:
        case WatchEvent::Kind::Problem:
        case WatchEvent::Kind::Stall:
            break;
    }
    return common::Join(Wrap("bbpwatch: " + common::Escape(event.text), Columns(width)), "\n");
}

}  // namespace

void PeopleReporter::Report(const WatchEvent& event) {
    switch (event.kind) {
        case WatchEvent::Kind::Start:
            return OnStart(event);
        case WatchEvent::Kind::Phase:
            return OnPhase(event);
        case WatchEvent::Kind::Progress:
            return OnProgress(event);
        case WatchEvent::Kind::Message:
        case WatchEvent::Kind::Note:
        case WatchEvent::Kind::Problem:
        case WatchEvent::Kind::Stall:
        case WatchEvent::Kind::Check:
            if (!event.is_detail && !event.text.empty()) {
                OnText(event);
            }
            return;
        case WatchEvent::Kind::End:
            return OnEnd(event);
    }
}

// Draws `text` in the place of the moving line. The cursor rests at that line's beginning, so all
// the rows that a resize has made of it are below.
void TerminalReporter::Draw(const std::string& text, int columns) {
    sink_((columns == last_width_ ? CLEAR_LINE : CLEAR_BELOW) + text);
    last_width_ = columns;
}

void TerminalReporter::PrintAbove(const std::string& line, const Progress& progress) {
    Draw(line + "\n", width_());
    Refresh(progress);
}

void TerminalReporter::OnStart(const WatchEvent& event) {
    sink_(HIDE_CURSOR);
    Refresh(event.progress);
}

void TerminalReporter::OnPhase(const WatchEvent& event) {
    Refresh(event.progress);
}

void TerminalReporter::OnProgress(const WatchEvent& event) {
    Refresh(event.progress);
}

void TerminalReporter::OnText(const WatchEvent& event) {
    const std::string text = Sentence(event, width_() - 1);
    // No update runs while a unit is looked at.
    if (event.kind == WatchEvent::Kind::Check) {
        Draw(text + "\n", width_());
    } else {
        PrintAbove(text, event.progress);
    }
}

void TerminalReporter::OnEnd(const WatchEvent& event) {
    Draw(Sentence(event, width_() - 1) + "\n" + SHOW_CURSOR, width_());
}

void TerminalReporter::Refresh(const Progress& progress) {
    if (progress.phase != BBPFLASH_PHASE_ENDED) {
        const int columns = width_();
        Draw(FormatProgress(progress, columns, has_colour_) + "\r", columns);
    }
}

void PlainReporter::OnPhase(const WatchEvent& event) {
    last_tenth_ = 0;
    if (event.progress.phase != BBPFLASH_PHASE_ENDED) {
        sink_(Sentence(event) + "\n");
    }
}

void PlainReporter::OnProgress(const WatchEvent& event) {
    const int tenth = event.progress.percent / 10;
    if (event.progress.phase == BBPFLASH_PHASE_DOWNLOAD && tenth > last_tenth_) {
        last_tenth_ = tenth;
        sink_("bbpwatch: " + std::to_string(event.progress.percent) + "%\n");
    }
}

void PlainReporter::OnText(const WatchEvent& event) {
    sink_(Sentence(event) + "\n");
}

void PlainReporter::OnEnd(const WatchEvent& event) {
    sink_(Sentence(event) + "\n");
}

void LogReporter::Report(const WatchEvent& event) {
    sink_(clock_() + " " + Sentence(event) + "\n");
}

}  // namespace tools
