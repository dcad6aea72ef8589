// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/chip/HdChipProgramBinFixture.h"

#include <cstdio>

std::function<int(int whence)> g_fseek;
std::function<long()> g_ftell;
std::function<int()> g_feof;
std::string g_open_mode;
int g_closed_files = 0;
bool g_programming = false;

extern "C" {

FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode);
int __wrap_fclose(FILE* file);
int __real_fclose(FILE* file);
int __real_fflush(FILE* file);
int __wrap_fflush(FILE* file);
int __real_fseek(FILE* file, long offset, int whence);
int __wrap_fseek(FILE* file, long offset, int whence);
long __real_ftell(FILE* file);
long __wrap_ftell(FILE* file);
int __real_feof(FILE* file);
int __wrap_feof(FILE* file);

FILE* __wrap_fopen(const char* path, const char* mode) {
    g_open_mode = mode;
    return __real_fopen(path, mode);
}

int __wrap_fclose(FILE* file) {
    g_closed_files += g_programming ? 1 : 0;
    return __real_fclose(file);
}

int __wrap_fflush(FILE* file) {
    if (g_programming && file == stdout) {
        fake::Current().Note("flush");
    }
    return __real_fflush(file);
}

int __wrap_fseek(FILE* file, long offset, int whence) {
    return g_fseek ? g_fseek(whence) : __real_fseek(file, offset, whence);
}

long __wrap_ftell(FILE* file) {
    return g_ftell ? g_ftell() : __real_ftell(file);
}

int __wrap_feof(FILE* file) {
    return g_feof ? g_feof() : __real_feof(file);
}
}
