// SPDX-License-Identifier: Apache-2.0
#include "tests/fuzz/Surroundings.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "platform/platform.h"
#include "tests/fuzz/Require.h"

namespace fuzz {

Exit* g_exit = nullptr;

namespace {

// What no run needs: microseconds of waiting, and calls to the bus. The polling and the reading of
// a long reply have no bound of their own.
const unsigned long LONGEST_WAIT = 20UL * 1000 * 1000;
const unsigned long MOST_CALLS = 150;

const int DEVICE_FD = 1000;  // of the bus and of the reset line

Surroundings* g_surroundings = nullptr;
unsigned long g_waited = 0;
unsigned long g_calls = 0;

using Release = void (*)(void*);

// Memory that the run has and has not released, and streams that it opened.
struct Block {
    void* memory;
    Release release;
};
std::vector<Block> g_blocks;
std::vector<FILE*> g_streams;

// While it lives, what is allocated is the target's own and no part of the run.
class OutsideTheRun {
  public:
    OutsideTheRun() : running_(g_surroundings) { g_surroundings = nullptr; }
    ~OutsideTheRun() { g_surroundings = running_; }
    OutsideTheRun(const OutsideTheRun&) = delete;
    OutsideTheRun& operator=(const OutsideTheRun&) = delete;

  private:
    Surroundings* running_;
};

void* Keep(void* memory, Release release) {
    if (g_surroundings != nullptr && memory != nullptr) {
        const OutsideTheRun outside;
        g_blocks.push_back({memory, release});
    }
    return memory;
}

void Forget(void* memory) {
    for (std::size_t i = g_blocks.size(); i > 0; --i) {
        if (g_blocks[i - 1].memory == memory) {
            g_blocks[i - 1] = g_blocks.back();
            g_blocks.pop_back();
            return;
        }
    }
}

[[noreturn]] void LeaveBy(End end, int status) {
    g_exit->outcome = {end, status};
    std::longjmp(g_exit->jump, 1);
}

void Wait(unsigned long microseconds) {
    g_waited += microseconds;
    if (g_waited > LONGEST_WAIT) {
        LeaveBy(End::CutOff, 0);
    }
}

// An open image file: a position in what the surroundings say that the file holds.
struct ImageStream {
    std::size_t position;
};

ssize_t ReadStream(void* cookie, char* to, size_t size) {
    auto* const stream = static_cast<ImageStream*>(cookie);
    const std::size_t count = g_surroundings->ReadImage(stream->position, to, size);
    stream->position += count;
    return static_cast<ssize_t>(count);
}

int SeekStream(void* cookie, off64_t* offset, int whence) {
    auto* const stream = static_cast<ImageStream*>(cookie);
    const std::size_t base = whence == SEEK_END   ? g_surroundings->ImageSize()
                             : whence == SEEK_CUR ? stream->position
                                                  : 0;
    stream->position = base + static_cast<std::size_t>(*offset);
    *offset = static_cast<off64_t>(stream->position);
    return 0;
}

int CloseStream(void* cookie) {
    delete static_cast<ImageStream*>(cookie);
    return 0;
}

FILE* OpenImage() {
    cookie_io_functions_t functions = {ReadStream, nullptr, SeekStream, CloseStream};
    const OutsideTheRun outside;
    FILE* const file = fopencookie(new ImageStream{0}, "r", functions);
    g_streams.push_back(file);
    return file;
}

// Texts and dumps go nowhere: a fuzz target has no reader, and standard error is unbuffered.
void Silence() {
    static const bool SILENT = [] {
        stdout = std::fopen("/dev/null", "w");
        stderr = std::fopen("/dev/null", "w");
        return stdout != nullptr && stderr != nullptr;
    }();
    Require(SILENT, "/dev/null cannot be opened");
}

void Clear(std::string& text) {
    std::string().swap(text);
}

}  // namespace

void Enter(Surroundings& surroundings) {
    Silence();
    g_waited = 0;
    g_calls = 0;
    optind = 0;  // glibc's getopt then starts over
    g_surroundings = &surroundings;
}

void Leave() {
    delete g_p_hutil_msg;
    delete g_p_hutil_opt;
    g_p_hutil_msg = nullptr;
    g_p_hutil_opt = nullptr;
    p_ischip = nullptr;
    Clear(installed_version);
    Clear(file_version);
    Clear(filename);
    for (FILE* const stream : g_streams) {
        fclose(stream);
    }
    g_streams.clear();
    g_surroundings = nullptr;
    for (const Block& block : g_blocks) {
        block.release(block.memory);
    }
    g_blocks.clear();
}

}  // namespace fuzz

