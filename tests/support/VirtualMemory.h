// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_SUPPORT_VIRTUALMEMORY_H
#define BBPFLASH_TESTS_SUPPORT_VIRTUALMEMORY_H

#include <cstddef>
#include <vector>

// The memory that a run of the updater takes: what it keeps by design until its process would end
// is given back after the run.
namespace virt {

class VirtualMemory {
  public:
    ~VirtualMemory() { ReleaseAll(); }

    // As malloc and posix_memalign; null when the machine itself has no more.
    void* Take(std::size_t size);
    void* TakeAligned(std::size_t alignment, std::size_t size);
    // Gives a block back; false when it is none of these.
    bool Release(void* block);
    void ReleaseAll();

    std::size_t Blocks() const { return blocks_.size(); }

  private:
    std::vector<void*> blocks_;
};

}  // namespace virt

#endif
