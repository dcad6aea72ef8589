// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_UNIT_CHIP_HDCHIPFIXTURE_H
#define BBPFLASH_TESTS_UNIT_CHIP_HDCHIPFIXTURE_H

#include <gmock/gmock.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "chip/HdChip.h"
#include "hutil/run_flags.h"
#include "tests/support/FakePlatform.h"

// The chip on an opened bus. Its calls of the engine join the platform's trace on their way:
// "Reset 0", "SetNumSegs 14", "Begin 84 1", "Fill 05", "Fill file", "Terminate", "Send",
// "RetrieveShort", "RetrieveShort null", "RetrieveLong". One can be given a result of its own in
// place of the engine's, which has few ways to fail.
class HdChipTest : public fake::PlatformTest {
  public:
    // For the recording functions: notes the step; true when it has a scripted result.
    bool Step(const std::string& name, const std::string& arguments, int* result);

  protected:
    HdChipTest();
    ~HdChipTest() override;

    // The call number `index` (from 0) of an engine's step, "Begin" for instance, returns `result`
    // and does nothing.
    void Script(const std::string& step, int result, int index = 0);

    // Forgets all scripted results and counts the calls from 0 again.
    void ForgetScript();

    // Takes the engine from the chip.
    void RemoveEngine();

    // From now on the call number `index` (from 0) of posix_memalign, or of the allocation of an
    // object, finds no memory.
    static void FailMemory(int index);
    static void FailObject(int index);

    // How large the block was that posix_memalign made last, and whether it was given back.
    static std::size_t LastBlockSize();
    static bool LastBlockIsFree();

    // The trace without the engine's steps.
    std::vector<std::string> BusTrace() const;

    HdChip chip_;

  private:
    std::map<std::pair<std::string, int>, int> scripted_;
    std::map<std::string, int> counts_;
    std::set<std::string> steps_;
};

#endif
