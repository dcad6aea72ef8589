// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/lm/HcLogicalTransmitFixture.h"

#include <new>

std::function<std::size_t()> g_fread;
std::function<int()> g_feof;
bool g_no_memory = false;

// What the core allocates its objects with; null when the test says so.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return g_no_memory ? nullptr : ::operator new(size);
}

extern "C" {

size_t __real_fread(void* to, size_t size, size_t count, FILE* file);
size_t __wrap_fread(void* to, size_t size, size_t count, FILE* file);
int __real_feof(FILE* file);
int __wrap_feof(FILE* file);

size_t __wrap_fread(void* to, size_t size, size_t count, FILE* file) {
    return g_fread ? g_fread() : __real_fread(to, size, count, file);
}

int __wrap_feof(FILE* file) {
    return g_feof ? g_feof() : __real_feof(file);
}
}
