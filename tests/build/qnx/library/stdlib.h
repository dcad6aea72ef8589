// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDLIB_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDLIB_H

#include <cstdlib>

using std::exit;
using std::free;
using std::size_t;

// POSIX.
extern "C" int posix_memalign(void** memory, size_t alignment, size_t size);

#endif
