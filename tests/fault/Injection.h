// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FAULT_INJECTION_H
#define BBPFLASH_TESTS_FAULT_INJECTION_H

#include <array>
#include <string>
#include <vector>

#include "sim/Fault.h"
#include "tests/support/VirtualHeadUnit.h"

namespace fault {

// What is counted: no kind may be more than a quarter of all runs.
enum class Kind { Bus, Reply, Chip, File, Memory, Output, Line, Pair };
constexpr std::size_t KINDS = 8;
const char* NameOf(Kind kind);

// What happens to a call, besides what a Strike can do to it.
enum class FileAction { None, Resize, UnreadableFrom };

// A fault of one call: the first call of the kind with this index in the run, or behind it.
struct CallFault {
    virt::CallKind kind;
    int index;
    virt::Strike strike;
    int times = 1;  // how many calls of the kind in a row, -1: from there on
    FileAction action = FileAction::None;
    long size = 0;  // of the action
};

// One fault: of a call, or of the head unit.
struct Fault {
    bool is_call;
    CallFault call;
    sim::Fault unit;
};

// What goes wrong in one run.
struct Injection {
    Kind kind;
    int count;
    std::array<Fault, 2> faults;

    static Injection Of(Kind kind, const CallFault& call);
    static Injection Of(Kind kind, const sim::Fault& unit);
    static Injection Pair(const Injection& first, const Injection& second);

    // Its name: "send@38:fail:5:0:1" for a call's fault, a head unit's as bbpsim has it, such as
    // "read 3 flip 12:7", two of them with " + " between.
    std::string Name() const;
    // Throws std::invalid_argument for a text that is no injection's name.
    static Injection Of(const std::string& name);

    std::vector<sim::Fault> UnitFaults() const;
};

// Carries an injection's call faults out.
class InjectionHook : public virt::CallHook {
  public:
    InjectionHook(const Injection& injection, virt::VirtualFiles& files);
    virt::Strike OnCall(const virt::Call& call, int index, int nth) override;
    // How many calls were struck.
    int Hits() const { return hits_; }

  private:
    struct Armed {
        CallFault fault;
        int left;
    };
    std::vector<Armed> armed_;
    virt::VirtualFiles& files_;
    int hits_ = 0;
};

}  // namespace fault

#endif
