// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDINT_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDINT_H

#include <cstdint>

using std::uint32_t;

#endif
