// SPDX-License-Identifier: Apache-2.0
// What a person is told about a failure. docs/recovery.md has the same texts; a test compares them.
#ifndef BBPFLASH_TOOLS_WATCH_ADVICE_H
#define BBPFLASH_TOOLS_WATCH_ADVICE_H

#include <string>
#include <string_view>
#include <vector>

namespace tools {

// What the chip's flash holds, as far as it is known.
enum class Content { Old, New, Neither, Unknown };

struct ContentAdvice {
    Content content;
    std::string code;     // for programs
    std::string meaning;  // for people
    std::string next;     // what to do; empty: what the reason's advice says
};

// A reason of failures.
struct Advice {
    std::string code;                   // for programs
    std::vector<std::string> messages;  // beginnings of the updater's first error; may be none
    std::string meaning;
    std::string next;
};

const std::vector<ContentAdvice>& AllContents();
const ContentAdvice& AdviceFor(Content content);

// In the order in which they are looked for.
const std::vector<Advice>& AllAdvice();

// By the reason's code, which must be one of them.
const Advice& AdviceFor(std::string_view code);

// By the updater's first error, without its level and place; "unknown" if it is none of them.
const Advice& AdviceForMessage(std::string_view message);

}  // namespace tools

#endif
