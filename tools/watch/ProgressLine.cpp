// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/ProgressLine.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace tools {

namespace {

const char WARNING[] = "do not switch off";
const char WARNING_COLOUR[] = "\x1B[1;31m";
const char NO_COLOUR[] = "\x1B[0m";

constexpr int LONGEST_BAR = 40;
constexpr int SHORTEST_BAR = 8;
constexpr int BRACKETS = 2;

// The pieces of a line with a blank between them, without those that are empty.
std::string Join(const std::vector<std::string>& pieces) {
    std::string line;
    for (const std::string& piece : pieces) {
        if (!piece.empty()) {
            line += line.empty() ? piece : " " + piece;
        }
    }
    return line;
}

std::string Bar(double done, int length) {
    const int filled = std::clamp(static_cast<int>(done * length), 0, length);
    return "[" + std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(length - filled), '.') + "]";
}

// Two digits are kept for the reader's eye to stay where it is.
std::string Percentage(double done) {
    char text[8];
    std::snprintf(text, sizeof text, "%3d%%", std::clamp(static_cast<int>(done * 100), 0, 100));
    return text;
}

std::string Name(const Progress& progress) {
    std::string name = bbpflash_phase_name(progress.phase);
    name.resize(std::max<std::size_t>(name.size(), 8), ' ');
    return name;
}

// What is to be expected, as far as anybody knows.
std::string Outlook(const Progress& progress) {
    if (progress.no_answer) {
        return "no answer for " + FormatTime(*progress.no_answer);
    }
    if (progress.is_refused) {
        return "refused";
    }
    return progress.remaining ? "about " + FormatTime(*progress.remaining) + " left" : "";
}

}  // namespace

std::string FormatTime(Milliseconds time) {
    const long long seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    char text[32];
    if (seconds >= 3600) {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60,
                      seconds % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld", seconds / 60, seconds % 60);
    }
    return text;
}

std::string FormatProgress(const Progress& progress, int width, bool has_colour) {
    const int room = std::max(width - 1, 0);
    const std::string warning = progress.writes_flash ? WARNING : "";
    const std::string percentage = Percentage(progress.done);
    const std::string pass = progress.pass > 1 ? "pass " + std::to_string(progress.pass) : "";
    const std::string elapsed = FormatTime(progress.elapsed);
    const std::string remaining = Outlook(progress);
    const std::string name = Name(progress);

    const auto fits = [room](const std::string& line) {
        return static_cast<int>(line.size()) <= room;
    };
    // From the richest to the barest; a "%" stands for the bar.
    const std::vector<std::vector<std::string>> layouts = {
        {pass, name, "%", percentage, elapsed, remaining, warning},
        {pass, name, "%", percentage, remaining, warning},
        {name, "%", percentage, remaining.empty() || !warning.empty() ? "" : remaining, warning},
        {pass, name, percentage, remaining, warning},
        {name, percentage, warning},
        {percentage, warning},
        {warning.empty() ? percentage : warning},
    };
    std::string line;
    for (std::vector<std::string> pieces : layouts) {
        const auto bar = std::find(pieces.begin(), pieces.end(), "%");
        if (bar != pieces.end()) {
            const int others = static_cast<int>(Join(pieces).size()) - 1;
            const int length = std::min(room - others - BRACKETS, LONGEST_BAR);
            if (length < SHORTEST_BAR) {
                continue;
            }
            *bar = Bar(progress.done, length);
        }
        line = Join(pieces);
        if (fits(line)) {
            break;
        }
    }
    line = line.substr(0, static_cast<std::size_t>(room));
    const std::size_t at = warning.empty() ? std::string::npos : line.rfind(warning);
    if (has_colour && at != std::string::npos) {
        line = line.substr(0, at) + WARNING_COLOUR + line.substr(at) + NO_COLOUR;
    }
    return line;
}

}  // namespace tools
