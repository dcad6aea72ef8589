// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FAULT_FORMAT_H
#define BBPFLASH_TESTS_FAULT_FORMAT_H

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

namespace fault {

// As printf, into a string of at most a kilobyte.
inline std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
inline std::string Format(const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

// "Input/output error" (5), in its quotation marks.
inline std::string Quoted(int error) {
    return std::string("\"") + std::strerror(error) + "\" (" + std::to_string(error) + ")";
}

}  // namespace fault

#endif
