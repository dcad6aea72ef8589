// SPDX-License-Identifier: Apache-2.0
// How the programs report that they cannot go on: by an exception that main catches.
#ifndef COMMON_FAILURE_H
#define COMMON_FAILURE_H

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace common {

// A reason for a person, without the program's name and without a newline; and, where it matters,
// the exit status that it means.
class Failure : public std::runtime_error {
  public:
    // Without a status: the program's usual one for failures.
    explicit Failure(const std::string& message, std::optional<int> status = std::nullopt)
        : std::runtime_error(message), status_(status) {}

    std::optional<int> Status() const { return status_; }

    // The errno value behind it; 0 if there is none.
    int Error() const { return error_; }

  private:
    friend Failure ErrnoFailure(const std::string&, int, std::optional<int>);

    std::optional<int> status_;
    int error_ = 0;
};

// "what: the error in words", such as "opening the log x: Permission denied".
Failure ErrnoFailure(const std::string& what, int error, std::optional<int> status = std::nullopt);

// Prints to standard error, as RunProgram does, what is wrong though the program goes on.
void Warn(const std::string& text);

// What a program's main is: runs `body` and returns its result. What it throws is printed to
// standard error as "program: reason"; the result is then the Failure's status, or `usual_status`.
// The ends of children can be waited for, even if whoever started the program ignores them.
int RunProgram(const char* program, int usual_status, const std::function<int()>& body);

}  // namespace common

#endif
