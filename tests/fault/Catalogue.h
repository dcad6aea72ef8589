// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FAULT_CATALOGUE_H
#define BBPFLASH_TESTS_FAULT_CATALOGUE_H

#include <functional>
#include <vector>

#include "tests/fault/Injection.h"
#include "tests/fault/Scenario.h"

namespace fault {

// All that can go wrong in one scenario: its run without a fault says which calls there are, and
// each kind of fault is listed over them. The lists are visited, never stored: they are long.
class Catalogue {
  public:
    using Visit = std::function<void(const Injection&)>;

    explicit Catalogue(const Scenario& scenario);

    void ForEach(Kind kind, const Visit& visit) const;
    // Every call that can fail, by index: once and from there on, in one way.
    void ForEachCallOnce(const Visit& visit) const;

    // A call of the run without a fault.
    struct Place {
        virt::CallKind kind;
        int index;
        long argument;
        long size;
    };

  private:
    void ForEachBusFault(const Visit& visit) const;
    void ForEachReplyFault(const Visit& visit) const;
    void ForEachChipFault(const Visit& visit) const;
    void ForEachTransferCut(const Visit& visit) const;
    void ForEachBurnFault(const Visit& visit) const;
    void ForEachFileFault(const Visit& visit) const;
    void ForEachMemoryFault(const Visit& visit) const;
    void ForEachOutputFault(const Visit& visit) const;
    void ForEachLineFault(const Visit& visit) const;
    void ForEachPair(const Visit& visit) const;
    std::vector<Injection> Typical() const;

    std::vector<Place> places_;
    std::vector<std::size_t> writes_;  // sizes of the writes to the chip
    unsigned reads_ = 0;
    unsigned segments_ = 0;
    unsigned polls_ = 0;
    unsigned resets_ = 0;
    unsigned burns_ = 0;
    long image_size_ = 0;
};

}  // namespace fault

#endif
