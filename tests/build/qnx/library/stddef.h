// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDDEF_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDDEF_H

#include <cstddef>

using std::ptrdiff_t;
using std::size_t;

#endif
