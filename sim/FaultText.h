// SPDX-License-Identifier: Apache-2.0
// Faults as people write them:
//
//     EVENT [COUNT] [reply] ACTION [ARGUMENT]
//
// COUNT is "3" for the third one, "3+" for the third and all after it, "3-5" for those three; the
// first one if there is none. "reply" moves a fault of a write to the read of its reply.
#ifndef SIM_FAULT_TEXT_H
#define SIM_FAULT_TEXT_H

#include <cstddef>
#include <string>
#include <vector>

#include "sim/Fault.h"

namespace sim {

// What is wrong with a text, and which of its words: `length` characters from `position` on, both
// within the text or, for something that is missing, just behind it.
struct FaultMistake {
    std::size_t position = 0;
    std::size_t length = 0;
    std::string reason;
};

// Reads one fault; what follows a "#" is a comment. False, with the mistake, if the text is none.
bool ParseFault(const std::string& text, Fault* fault, FaultMistake* mistake);

// Reads one fault a line; blank lines and comments count for nothing. False, with the
// mistake and its line's number, counted from 1, if one of them is none.
bool ParseFaults(const std::string& text, std::vector<Fault>* faults, FaultMistake* mistake,
                 std::size_t* line);

// The reason, and below it the text with its word marked.
std::string ShowMistake(const std::string& text, const FaultMistake& mistake);

// The text that stands for a fault: reading it gives the fault back.
std::string FaultText(const Fault& fault);

// All events, and all actions with their arguments, for help texts: one a line.
std::string FaultVocabulary();

}  // namespace sim

#endif
