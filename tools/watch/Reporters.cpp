// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Reporters.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/image/VisibleText.h"
#include "tools/watch/ProgressLine.h"

namespace tools {

namespace {

const char HIDE_CURSOR[] = "\x1B[?25l";
const char SHOW_CURSOR[] = "\x1B[?25h";

const char CLEAR_LINE[] = "\r\x1B[K";
const char CLEAR_BELOW[] = "\r\x1B[J";

double Seconds(Milliseconds time) {
    return static_cast<double>(time.count()) / 1000;
}

const char* NameOf(WatchEvent::Kind kind) {
    switch (kind) {
        case WatchEvent::Kind::Start:
            return "start";
        case WatchEvent::Kind::Phase:
            return "phase";
        case WatchEvent::Kind::Progress:
            return "progress";
        case WatchEvent::Kind::Message:
            return "message";
        case WatchEvent::Kind::Note:
            return "note";
        case WatchEvent::Kind::Problem:
            return "problem";
        case WatchEvent::Kind::Stall:
            return "stall";
        case WatchEvent::Kind::End:
            break;
    }
    return "end";
}

const char* NameOf(bbpflash_verdict verdict) {
    switch (verdict) {
        case BBPFLASH_VERDICT_SUCCESS:
            return "success";
        case BBPFLASH_VERDICT_FAILURE:
            return "failure";
        case BBPFLASH_VERDICT_DOUBTFUL:
            break;
    }
    return "doubtful";
}

const char* NameOf(bbpflash_level level) {
    switch (level) {
        case BBPFLASH_LEVEL_PLAIN:
            return "plain";
        case BBPFLASH_LEVEL_CRITICAL:
            return "critical";
        case BBPFLASH_LEVEL_ERROR:
            return "error";
        case BBPFLASH_LEVEL_WARNING:
            return "warning";
        case BBPFLASH_LEVEL_INFO:
            return "info";
        case BBPFLASH_LEVEL_NONE:
            break;
    }
    return "none";
}

bool HasOwnLine(WatchEvent::Kind kind) {
    return kind == WatchEvent::Kind::Note || kind == WatchEvent::Kind::Problem ||
           kind == WatchEvent::Kind::Stall || kind == WatchEvent::Kind::End;
}

// As a person reads it: the updater's lines as they are, bbpwatch's own with its name.
std::string Sentence(const WatchEvent& event) {
    return (HasOwnLine(event.kind) ? "bbpwatch: " : "") + Escape(event.text);
}

std::string PhaseSentence(const Progress& progress) {
    std::string text = "bbpwatch: ";
    text += bbpflash_phase_name(progress.phase);
    if (progress.pass > 1) {
        text += ", pass " + std::to_string(progress.pass);
    }
    return text + (progress.writes_flash ? ": do not switch off" : "");
}

}  // namespace

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

void TerminalReporter::Report(const WatchEvent& event) {
    switch (event.kind) {
        case WatchEvent::Kind::Start:
            sink_(HIDE_CURSOR);
            Refresh(event.progress);
            break;
        case WatchEvent::Kind::End:
            Draw(Sentence(event) + "\n" + SHOW_CURSOR, width_());
            break;
        case WatchEvent::Kind::Phase:
        case WatchEvent::Kind::Progress:
            Refresh(event.progress);
            break;
        case WatchEvent::Kind::Message:
            if (!event.text.empty()) {
                PrintAbove(Sentence(event), event.progress);
            }
            break;
        default:
            PrintAbove(Sentence(event), event.progress);
            break;
    }
}

void TerminalReporter::Refresh(const Progress& progress) {
    if (progress.phase != BBPFLASH_PHASE_ENDED) {
        const int columns = width_();
        Draw(FormatProgress(progress, columns, has_colour_) + "\r", columns);
    }
}

void PlainReporter::Report(const WatchEvent& event) {
    switch (event.kind) {
        case WatchEvent::Kind::Start:
            break;
        case WatchEvent::Kind::Phase:
            last_tenth_ = 0;
            if (event.progress.phase != BBPFLASH_PHASE_ENDED) {
                sink_(PhaseSentence(event.progress) + "\n");
            }
            break;
        case WatchEvent::Kind::Progress:
            if (event.progress.phase == BBPFLASH_PHASE_DOWNLOAD &&
                event.progress.percent / 10 > last_tenth_) {
                last_tenth_ = event.progress.percent / 10;
                sink_("bbpwatch: " + std::to_string(event.progress.percent) + "%\n");
            }
            break;
        case WatchEvent::Kind::Message:
            if (!event.text.empty()) {
                sink_(Sentence(event) + "\n");
            }
            break;
        default:
            sink_(Sentence(event) + "\n");
            break;
    }
}

void JsonReporter::Report(const WatchEvent& event) {
    const Progress& progress = event.progress;
    nlohmann::json json = {{"event", NameOf(event.kind)},
                           {"elapsed", Seconds(progress.elapsed)},
                           {"phase", bbpflash_phase_name(progress.phase)},
                           {"pass", progress.pass},
                           {"percent", progress.percent},
                           {"done", std::round(progress.done * 1000) / 1000},
                           {"writes_flash", progress.writes_flash}};
    if (progress.remaining) {
        json["remaining"] = Seconds(*progress.remaining);
    }
    if (!event.text.empty()) {
        json["text"] = Escape(event.text);
    }
    if (event.kind == WatchEvent::Kind::Message) {
        json["level"] = NameOf(event.level);
    }
    if (event.kind == WatchEvent::Kind::End) {
        json["status"] = event.status;
        json["verdict"] = NameOf(event.verdict);
    }
    sink_(json.dump() + "\n");
}

void LogReporter::Report(const WatchEvent& event) {
    std::string text = Sentence(event);
    switch (event.kind) {
        case WatchEvent::Kind::Start:
            text = "bbpwatch: started " + Escape(event.text);
            break;
        case WatchEvent::Kind::Phase:
            text = PhaseSentence(event.progress);
            break;
        default:
            break;
    }
    sink_(clock_() + " " + text + "\n");
}

}  // namespace tools
