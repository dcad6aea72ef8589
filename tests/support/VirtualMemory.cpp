// SPDX-License-Identifier: Apache-2.0
#include "tests/support/VirtualMemory.h"

#include <algorithm>
#include <cstdlib>

// The real ones: the linker leads the plain names to the virtual head unit.
extern "C" {
int __real_posix_memalign(void** block, std::size_t alignment, std::size_t size);
void __real_free(void* block);
}

namespace virt {

void* VirtualMemory::Take(std::size_t size) {
    void* const block = std::malloc(size > 0 ? size : 1);
    if (block != nullptr) {
        blocks_.push_back(block);
    }
    return block;
}

void* VirtualMemory::TakeAligned(std::size_t alignment, std::size_t size) {
    void* block = nullptr;
    if (__real_posix_memalign(&block, alignment, size) != 0) {
        return nullptr;
    }
    blocks_.push_back(block);
    return block;
}

bool VirtualMemory::Release(void* block) {
    // What is given back is nearly always among the latest blocks.
    const auto found = std::find(blocks_.rbegin(), blocks_.rend(), block);
    if (found == blocks_.rend()) {
        return false;
    }
    *found = blocks_.back();
    blocks_.pop_back();
    __real_free(block);
    return true;
}

void VirtualMemory::ReleaseAll() {
    for (void* block : blocks_) {
        __real_free(block);
    }
    blocks_.clear();
}

}  // namespace virt
