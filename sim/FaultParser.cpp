// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <optional>

#include "common/ErrnoName.h"
#include "sim/FaultNames.h"
#include "sim/FaultText.h"

namespace sim {

namespace {

constexpr unsigned LARGEST_COUNT = 1000000000;
constexpr unsigned LAST_READ_BYTE = 64;
constexpr unsigned LAST_WRITE_BYTE = 2047;
constexpr unsigned HALF_WAY = 50;
constexpr unsigned LARGEST_ERRNO = 133;
constexpr unsigned LONGEST_START = 3600000;

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
        Word word;
        word.position = begin;
        word.text = text.substr(begin, end - begin);
        words.push_back(word);
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
    if (const std::optional<int> value = common::ErrnoValue(text)) {
        return static_cast<unsigned>(*value);
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
        if (fault->on_reply && (action_->events & Only(Event::Read)) == 0) {
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

}  // namespace

bool ParseFault(const std::string& text, Fault* fault, FaultMistake* mistake) {
    const std::string words = text.substr(0, text.find('#'));
    Parser parser(words);
    *fault = Fault();
    if (!parser.Parse(fault)) {
        *mistake = parser.Mistake();
        return false;
    }
    return true;
}

}  // namespace sim
