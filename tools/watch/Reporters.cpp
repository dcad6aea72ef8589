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
        case WatchEvent::START:
            return "start";
        case WatchEvent::PHASE:
            return "phase";
        case WatchEvent::PROGRESS:
            return "progress";
        case WatchEvent::MESSAGE:
            return "message";
        case WatchEvent::NOTE:
            return "note";
        case WatchEvent::PROBLEM:
            return "problem";
        case WatchEvent::STALL:
            return "stall";
        case WatchEvent::END:
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
    return kind == WatchEvent::NOTE || kind == WatchEvent::PROBLEM || kind == WatchEvent::STALL ||
           kind == WatchEvent::END;
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
    sink((columns == last_width ? CLEAR_LINE : CLEAR_BELOW) + text);
    last_width = columns;
}

void TerminalReporter::PrintAbove(const std::string& line, const Progress& progress) {
    Draw(line + "\n", width());
    Refresh(progress);
}

void TerminalReporter::Report(const WatchEvent& event) {
    switch (event.kind) {
        case WatchEvent::START:
            sink(HIDE_CURSOR);
            Refresh(event.progress);
            break;
        case WatchEvent::END:
            Draw(Sentence(event) + "\n" + SHOW_CURSOR, width());
            break;
        case WatchEvent::PHASE:
        case WatchEvent::PROGRESS:
            Refresh(event.progress);
            break;
        case WatchEvent::MESSAGE:
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
        const int columns = width();
        Draw(FormatProgress(progress, columns, has_colour) + "\r", columns);
    }
}

void PlainReporter::Report(const WatchEvent& event) {
    switch (event.kind) {
        case WatchEvent::START:
            break;
        case WatchEvent::PHASE:
            last_tenth = 0;
            if (event.progress.phase != BBPFLASH_PHASE_ENDED) {
                sink(PhaseSentence(event.progress) + "\n");
            }
            break;
        case WatchEvent::PROGRESS:
            if (event.progress.phase == BBPFLASH_PHASE_DOWNLOAD &&
                event.progress.percent / 10 > last_tenth) {
                last_tenth = event.progress.percent / 10;
                sink("bbpwatch: " + std::to_string(event.progress.percent) + "%\n");
            }
            break;
        case WatchEvent::MESSAGE:
            if (!event.text.empty()) {
                sink(Sentence(event) + "\n");
            }
            break;
        default:
            sink(Sentence(event) + "\n");
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
    if (event.kind == WatchEvent::MESSAGE) {
        json["level"] = NameOf(event.level);
    }
    if (event.kind == WatchEvent::END) {
        json["status"] = event.status;
        json["verdict"] = NameOf(event.verdict);
    }
    sink(json.dump() + "\n");
}

void LogReporter::Report(const WatchEvent& event) {
    std::string text = Sentence(event);
    switch (event.kind) {
        case WatchEvent::START:
            text = "bbpwatch: started " + Escape(event.text);
            break;
        case WatchEvent::PHASE:
            text = PhaseSentence(event.progress);
            break;
        default:
            break;
    }
    sink(clock() + " " + text + "\n");
}

}  // namespace tools
