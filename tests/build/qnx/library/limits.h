// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_LIMITS_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_LIMITS_H

#include <climits>

#endif
