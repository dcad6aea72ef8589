// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_SUPPORT_VIRTUAL_CALLS_H
#define BBPFLASH_TESTS_SUPPORT_VIRTUAL_CALLS_H

#include <cstddef>
#include <cstdio>

// The C functions that the program calls, led to the head unit whose run goes on.
namespace virt {

class VirtualHeadUnit;

// From here on, until EndProgram, the program's calls go to `unit`.
void StartProgram(VirtualHeadUnit* unit);
void EndProgram();

// A stream that hands what is written to it to `unit`: as its error output or as its output.
std::FILE* OpenCapture(VirtualHeadUnit* unit, bool is_error, char* buffer, std::size_t size);

}  // namespace virt

#endif
