// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/hutil/HutilMsgFixture.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

Formatting g_formatting;
bool g_out_of_memory = false;

extern "C" {

int __real_vsnprintf(char* buffer, size_t size, const char* format, va_list arguments);
int __wrap_vsnprintf(char* buffer, size_t size, const char* format, va_list arguments);

int __wrap_vsnprintf(char* buffer, size_t size, const char* format, va_list arguments) {
    Formatting& formatting = g_formatting;
    if (buffer != nullptr && formatting.buffer == nullptr) {
        formatting.buffer = buffer;
        if (formatting.poison) {
            memset(buffer, 'x', size);
        }
    } else if (buffer == nullptr && formatting.poison) {
        formatting.seen.assign(formatting.buffer, formatting.buffer + HutilMsg::TEXT_SIZE);
    }
    if (formatting.steps++ == formatting.failing_step) {
        errno = EILSEQ;
        return -1;
    }
    return __real_vsnprintf(buffer, size, format, arguments);
}
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return g_out_of_memory ? nullptr : ::operator new(size);
}
