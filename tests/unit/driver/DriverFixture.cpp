// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/driver/DriverFixture.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <new>

Devices g_devices;

namespace {

template <class Value>
Value Next(std::vector<Value>* results, Value otherwise) {
    if (results->empty()) {
        return otherwise;
    }
    const Value result = results->front();
    results->erase(results->begin());
    return result;
}

// The driver's globals as they are when the program starts.
struct Globals : testing::Environment {
    void SetUp() override {
        EXPECT_EQ(installed_version, "");
        EXPECT_EQ(file_version, "");
        EXPECT_EQ(filename, "");
        EXPECT_EQ(p_ischip, nullptr);
        EXPECT_EQ(state, 0);
        EXPECT_THAT(g_options, testing::ElementsAre(false, false, false));
    }
};
const testing::Environment* const g_globals = testing::AddGlobalTestEnvironment(new Globals);

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    const auto device = g_devices.descriptors.find(path);
    if (device == g_devices.descriptors.end()) {
        va_list arguments;
        va_start(arguments, flags);
        const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
        va_end(arguments);
        return __real_open(path, flags, mode);
    }
    fake::Current().Note("open " + device->first + (flags == O_RDWR ? " O_RDWR" : " otherwise"));
    errno = EACCES;
    return device->second;
}

ssize_t __real_write(int fd, const void* bytes, size_t size);
ssize_t __wrap_write(int fd, const void* bytes, size_t size);
ssize_t __wrap_write(int fd, const void* bytes, size_t size) {
    if (fd != g_devices.descriptors["/dev/gpio/HD_DAB2Reset"]) {
        return __real_write(fd, bytes, size);
    }
    fake::Current().Note("write " + std::string(static_cast<const char*>(bytes), size));
    return Next<ssize_t>(&g_devices.write_results, 1);
}

int __real_close(int fd);
int __wrap_close(int fd);
int __wrap_close(int fd) {
    g_devices.closed.push_back(std::to_string(fd));
    return fd == LINE_DESCRIPTOR || fd == BUS_DESCRIPTOR ? 0 : __real_close(fd);
}

unsigned int __wrap_delay(unsigned int milliseconds);
unsigned int __wrap_delay(unsigned int milliseconds) {
    fake::Current().Delay(milliseconds);
    return Next(&g_devices.delay_results, 0u);
}

FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode) {
    g_devices.streams.push_back(mode + std::string(" ") + path);
    if (g_devices.fopen_error != 0) {
        errno = g_devices.fopen_error;
        return nullptr;
    }
    FILE* const stream = __real_fopen(path, mode);
    g_devices.images.push_back(stream);
    return stream;
}

int __real_fclose(FILE* stream);
int __wrap_fclose(FILE* stream);
int __wrap_fclose(FILE* stream) {
    for (FILE* const image : g_devices.images) {
        if (image == stream) {
            g_devices.closed.push_back("image");
        }
    }
    return __real_fclose(stream);
}

int __real_fseek(FILE* stream, long offset, int whence);
int __wrap_fseek(FILE* stream, long offset, int whence);
int __wrap_fseek(FILE* stream, long offset, int whence) {
    g_devices.moves.push_back("seek " + std::to_string(offset) +
                              (whence == SEEK_SET ? " from the start" : " otherwise"));
    errno = g_devices.fseek_error;
    return g_devices.fseek_error != 0 ? -1 : __real_fseek(stream, offset, whence);
}

size_t __real_fread(void* bytes, size_t size, size_t count, FILE* stream);
size_t __wrap_fread(void* bytes, size_t size, size_t count, FILE* stream);
size_t __wrap_fread(void* bytes, size_t size, size_t count, FILE* stream) {
    g_devices.moves.push_back("read " + std::to_string(count) + " of " + std::to_string(size));
    errno = g_devices.fread_error;
    return g_devices.fread_error != 0 ? 0 : __real_fread(bytes, size, count, stream);
}
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return g_devices.objects_left-- > 0 ? ::operator new(size) : nullptr;
}