extern "C" {

// Blocks are small and live for one run: neither a long quarantine nor deep stacks help.
const char* __asan_default_options();
const char* __asan_default_options() {
    return "quarantine_size_mb=8:malloc_context_size=8";
}

int devctl(int, int dcmd, void* data, size_t nbytes, int*) {
    if (++fuzz::g_calls > fuzz::MOST_CALLS) {
        fuzz::LeaveBy(fuzz::End::CutOff, 0);
    }
    return fuzz::g_surroundings->Devctl(dcmd, static_cast<std::uint8_t*>(data), nbytes);
}

unsigned int delay(unsigned int milliseconds) {
    fuzz::Wait(milliseconds * 1000UL);
    return 0;
}

int slogf(int, int, const char*, ...) {
    return 0;
}

int __wrap_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds) {
    fuzz::Wait(microseconds);
    return 0;
}

[[noreturn]] void __wrap_exit(int status);
[[noreturn]] void __real_exit(int status);
void __wrap_exit(int status) {
    if (fuzz::g_surroundings == nullptr) {
        __real_exit(status);
    }
    fuzz::LeaveBy(fuzz::End::Exited, status);
}

// What is printed is not even formatted: a dump of a long request would cost more than all else.
int __wrap_printf(const char* format, ...);
int __wrap_printf(const char*, ...) {
    return 0;
}

int __wrap_fprintf(FILE* stream, const char* format, ...);
int __wrap_fprintf(FILE*, const char*, ...) {
    return 0;
}

int __wrap_open(const char* path, int flags, unsigned int mode);
int __real_open(const char* path, int flags, unsigned int mode);
int __wrap_open(const char* path, int flags, unsigned int mode) {
    return fuzz::g_surroundings != nullptr ? fuzz::DEVICE_FD : __real_open(path, flags, mode);
}

ssize_t __wrap_write(int fd, const void* from, size_t size);
ssize_t __real_write(int fd, const void* from, size_t size);
ssize_t __wrap_write(int fd, const void* from, size_t size) {
    return fd == fuzz::DEVICE_FD ? static_cast<ssize_t>(size) : __real_write(fd, from, size);
}

FILE* __wrap_fopen(const char* path, const char* mode);
FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode) {
    return fuzz::g_surroundings != nullptr ? fuzz::OpenImage() : __real_fopen(path, mode);
}

void __real_free(void* memory);
void __real__ZdlPv(void* memory);

int __wrap_posix_memalign(void** memory, size_t alignment, size_t size);
int __real_posix_memalign(void** memory, size_t alignment, size_t size);
int __wrap_posix_memalign(void** memory, size_t alignment, size_t size) {
    const int result = __real_posix_memalign(memory, alignment, size);
    fuzz::Keep(*memory, __real_free);
    return result;
}

void __wrap_free(void* memory);
void __wrap_free(void* memory) {
    fuzz::Forget(memory);
    __real_free(memory);
}

// The operators new and delete of 64-bit systems, under the names that the linker knows.
void* __wrap__Znwm(size_t size);
void* __real__Znwm(size_t size);
void* __wrap__Znwm(size_t size) {
    return fuzz::Keep(__real__Znwm(size), __real__ZdlPv);
}

void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
    return fuzz::Keep(__real__ZnwmRKSt9nothrow_t(size, tag), __real__ZdlPv);
}

void __wrap__ZdlPv(void* memory);
void __wrap__ZdlPv(void* memory) {
    fuzz::Forget(memory);
    __real__ZdlPv(memory);
}

void __wrap__ZdlPvm(void* memory, size_t size);
void __real__ZdlPvm(void* memory, size_t size);
void __wrap__ZdlPvm(void* memory, size_t size) {
    fuzz::Forget(memory);
    __real__ZdlPvm(memory, size);
}
}
