// SPDX-License-Identifier: Apache-2.0
#include "sim/FaultText.h"

#include <algorithm>
#include <sstream>

#include "common/ErrnoName.h"
#include "sim/FaultNames.h"

namespace sim {

namespace {

const char* ArgumentText(Argument argument) {
    switch (argument) {
        case Argument::Errno:
            return " ERRNO";
        case Argument::Position:
            return " [BYTE|after]";
        case Argument::Bit:
            return " BYTE:BIT";
        case Argument::Assignment:
            return " BYTE=VALUE";
        case Argument::Byte:
        case Argument::Word:
            return " VALUE";
        case Argument::Percentage:
            return " [PERCENT]";
        case Argument::Milliseconds:
            return " MILLISECONDS";
        case Argument::None:
            break;
    }
    return "";
}

std::string CountText(const Fault& fault) {
    std::string text = " " + std::to_string(fault.nth);
    if (fault.times == FOR_EVER) {
        text += "+";
    } else if (fault.times > 1) {
        text += "-" + std::to_string(fault.nth + fault.times - 1);
    }
    return text;
}

std::string ArgumentText(const Fault& fault, Argument argument) {
    const std::string value = std::to_string(fault.value);
    const std::string offset = std::to_string(fault.offset);
    switch (argument) {
        case Argument::None:
            return "";
        case Argument::Errno:
            return " " + common::ErrnoName(static_cast<int>(fault.value));
        case Argument::Position:
            if (fault.offset == 0) {
                return "";
            }
            return " " + (fault.offset == AFTER_THE_TRANSFER ? std::string(AFTER) : offset);
        case Argument::Bit:
            return " " + offset + ":" + value;
        case Argument::Assignment:
            return " " + offset + "=" + value;
        case Argument::Byte:
        case Argument::Word:
        case Argument::Percentage:
        case Argument::Milliseconds:
            break;
    }
    return " " + value;
}

}  // namespace

bool ParseFaults(const std::string& text, std::vector<Fault>* faults, FaultMistake* mistake,
                 std::size_t* line) {
    std::istringstream lines(text);
    std::string words;
    *line = 0;
    while (std::getline(lines, words)) {
        *line += 1;
        const std::size_t begin = words.find_first_not_of(BLANKS);
        if (begin == std::string::npos || words[begin] == '#') {
            continue;
        }
        Fault fault;
        if (!ParseFault(words, &fault, mistake)) {
            return false;
        }
        faults->push_back(fault);
    }
    return true;
}

std::string ShowMistake(const std::string& text, const FaultMistake& mistake) {
    const std::size_t marks = mistake.length == 0 ? 1 : mistake.length;
    return mistake.reason + "\n  " + text + "\n  " + std::string(mistake.position, ' ') +
           std::string(marks, '^');
}

std::string FaultText(const Fault& fault) {
    std::string text;
    for (const EventName& candidate : EVENT_NAMES) {
        if (candidate.event == fault.event) {
            text = candidate.name;
        }
    }
    text += CountText(fault);
    if (fault.on_reply) {
        text += std::string(" ") + REPLY;
    }
    for (const ActionName& candidate : ACTION_NAMES) {
        if (candidate.action == fault.action) {
            text += std::string(" ") + candidate.name + ArgumentText(fault, candidate.argument);
        }
    }
    return text;
}

std::string FaultVocabulary() {
    std::string text = "EVENT [COUNT] [reply] ACTION [ARGUMENT]\n\nevents:\n ";
    for (const EventName& candidate : EVENT_NAMES) {
        text += std::string(" ") + candidate.name;
    }
    text += "\n\nactions, and the events that they can happen to:\n";
    for (const ActionName& action : ACTION_NAMES) {
        constexpr std::size_t COLUMN = 28;
        std::string line = std::string("  ") + action.name + ArgumentText(action.argument);
        line.resize(std::max(line.size(), COLUMN), ' ');
        for (const EventName& event : EVENT_NAMES) {
            if ((action.events & Only(event.event)) != 0) {
                line += std::string(" ") + event.name;
            }
        }
        text += line + "\n";
    }
    return text;
}

}  // namespace sim
