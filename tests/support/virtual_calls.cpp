// SPDX-License-Identifier: Apache-2.0
#include "tests/support/virtual_calls.h"

#include <stdio_ext.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <new>

#include "platform/platform.h"
#include "tests/support/VirtualHeadUnit.h"

namespace virt {

namespace {

VirtualHeadUnit* g_unit = nullptr;
// Greater than 0 while the surroundings are at work: their own calls are the system's.
int g_inside = 0;

// One call of the program: null outside a run and for the surroundings' own calls.
class Entry {
  public:
    Entry() : unit_(g_inside == 0 ? g_unit : nullptr) { ++g_inside; }
    ~Entry() { --g_inside; }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    explicit operator bool() const { return unit_ != nullptr; }
    VirtualHeadUnit* operator->() const { return unit_; }

  private:
    VirtualHeadUnit* const unit_;
};

ssize_t TakeOutput(void* unit, const char* bytes, std::size_t size) {
    ++g_inside;
    const ssize_t taken = static_cast<VirtualHeadUnit*>(unit)->Output(bytes, size);
    --g_inside;
    return taken;
}

ssize_t TakeErrorOutput(void* unit, const char* bytes, std::size_t size) {
    ++g_inside;
    const ssize_t taken = static_cast<VirtualHeadUnit*>(unit)->ErrorOutput(bytes, size);
    --g_inside;
    return taken;
}

}  // namespace

void StartProgram(VirtualHeadUnit* unit) {
    g_unit = unit;
    g_inside = 0;
}

void EndProgram() {
    g_unit = nullptr;
    g_inside = 0;
}

std::FILE* OpenCapture(VirtualHeadUnit* unit, bool is_error, char* buffer, std::size_t size) {
    cookie_io_functions_t functions = {};
    functions.write = is_error ? TakeErrorOutput : TakeOutput;
    std::FILE* const stream = fopencookie(unit, "w", functions);
    std::setvbuf(stream, buffer, _IOFBF, size);
    // A run may be left in the middle of a write: no lock may stay behind.
    __fsetlocking(stream, FSETLOCKING_BYCALLER);
    return stream;
}

}  // namespace virt

using virt::CallKind;
using virt::Entry;

extern "C" {

int devctl(int descriptor, int command, void* data, std::size_t size, int*) {
    Entry entry;
    return entry->Devctl(descriptor, command, data, size);
}

unsigned int delay(unsigned int milliseconds) {
    Entry entry;
    return entry->Delay(milliseconds);
}

int slogf(int opcode, int severity, const char* format, ...) {
    Entry entry;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const int size = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return entry->Slogf(opcode, severity, text, static_cast<std::size_t>(size));
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    Entry entry;
    if (entry) {
        return entry->Open(path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    return __real_open(path, flags, mode);
}

ssize_t __real_write(int descriptor, const void* bytes, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t size) {
    Entry entry;
    return entry ? entry->Write(descriptor, bytes, size) : __real_write(descriptor, bytes, size);
}

int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds) {
    Entry entry;
    return entry ? entry->Usleep(microseconds) : __real_usleep(microseconds);
}

[[noreturn]] void __real_exit(int status);
[[noreturn]] void __wrap_exit(int status) {
    // No entry: what exit flushes is still the program's.
    if (virt::g_unit != nullptr) {
        virt::g_unit->Exit(status);
    }
    __real_exit(status);
}

int __real_posix_memalign(void** block, std::size_t alignment, std::size_t size);
int __wrap_posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    Entry entry;
    return entry ? entry->Memalign(block, alignment, size)
                 : __real_posix_memalign(block, alignment, size);
}

void __real_free(void* block);
void __wrap_free(void* block) {
    Entry entry;
    if (!entry || block == nullptr || !entry->Release(block)) {
        __real_free(block);
    }
}

std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode) {
    Entry entry;
    return entry ? entry->Fopen(path) : __real_fopen(path, mode);
}

int __real_fseek(std::FILE* file, long offset, int whence);
int __wrap_fseek(std::FILE* file, long offset, int whence) {
    Entry entry;
    return entry ? entry->Fseek(file, offset, whence) : __real_fseek(file, offset, whence);
}

long __real_ftell(std::FILE* file);
long __wrap_ftell(std::FILE* file) {
    Entry entry;
    return entry ? entry->Ftell(file) : __real_ftell(file);
}

std::size_t __real_fread(void* to, std::size_t size, std::size_t count, std::FILE* file);
std::size_t __wrap_fread(void* to, std::size_t size, std::size_t count, std::FILE* file) {
    Entry entry;
    return entry ? entry->Fread(to, size * count, file) / size
                 : __real_fread(to, size, count, file);
}

int __real_feof(std::FILE* file);
int __wrap_feof(std::FILE* file) {
    Entry entry;
    return entry ? entry->Feof(file) : __real_feof(file);
}

}  // extern "C"

void* operator new(std::size_t size) {
    Entry entry;
    void* const block = entry ? entry->New(size, CallKind::NewStorage) : std::malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    Entry entry;
    return entry ? entry->New(size, CallKind::NewObject) : std::malloc(size);
}

void operator delete(void* block) noexcept {
    Entry entry;
    if (!entry || block == nullptr || !entry->Release(block)) {
        __real_free(block);
    }
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}
