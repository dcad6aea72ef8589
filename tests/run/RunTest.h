// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_RUN_RUNTEST_H
#define BBPFLASH_TESTS_RUN_RUNTEST_H

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/VirtualHeadUnit.h"

namespace run {

using Strings = std::vector<std::string>;
using virt::CallKind;
using virt::Outcome;
using virt::Strike;

// Strikes that name the errno value or the value that the program gets.
Strike Error(int error);
Strike Value(long value);

// The calls of some kinds strike, by kind and number within the kind, from 0.
class Strikes : public virt::CallHook {
  public:
    void At(CallKind kind, int nth, Strike strike) { strikes_[{kind, nth}] = strike; }
    void From(CallKind kind, int nth, Strike strike) { from_[kind] = {nth, strike}; }
    Strike OnCall(const virt::Call& call, int index, int nth) override;

  private:
    std::map<std::pair<CallKind, int>, Strike> strikes_;
    std::map<CallKind, std::pair<int, Strike>> from_;
};

// Whole runs. Without further word, the chip has the firmware "1.0.0", takes no more than two polls
// for each phase of its burn, and image.bin is an image of 1 MiB with the label of "2.0.0".
class RunTest : public ::testing::Test {
  public:
    // Takes effect when they are set before the first run.
    sim::ChipConfig chip;
    std::vector<sim::Fault> faults;

    Strikes strikes;

  protected:
    RunTest();

    // The head unit with its files, made when first used.
    virt::VirtualHeadUnit& Unit();

    // Runs "bbpflash" with these words as arguments, separated by blanks.
    const virt::RunResult& Run(const std::string& arguments);

    const virt::RunResult& Result() const { return result_; }
    // "exit 0", or how else the run ended.
    std::string Ending() const;
    // The lines of standard output; of a source position only the file's name remains: " @HdChip".
    Strings Output() const;
    // What went to the system's log, likewise.
    Strings Log() const;
    // The bus, the reset line and the clock, in order: "lock", "write 80 01" (opcode, first payload
    // byte), "read", "unlock", "usleep 750", "delay 350", "line 0", "open <path>", "speed 400000".
    Strings Trace() const;
    int Count(CallKind kind) const { return unit_->Log().Count(kind); }
    // Whether the chip holds image.bin, whole.
    bool HoldsImage() const;

  private:
    std::unique_ptr<virt::VirtualHeadUnit> unit_;
    virt::RunResult result_;
};

// The sample image of 1 MiB with the label of "2.0.0".
const virt::FileContent& SampleImage();

// What a run that shows every step says of a reset, and of the check that finds SampleImage's
// version.
Strings ResetAndEqualVersions();

// "a b" + "c d" ... as one list.
Strings operator+(Strings left, const Strings& right);
Strings Repeat(const Strings& strings, int times);
// The numbers from `first` to `last` as lines.
Strings Numbers(int first, int last);

}  // namespace run

#endif
