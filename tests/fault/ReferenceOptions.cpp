// SPDX-License-Identifier: Apache-2.0
// The command line, as the program reads it: twice.
#include "tests/fault/Format.h"
#include "tests/fault/Reference.h"

namespace fault {

namespace {

constexpr const char* DRIVER = "bbpflash";

// One scan of the arguments: letters, a colon behind those that take an argument. Calls
// `take(letter, argument)`.
template <typename Take>
void Scan(const std::vector<std::string>& arguments, const std::string& letters, Take take) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (word.size() < 2 || word[0] != '-' || word == "--") {
            return;
        }
        for (std::size_t at = 1; at < word.size(); ++at) {
            const std::size_t letter = letters.find(word[at]);
            if (letter == std::string::npos || word[at] == ':') {
                continue;
            }
            if (letter + 1 == letters.size() || letters[letter + 1] != ':') {
                take(word[at], "");
                continue;
            }
            if (at + 1 < word.size()) {
                take(word[at], word.substr(at + 1));
            } else if (i + 1 < arguments.size()) {
                take(word[at], arguments[++i]);
            }
            break;
        }
    }
}

const char* YesNo(bool value) {
    return value ? "true" : "false";
}

}  // namespace

void ReferenceUpdate::OpenMessages() {
    if (t_.Next(CallKind::NewObject).result != 0) {
        t_.Exit(255);
    }
    std::string log_file;
    std::string trace_file;
    Scan(arguments_, "l:t:v", [&](char letter, const std::string& argument) {
        if (letter == 'v') {
            ++t_.verbosity;
        } else {
            (letter == 'l' ? log_file : trace_file) = argument;
        }
    });
    if (t_.verbosity > 5) {
        ShowOptions(log_file, trace_file);
    }
    if (t_.Next(CallKind::NewObject).result != 0) {
        t_.Exit(255);
    }
}

void ReferenceUpdate::ShowOptions(const std::string& log_file, const std::string& trace_file) {
    t_.Print(t_.program + " INF: == options start ===========\n (l = " + log_file +
             ")\n (t = " + trace_file + ")\n (v = " + std::to_string(t_.verbosity) + ")\n" +
             t_.program + " INF: == options end =============\n");
}

void ReferenceUpdate::ReadOptions() {
    Scan(arguments_, "fis", [&](char letter, const std::string&) {
        force_ = force_ || letter == 'f';
        facts_.info_only = facts_.info_only || letter == 'i';
        facts_.status_mode = facts_.status_mode || letter == 's';
    });
    t_.Say(Level::Info, DRIVER, Format("additional option (i = %s)", YesNo(facts_.info_only)));
    t_.Say(Level::Info, DRIVER, Format("additional option (f = %s)", YesNo(force_)));
}

}  // namespace fault
