// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Ending.h"

#include <algorithm>
#include <utility>

#include "common/Text.h"
#include "tools/watch/ProgressLine.h"
#include "tools/watch/Wrap.h"

namespace tools {

namespace {

constexpr std::size_t LONGEST_WHAT = 160;  // characters; the log has the rest
constexpr std::size_t LABEL_WIDTH = 6;     // of "where" and its like, with the blanks behind

std::string PhaseText(bbpflash_phase phase) {
    switch (phase) {
        case BBPFLASH_PHASE_RESET:
            return "reset and version check";
        case BBPFLASH_PHASE_CHECK:
            return "version check";
        case BBPFLASH_PHASE_DOWNLOAD:
            return "download";
        case BBPFLASH_PHASE_BURN:
            return "burn";
        case BBPFLASH_PHASE_ERASE:
            return "burn (erase)";
        case BBPFLASH_PHASE_PROGRAM:
            return "burn (program)";
        case BBPFLASH_PHASE_VERIFY:
            return "burn (verify)";
        case BBPFLASH_PHASE_ENDED:
            break;
    }
    return "end";
}

std::string WhereText(const Ending& ending) {
    const Position& where = ending.where;
    std::string text = PhaseText(where.phase);
    if (where.pass > 1) {
        text += " of pass " + std::to_string(where.pass);
    }
    if (where.percent > 0) {
        text += ", " + std::to_string(where.percent) + " %";
    }
    if (where.segment) {
        text += ", segment " + std::to_string(*where.segment);
        text += ending.segments > 0 ? " of " + std::to_string(ending.segments) : "";
    }
    return text;
}

// "  what  " and the text, its further lines below its first.
void AddEntry(std::vector<std::string>& lines, std::string label, const std::string& text,
              std::size_t width) {
    if (text.empty()) {
        return;
    }
    label.resize(LABEL_WIDTH, ' ');
    for (std::string& line : WrapBehind("  " + label, text, width)) {
        lines.push_back(std::move(line));
    }
}

std::string Versions(const Ending& ending) {
    return ending.from.empty() || ending.to.empty()
               ? ""
               : common::Escape(ending.from) + " -> " + common::Escape(ending.to);
}

std::string With(const Ending& ending) {
    return ending.updaters_status ? ", status " + std::to_string(*ending.updaters_status) : "";
}

std::string What(const Ending& ending) {
    const std::string text = common::Escape(ending.what);
    return text.size() > LONGEST_WHAT ? text.substr(0, LONGEST_WHAT) + "..." : text;
}

}  // namespace

const char* NameOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::Success:
            return "success";
        case Verdict::Current:
            return "current";
        case Verdict::Answered:
            return "answered";
        case Verdict::Ready:
            return "ready";
        case Verdict::NotReady:
            return "not-ready";
        case Verdict::Refused:
            return "refused";
        case Verdict::Failure:
            return "failure";
        case Verdict::Doubtful:
            return "doubtful";
        case Verdict::Interrupted:
            return "interrupted";
        case Verdict::NotStarted:
            break;
    }
    return "not-started";
}

bool IsGood(Verdict verdict) {
    return verdict == Verdict::Success || verdict == Verdict::Current ||
           verdict == Verdict::Answered || verdict == Verdict::Ready;
}

std::string Headline(const Ending& ending) {
    const std::string time = FormatTime(ending.elapsed);
    const std::string versions = Versions(ending);
    switch (ending.verdict) {
        case Verdict::Success:
            return versions.empty() ? "updated and verified after " + time
                                    : versions + ", verified, " + time;
        case Verdict::Current:
            return "up to date" + (ending.to.empty() ? "" : ": " + common::Escape(ending.to)) +
                   ", nothing was written, " + time;
        case Verdict::Answered:
            return "done after " + time;
        case Verdict::Ready:
            return "ready for an update";
        case Verdict::NotReady:
            return "not ready for an update";
        case Verdict::Refused:
            return "the chip refuses the image, after " + time;
        case Verdict::Failure:
            return "failed after " + time + With(ending);
        case Verdict::Doubtful:
            return "the outcome is in doubt after " + time + With(ending);
        case Verdict::Interrupted:
            return "ended on request after " + time;
        case Verdict::NotStarted:
            break;
    }
    return ending.what.empty() ? "not started" : "not started: " + What(ending);
}

std::vector<std::string> Lines(const Ending& ending, int width) {
    const std::size_t columns = static_cast<std::size_t>(std::max(width, 0));
    std::vector<std::string> lines = Wrap("bbpwatch: " + Headline(ending), columns);
    if (IsGood(ending.verdict) || ending.verdict == Verdict::NotReady) {
        return lines;
    }
    if (ending.verdict != Verdict::NotStarted) {
        AddEntry(lines, "what", What(ending), columns);
        AddEntry(lines, "where", WhereText(ending), columns);
        AddEntry(lines, "chip", AdviceFor(ending.content).meaning, columns);
    }
    AddEntry(lines, "next", ending.next, columns);
    AddEntry(lines, "log", common::Escape(ending.log), columns);
    return lines;
}

}  // namespace tools
