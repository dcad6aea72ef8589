// SPDX-License-Identifier: Apache-2.0
#include "sim/FaultText.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <sstream>

namespace sim {

namespace {

using Events = unsigned;  // a set of them

constexpr Events Only(Event event) {
    return 1u << static_cast<unsigned>(event);
}

constexpr Events REQUESTS = Only(Event::Write) | Only(Event::Segment) | Only(Event::Poll) |
                            Only(Event::Version) | Only(Event::Unprotect);
constexpr Events TRANSFERS = REQUESTS | Only(Event::Read);
constexpr Events RESET_LINE = Only(Event::Reset) | Only(Event::Raise);
constexpr Events LOCKS = Only(Event::Lock) | Only(Event::Unlock);
constexpr Events STATUS_REPLIES = Only(Event::Write) | Only(Event::Read) | Only(Event::Poll);

struct EventName {
    const char* name;
    Event event;
};
constexpr EventName EVENT_NAMES[] = {
    {"write", Event::Write}, {"read", Event::Read},       {"segment", Event::Segment},
    {"poll", Event::Poll},   {"version", Event::Version}, {"unprotect", Event::Unprotect},
    {"burn", Event::Burn},   {"reset", Event::Reset},     {"raise", Event::Raise},
    {"lock", Event::Lock},   {"unlock", Event::Unlock}};

enum class Argument {
    None,
    Errno,       // a name or a number
    Position,    // a byte's offset or "after"; the beginning if there is none
    Bit,         // BYTE:BIT
    Assignment,  // BYTE=VALUE
    Byte,        // 0 to 255
    Word,        // 0 to 65535
    Percentage,  // half way if there is none
    Milliseconds
};

struct ActionName {
    const char* name;
    Action action;
    Argument argument;
    Events events;
};
constexpr ActionName ACTION_NAMES[] = {
    {"fail", Action::Fail, Argument::Errno, TRANSFERS | RESET_LINE | LOCKS},
    {"fail-after", Action::FailAfter, Argument::Errno, TRANSFERS},
    {"nak", Action::Nak, Argument::None, TRANSFERS},
    {"restart", Action::Restart, Argument::Position, TRANSFERS | RESET_LINE | LOCKS},
    {"power-loss", Action::PowerLoss, Argument::Position, TRANSFERS | RESET_LINE | LOCKS},
    {"never-grant", Action::NeverGrant, Argument::None, Only(Event::Lock)},
    {"lose-unlock", Action::LoseUnlock, Argument::None, Only(Event::Unlock)},
    {"dead-line", Action::DeadLine, Argument::None, RESET_LINE},
    {"flip", Action::FlipBit, Argument::Bit, TRANSFERS},
    {"set", Action::SetByte, Argument::Assignment, TRANSFERS},
    {"count", Action::CountByte, Argument::Byte, TRANSFERS},
    {"length", Action::LengthField, Argument::Word, TRANSFERS},
    {"zeros", Action::AllZero, Argument::None, TRANSFERS},
    {"ones", Action::AllOnes, Argument::None, TRANSFERS},
    {"previous", Action::PreviousReply, Argument::None, TRANSFERS},
    {"other", Action::OtherReply, Argument::None, TRANSFERS},
    {"bad-checksum", Action::WrongChecksum, Argument::None, TRANSFERS},
    {"status", Action::StatusByte, Argument::Byte, TRANSFERS},
    {"programming-status", Action::ProgramStatus, Argument::Byte, STATUS_REPLIES},
    {"refuse", Action::RefuseSegment, Argument::None, Only(Event::Segment)},
    {"forget", Action::ForgetSegment, Argument::None, Only(Event::Segment)},
    {"busy", Action::Busy, Argument::None, Only(Event::Poll)},
    {"reject", Action::RejectImage, Argument::None, Only(Event::Burn)},
    {"die-erasing", Action::DieErasing, Argument::Percentage, Only(Event::Burn)},
    {"die-programming", Action::DieProgramming, Argument::Percentage, Only(Event::Burn)},
    {"verify-fails", Action::VerifyFails, Argument::None, Only(Event::Burn)},
    {"never-ready", Action::NeverReady, Argument::None, Only(Event::Reset)},
    {"slow-start", Action::SlowStart, Argument::Milliseconds, Only(Event::Reset)}};

constexpr unsigned LARGEST_COUNT = 1000000000;
constexpr unsigned LAST_READ_BYTE = 64;
constexpr unsigned LAST_WRITE_BYTE = 2047;
constexpr unsigned HALF_WAY = 50;
constexpr unsigned LARGEST_ERRNO = 133;
constexpr unsigned LONGEST_START = 3600000;

const char AFTER[] = "after";
const char REPLY[] = "reply";
const char BLANKS[] = " \t\r\v\f";

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
        default:
            return "";
    }
}

struct Word {
    std::size_t position = 0;
    std::string text;
};

