// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FAULT_TRANSCRIPT_H
#define BBPFLASH_TESTS_FAULT_TRANSCRIPT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/CallLog.h"
#include "tests/support/VirtualHeadUnit.h"

namespace fault {

using virt::Call;
using virt::CallKind;
using virt::Outcome;

// What a run did differs from what it must do.
struct Difference {
    std::string what;
};

// The run must end here, and so.
struct RunEnds {
    Outcome outcome;
    int status = 0;
};

enum class Level { Plain = 0, Critical = 1, Error = 2, Warning = 3, Info = 5 };

// What a run has done, read from its beginning by a reference that says what must come next. Each
// expectation that is not met throws a Difference; where the surroundings end the run, RunEnds is
// thrown.
class Transcript {
  public:
    Transcript(const virt::CallLog& log, const virt::RunResult& result);

    // The next call is of this kind, with this argument. Its result is the surroundings' answer.
    const Call& Next(CallKind kind);
    const Call& Next(CallKind kind, std::int64_t argument);
    std::string_view Data(const Call& call) const { return log_.Data(call); }
    // The calls so far, this one included.
    std::size_t Place() const { return next_; }

    // The program's error number at this moment.
    int Errno() const;

    // Standard output gets the text; it comes to be written at the next Flush at the latest.
    void Print(std::string_view text);
    void Flush();
    // Standard error gets the text.
    void PrintError(std::string_view text) { error_text_.append(text); }

    // A levelled message: standard output and the system's log get it. `file` is its source's name.
    void Say(Level level, std::string_view file, std::string_view text);

    // The name before every message, and the verbosity that decides what is shown and how.
    std::string program;
    int verbosity = 0;

    // Whether the program waits for the chip without bound, so that the run may be cut.
    bool polling = false;

    // The program ends itself: what is printed is flushed.
    [[noreturn]] void Exit(int status);

    // Compares the run's end with the one that must be.
    void CheckEnd(RunEnds end);

  private:
    [[noreturn]] void Fail(const std::string& what) const;
    bool AtCut() const;
    void SkipMemory();
    void TakeOutput();
    void TakeLog(Level level, const std::string& text, bool has_number);
    void Match(std::string_view written);

    const virt::CallLog& log_;
    const virt::RunResult& result_;
    std::size_t next_ = 0;

    // Printed and not yet written; a number that is not known is a '#' at a place of numbers_.
    std::string pending_;
    std::vector<std::size_t> numbers_;
    std::size_t first_number_ = 0;
    std::size_t pending_base_ = 0;
    std::size_t matched_ = 0;
    bool in_number_ = false;
    // After a write that failed while the buffer was full, what is lost cannot be told.
    bool lossy_ = false;

    std::string error_text_;
};

}  // namespace fault

#endif
