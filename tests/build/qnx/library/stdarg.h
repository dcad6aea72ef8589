// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDARG_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDARG_H

#include <cstdarg>

using std::va_list;

#endif
