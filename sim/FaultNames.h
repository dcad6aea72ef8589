// SPDX-License-Identifier: Apache-2.0
// The words of the language in which faults are written.
#ifndef SIM_FAULT_NAMES_H
#define SIM_FAULT_NAMES_H

#include <array>

#include "sim/Fault.h"

namespace sim {

// A set of events.
using Events = unsigned;

constexpr Events Only(Event event) noexcept {
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

// What follows an action.
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
    Events events;  // that it can happen to
};

// Every event and every action once.
extern const std::array<EventName, EVENTS> EVENT_NAMES;
extern const std::array<ActionName, ACTIONS> ACTION_NAMES;

// Two words beside these.
constexpr char AFTER[] = "after";  // a transfer, instead of a byte's position
constexpr char REPLY[] = "reply";  // of a write, before the action

// What stands between words.
constexpr char BLANKS[] = " \t\r\v\f";

}  // namespace sim

#endif
