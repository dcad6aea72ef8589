// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_TOOLS_FULL_SIZE_H
#define BBPFLASH_TESTS_TOOLS_FULL_SIZE_H

#include <cstddef>

// A size of an image, in bytes, at which the last segment is exactly full.
constexpr std::size_t FULL_SIZE = 2034 + 2035 * 460;

#endif