std::vector<Word> Split(const std::string& text) {
    std::vector<Word> words;
    std::size_t end = 0;
    for (;;) {
        const std::size_t begin = text.find_first_not_of(BLANKS, end);
        if (begin == std::string::npos) {
            return words;
        }
        end = std::min(text.find_first_of(BLANKS, begin), text.size());
        words.push_back({begin, text.substr(begin, end - begin)});
    }
}

// A decimal or, with 0x, hexadecimal number up to `most`.
std::optional<unsigned> Number(const std::string& text, unsigned most) {
    const bool hexadecimal = text.compare(0, 2, "0x") == 0;
    const char* const digits = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    const std::string number = hexadecimal ? text.substr(2) : text;
    constexpr std::size_t MOST_DIGITS = 10;
    if (number.empty() || number.size() > MOST_DIGITS ||
        number.find_first_not_of(digits) != std::string::npos) {
        return std::nullopt;
    }
    const unsigned long long value = std::stoull(number, nullptr, hexadecimal ? 16 : 10);
    if (value > most) {
        return std::nullopt;
    }
    return static_cast<unsigned>(value);
}

std::optional<unsigned> ErrnoNumber(const std::string& text) {
    for (unsigned number = 1; number <= LARGEST_ERRNO; ++number) {
        const char* const name = strerrorname_np(static_cast<int>(number));
        if (name != nullptr && text == name) {
            return number;
        }
    }
    const std::optional<unsigned> number = Number(text, LARGEST_ERRNO);
    return number == 0u ? std::nullopt : number;
}

// Reads a fault's words one after the other. The first mistake is the one that is told.
class Parser {
  public:
    explicit Parser(const std::string& text) : text_(text), words_(Split(text)) {}

    bool Parse(Fault* fault) {
        return ParseEvent(fault) && ParseCount(fault) && ParseAction(fault) &&
               ParseArgument(fault) && ParseEnd();
    }
    const FaultMistake& Mistake() const { return mistake_; }

  private:
    bool HasWord() const { return next_ < words_.size(); }
    const Word& Current() const { return words_[next_]; }

    // The mistake is the current word, or that there is none.
    bool Fail(const std::string& reason) {
        mistake_.position = HasWord() ? Current().position : text_.size();
        mistake_.length = HasWord() ? Current().text.size() : 0;
        mistake_.reason = reason;
        return false;
    }

    bool ParseEvent(Fault* fault) {
        std::string names;
        for (const EventName& candidate : EVENT_NAMES) {
            if (HasWord() && Current().text == candidate.name) {
                fault->event = candidate.event;
                next_ += 1;
                return true;
            }
            names += std::string(" ") + candidate.name;
        }
        return Fail("an event is needed here, one of:" + names);
    }

    bool ParseCount(Fault* fault) {
        if (!HasWord() || Current().text.find_first_of("0123456789") != 0) {
            return true;
        }
        const std::string& text = Current().text;
        const std::size_t sign = text.find_first_of("+-");
        const std::optional<unsigned> first = Number(text.substr(0, sign), LARGEST_COUNT);
        std::optional<unsigned> last = first;
        bool for_ever = false;
        if (sign != std::string::npos) {
            for_ever = text[sign] == '+' && sign + 1 == text.size();
            if (!for_ever) {
                last =
                    text[sign] == '-' ? Number(text.substr(sign + 1), LARGEST_COUNT) : std::nullopt;
            }
        }
        if (!first || !last || *first == 0 || *last < *first) {
            return Fail("a count is 3, 3+ or 3-5, and begins with 1");
        }
        fault->nth = *first;
        fault->times = for_ever ? FOR_EVER : *last - *first + 1;
        next_ += 1;
        return true;
    }

    bool ParseAction(Fault* fault) {
        const Events event = Only(fault->event);
        if (HasWord() && Current().text == REPLY) {
            if ((event & REQUESTS) == 0) {
                return Fail("this event has no reply");
            }
            fault->on_reply = true;
            next_ += 1;
        }
        std::string names;
        for (const ActionName& candidate : ACTION_NAMES) {
            if (HasWord() && Current().text == candidate.name) {
                action_ = &candidate;
            }
            if ((candidate.events & event) != 0) {
                names += std::string(" ") + candidate.name;
            }
        }
        if (action_ == nullptr) {
            return Fail("an action is needed here, one of:" + names);
        }
        if ((action_->events & event) == 0) {
            return Fail("this cannot happen to that event, but:" + names);
        }
        const bool chip_only = (action_->events & Only(Event::Read)) == 0;
        if (fault->on_reply && chip_only && action_->action != Action::ProgramStatus) {
            return Fail("this cannot happen to a reply");
        }
        // What changes a reply means the reply anyway.
        fault->on_reply = fault->on_reply && !ChangesReply(action_->action);
        fault->action = action_->action;
        next_ += 1;
        return true;
    }

