// SPDX-License-Identifier: Apache-2.0
#include "tools/stream/LineParser.h"

#include <algorithm>
#include <climits>
#include <string>

namespace tools {

namespace {

// The updater cuts a message at this many bytes, its source position first.
constexpr std::size_t LONGEST_MESSAGE = 751;

struct Marker {
    std::string_view text;
    bbpflash_level level;
};
constexpr Marker MARKERS[] = {
    {" MSG: ", BBPFLASH_LEVEL_PLAIN},   {" CRITICAL: ", BBPFLASH_LEVEL_CRITICAL},
    {" ERROR: ", BBPFLASH_LEVEL_ERROR}, {" WRN: ", BBPFLASH_LEVEL_WARNING},
    {" INF: ", BBPFLASH_LEVEL_INFO},
};

constexpr std::string_view OPTIONS_START = "== options start ===========";
constexpr std::string_view OPTIONS_END = "== options end =============";

// The plain messages with a text from outside, which may hold line breaks, and how they end.
constexpr std::string_view VERSION_MESSAGE = "Installed firmware version is \"";
constexpr std::string_view SENDING_MESSAGE = "Sending \"";
constexpr std::string_view SENDING_END = "\" to BBP";

constexpr std::string_view DUMP_BEGINNINGS[] = {
    "\tLM Header information",
    "\t\t[0]  sync:     0x",
    "\t\t[1]  sync:     0x",
    "\t\t[2]  count:    ",
    "\t\t[3]  instance: ",
    "\t\t[4]  length:   ",
    "\t\t[6]  opcode:   0x",
    "\t\t[7]  abort:    0x",
    "\t\t[8]  num segs: ",
    "\t\t[10] curr seg: ",
    "\t\t[last] LM checksum: ",
    "\tI2C information (add fmt stop txlen rxlen): 0x",
    "\tI2C chunk [",
    "I2C message chunk, addr[0]=0x",
};

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsNameCharacter(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '.';
}

// The text without its source position, " @<file>:<line>"; the whole text where there is none.
std::string_view WithoutPosition(std::string_view text) {
    std::size_t at = text.size();
    while (at > 0 && IsDigit(text[at - 1])) {
        --at;
    }
    if (at == text.size() || at == 0 || text[at - 1] != ':') {
        return text;
    }
    --at;
    while (at > 0 && IsNameCharacter(text[at - 1])) {
        --at;
    }
    return EndsWith(text.substr(0, at), " @") ? text.substr(0, at - 2) : text;
}

bool HasPosition(std::string_view text) {
    return WithoutPosition(text).size() != text.size();
}

bool IsDump(std::string_view text) {
    return text.empty() ||
           std::any_of(std::begin(DUMP_BEGINNINGS), std::end(DUMP_BEGINNINGS),
                       [text](std::string_view beginning) { return StartsWith(text, beginning); });
}

// A decimal number without leading zeros. Larger ones than an int holds become the nearest.
bool ParseNumber(std::string_view text, int& number) {
    const bool is_negative = StartsWith(text, "-");
    const std::string_view digits = text.substr(is_negative ? 1 : 0);
    const bool has_leading_zero = digits.size() > 1 && digits[0] == '0';
    if (digits.empty() || has_leading_zero || !std::all_of(digits.begin(), digits.end(), IsDigit)) {
        return false;
    }
    long long value = 0;
    for (const char digit : digits) {
        value = std::min<long long>(value * 10 + (digit - '0'), INT_MAX);
    }
    number = static_cast<int>(is_negative ? -value : value);
    return true;
}

// Looks for the level's mark that stands first: the program's name in front of it may be anything.
bool ParseMessage(std::string_view text, Line& line) {
    std::size_t first = std::string_view::npos;
    for (const Marker& marker : MARKERS) {
        const std::size_t at = text.find(marker.text);
        if (at < first) {
            first = at;
            line.level = marker.level;
            line.message = text.substr(at + marker.text.size());
        }
    }
    return first != std::string_view::npos;
}

Line ParseAlone(std::string_view text) {
    Line line;
    if (text == "DONE") {
        line.kind = BBPFLASH_LINE_DONE;
    } else if (text == "ERROR") {
        line.kind = BBPFLASH_LINE_ERROR;
    } else if (ParseNumber(text, line.number)) {
        line.kind = BBPFLASH_LINE_PERCENT;
    } else if (IsDump(text)) {
        line.kind = BBPFLASH_LINE_DUMP;
    } else if (ParseMessage(text, line)) {
        line.kind = BBPFLASH_LINE_MESSAGE;
    }
    return line;
}

}  // namespace

Line LineParser::Parse(std::string_view text) {
    Line line;
    if (open_ == Open::Options) {
        line.kind = BBPFLASH_LINE_OPTIONS;
        if (EndsWith(text, OPTIONS_END)) {
            open_ = Open::Nothing;
        }
        return line;
    }
    if (open_ != Open::Nothing && Continues(text)) {
        line.kind = BBPFLASH_LINE_CONTINUATION;
        return line;
    }
    line = ParseAlone(text);
    open_size_ = text.size();
    open_ = Open::Nothing;
    if (line.kind == BBPFLASH_LINE_MESSAGE && open_size_ < LONGEST_MESSAGE) {
        open_ = OpenedBy(line);
        if (open_ == Open::Options) {
            line.kind = BBPFLASH_LINE_OPTIONS;
        }
    }
    return line;
}

bool LineParser::Continues(std::string_view text) {
    open_size_ += 1 + text.size();
    if (open_size_ > LONGEST_MESSAGE) {
        return false;
    }
    bool is_closed = open_size_ == LONGEST_MESSAGE;
    switch (open_) {
        case Open::AfterVersion:
            if (text.empty() || (StartsWith(text, " @") && HasPosition(text))) {
                is_closed = true;
                break;
            }
            [[fallthrough]];
        case Open::Version:
            open_ = EndsWith(text, "\"") ? Open::AfterVersion : Open::Version;
            break;
        case Open::Sending:
            is_closed = is_closed || EndsWith(WithoutPosition(text), SENDING_END);
            break;
        case Open::Nothing:
        case Open::Options:
        case Open::Position:
            is_closed = is_closed || HasPosition(text);
            break;
    }
    if (is_closed) {
        open_ = Open::Nothing;
    }
    return true;
}

LineParser::Open LineParser::OpenedBy(const Line& line) const {
    switch (line.level) {
        case BBPFLASH_LEVEL_PLAIN:
            if (StartsWith(line.message, VERSION_MESSAGE)) {
                const std::string_view version = line.message.substr(VERSION_MESSAGE.size());
                return EndsWith(version, "\"") ? Open::AfterVersion : Open::Version;
            }
            if (StartsWith(line.message, SENDING_MESSAGE) &&
                !EndsWith(WithoutPosition(line.message), SENDING_END)) {
                return Open::Sending;
            }
            return Open::Nothing;
        case BBPFLASH_LEVEL_CRITICAL:
        case BBPFLASH_LEVEL_ERROR:
        case BBPFLASH_LEVEL_INFO:
            if (line.message == OPTIONS_START) {
                return Open::Options;
            }
            return HasPosition(line.message) ? Open::Nothing : Open::Position;
        case BBPFLASH_LEVEL_NONE:
        case BBPFLASH_LEVEL_WARNING:
            break;
    }
    return Open::Nothing;
}

}  // namespace tools