    bool ParseArgument(Fault* fault) {
        switch (action_->argument) {
            case Argument::None:
                return true;
            case Argument::Position:
                return ParsePosition(fault);
            case Argument::Percentage:
                fault->value = HALF_WAY;
                return !HasWord() || Take(&fault->value, Number(Current().text, 100),
                                          "a percentage is needed here, 0 to 100");
            case Argument::Bit:
                return ParsePair(fault, ':', 7, "BYTE:BIT is needed here, up to 64:7");
            case Argument::Assignment:
                return ParsePair(fault, '=', 255, "BYTE=VALUE is needed here, up to 64=255");
            case Argument::Errno:
                return Take(&fault->value, HasWord() ? ErrnoNumber(Current().text) : std::nullopt,
                            "an errno value is needed here, such as EIO or ETIMEDOUT");
            case Argument::Byte:
                return Take(&fault->value, CurrentNumber(255), "a number is needed here, 0 to 255");
            case Argument::Word:
                return Take(&fault->value, CurrentNumber(65535),
                            "a number is needed here, 0 to 65535");
            case Argument::Milliseconds:
                return Take(&fault->value, CurrentNumber(LONGEST_START),
                            "a time in milliseconds is needed here, up to an hour");
        }
        return false;
    }

    std::optional<unsigned> CurrentNumber(unsigned most) const {
        return HasWord() ? Number(Current().text, most) : std::nullopt;
    }

    bool Take(unsigned* value, std::optional<unsigned> number, const char* otherwise) {
        if (!number) {
            return Fail(otherwise);
        }
        *value = *number;
        next_ += 1;
        return true;
    }

    bool ParsePosition(Fault* fault) {
        if (!HasWord()) {
            return true;
        }
        if ((Only(fault->event) & TRANSFERS) == 0) {
            return Fail("only a transfer has bytes");
        }
        if (Current().text == AFTER) {
            fault->offset = AFTER_THE_TRANSFER;
            next_ += 1;
            return true;
        }
        unsigned offset = 0;
        if (!Take(&offset, CurrentNumber(LAST_WRITE_BYTE),
                  "a byte's position is needed here, 0 to 2047, or \"after\"")) {
            return false;
        }
        fault->offset = offset;
        return true;
    }

    bool ParsePair(Fault* fault, char separator, unsigned most, const char* otherwise) {
        const std::string text = HasWord() ? Current().text : std::string();
        const std::size_t middle = text.find(separator);
        if (middle == std::string::npos) {
            return Fail(otherwise);
        }
        const std::optional<unsigned> offset = Number(text.substr(0, middle), LAST_READ_BYTE);
        const std::optional<unsigned> value = Number(text.substr(middle + 1), most);
        if (!offset || !value) {
            return Fail(otherwise);
        }
        fault->offset = *offset;
        fault->value = *value;
        next_ += 1;
        return true;
    }

    bool ParseEnd() { return !HasWord() || Fail("nothing is needed behind a whole fault"); }

    const std::string& text_;
    const std::vector<Word> words_;
    std::size_t next_ = 0;
    const ActionName* action_ = nullptr;
    FaultMistake mistake_;
};

std::string CountText(const Fault& fault) {
    std::string text = " " + std::to_string(fault.nth);
    if (fault.times == FOR_EVER) {
        text += "+";
    } else if (fault.times > 1) {
        text += "-" + std::to_string(fault.nth + fault.times - 1);
    }
    return text;
}

std::string ErrnoText(unsigned number) {
    const char* const name = strerrorname_np(static_cast<int>(number));
    return name != nullptr ? name : std::to_string(number);
}

std::string ArgumentText(const Fault& fault, Argument argument) {
    const std::string value = std::to_string(fault.value);
    const std::string offset = std::to_string(fault.offset);
    switch (argument) {
        case Argument::None:
            return "";
        case Argument::Errno:
            return " " + ErrnoText(fault.value);
        case Argument::Position:
            if (fault.offset == 0) {
                return "";
            }
            return " " + (fault.offset == AFTER_THE_TRANSFER ? std::string(AFTER) : offset);
        case Argument::Bit:
            return " " + offset + ":" + value;
        case Argument::Assignment:
            return " " + offset + "=" + value;
        default:
            return " " + value;
    }
}

}  // namespace

bool ParseFault(const std::string& text, Fault* fault, FaultMistake* mistake) {
    Parser parser(text);
    *fault = Fault();
    if (!parser.Parse(fault)) {
        *mistake = parser.Mistake();
        return false;
    }
    return true;
}

bool ParseFaults(const std::string& text, std::vector<Fault>* faults, FaultMistake* mistake,
                 std::size_t* line) {
    std::istringstream lines(text);
    std::string words;
    *line = 0;
    while (std::getline(lines, words)) {
        *line += 1;
        words.resize(std::min(words.find('#'), words.size()));
        if (words.find_first_not_of(BLANKS) == std::string::npos) {
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
