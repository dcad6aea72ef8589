// SPDX-License-Identifier: Apache-2.0
// A head unit to measure against. Preloaded into a program, it answers the program's calls on the
// bus and the reset line, and counts them.
//
// As it is, everything happens at once, the program's waits too: what is left is what the program
// itself spends. With BENCH_BUS_PACED in the environment, transfers take their time on the wire and
// the waits between them are waited, to the last moment: what a download takes longer is the
// program's.
//
// At the program's end the counts are written, a name and a number a line, to the file that
// BENCH_BUS_COUNTS names.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char BUS[] = "/dev/i2c1";
const char RESET_LINE[] = "/dev/gpio/HD_DAB2Reset";

// The version that the chip reports once it was programmed, and before.
const char NEW_VERSION[] = "BENCH_2";
const char OLD_VERSION[] = "BENCH_1";

// A request up to its function byte, and what it may ask.
enum {
    REQUEST_SIZE = 13,
    OPCODE = 6,
    OPCODE_VERSION = 0x80,
    SEGMENT = 10,
    FUNCTION = 12,
    FUNCTION_PROGRAM = 4,
    STATUS_COMPLETE = 1
};

const std::int64_t NS_PER_S = 1000000000;
const std::int64_t BUS_HZ = 400000;

// A processor that sleeps wakes up late; a bus does not end late. The rest is waited awake.
const std::int64_t AWAKE_NS = 300000;

struct Counts {
    long locks_and_unlocks;
    long writes;
    long reads;
    long bytes_written;
    long bytes_read;
    long sleeps;
    long slept_us;
    long resets;
    long download_us;  // from the first segment to the first poll
} counts;

int bus_fd = -1;
int reset_fd = -1;
bool programmed = false;
unsigned char request[REQUEST_SIZE];

bool paced = false;
std::int64_t download_started_ns = 0;

std::int64_t Now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * NS_PER_S + now.tv_nsec;
}

// Waits until a transfer of `bytes` bytes that began at `start` is through: address and bytes with
// their acknowledge bits, start and stop.
void Pace(std::int64_t start, long bytes) {
    const std::int64_t end = start + (9 * (bytes + 1) + 2) * (NS_PER_S / BUS_HZ);
    const std::int64_t asleep = end - AWAKE_NS;
    if (asleep > start) {
        const timespec until = {static_cast<time_t>(asleep / NS_PER_S),
                                static_cast<long>(asleep % NS_PER_S)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
    }
    while (Now() < end) {
    }
}

void Write(const i2c_msg& message) {
    counts.writes += 1;
    counts.bytes_written += message.len;
    memcpy(request, message.buf, std::min<size_t>(message.len, sizeof request));
    if (request[OPCODE] != OPCODE_VERSION && request[FUNCTION] == FUNCTION_PROGRAM &&
        request[SEGMENT] == 0 && request[SEGMENT + 1] == 0) {
        download_started_ns = Now();
    }
}

// Every request is answered as received; a version query by the version, anything else by a payload
// that says "complete" to whoever asks for a status.
void Read(const i2c_msg& message) {
    counts.reads += 1;
    counts.bytes_read += message.len;
    unsigned char payload[16] = {0, STATUS_COMPLETE};
    size_t size = 2;
    if (request[OPCODE] == OPCODE_VERSION) {
        const char* const version = programmed ? NEW_VERSION : OLD_VERSION;
        size = 1 + strlen(version) + 1;
        memcpy(payload + 1, version, size - 1);
    } else {
        programmed = true;
    }
    unsigned char* const lm = message.buf + 1;
    memcpy(lm, request, 12);
    const size_t length = 12 + size + 1;
    message.buf[0] = static_cast<unsigned char>(length);
    lm[4] = static_cast<unsigned char>(length);
    lm[5] = 0;
    lm[7] = 1;
    memcpy(lm + 12, payload, size);
    unsigned char sum = 0;
    for (size_t i = 0; i + 1 < length; ++i) {
        sum = static_cast<unsigned char>(sum + lm[i]);
    }
    lm[length - 1] = sum;
}

// The C library's own definition of the function `name`.
template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// The most memory that the program had, in KiB.
long Peak() {
    long peak = 0;
    char line[128];
    FILE* const file = fopen("/proc/self/status", "r");
    while (file != nullptr && fgets(line, sizeof line, file) != nullptr) {
        sscanf(line, "VmHWM: %ld", &peak);
    }
    return peak;
}

__attribute__((constructor)) void Start() {
    paced = getenv("BENCH_BUS_PACED") != nullptr;
}

void Slept(long microseconds) {
    counts.sleeps += 1;
    counts.slept_us += microseconds;
}

__attribute__((destructor)) void Report() {
    const size_t heap = mallinfo2().uordblks;
    const char* const path = getenv("BENCH_BUS_COUNTS");
    FILE* const file = path != nullptr ? fopen(path, "w") : nullptr;
    if (file == nullptr) {
        return;
    }
    fprintf(file, "locks_and_unlocks %ld\nwrites %ld\nreads %ld\n", counts.locks_and_unlocks,
            counts.writes, counts.reads);
    fprintf(file, "bytes_written %ld\nbytes_read %ld\n", counts.bytes_written, counts.bytes_read);
    fprintf(file, "sleeps %ld\nslept_us %ld\nresets %ld\n", counts.sleeps, counts.slept_us,
            counts.resets);
    fprintf(file, "download_us %ld\nheap_bytes %zu\npeak_kib %ld\n", counts.download_us, heap,
            Peak());
    fclose(file);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const auto real = Real<int (*)(const char*, int, ...)>("open");
    if (strcmp(path, BUS) == 0) {
        return bus_fd = real("/dev/null", O_RDWR);
    }
    if (strcmp(path, RESET_LINE) == 0) {
        return reset_fd = real("/dev/null", O_RDWR);
    }
    return real(path, flags, mode);
}

int flock(int, int) noexcept {
    counts.locks_and_unlocks += 1;
    return 0;
}

int ioctl(int fd, unsigned long request_code, ...) noexcept {
    if (fd != bus_fd || request_code != I2C_RDWR) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, request_code);
    const auto* const transfer = va_arg(arguments, const i2c_rdwr_ioctl_data*);
    va_end(arguments);
    for (unsigned int i = 0; i < transfer->nmsgs; ++i) {
        const i2c_msg& message = transfer->msgs[i];
        const std::int64_t start = paced ? Now() : 0;
        (message.flags & I2C_M_RD) != 0 ? Read(message) : Write(message);
        if (paced) {
            Pace(start, message.len);
        }
    }
    return static_cast<int>(transfer->nmsgs);
}

ssize_t write(int fd, const void* bytes, size_t size) {
    if (fd == reset_fd && reset_fd != -1) {
        counts.resets += *static_cast<const char*>(bytes) == '1';
        return static_cast<ssize_t>(size);
    }
    return Real<ssize_t (*)(int, const void*, size_t)>("write")(fd, bytes, size);
}

int usleep(useconds_t microseconds) {
    Slept(static_cast<long>(microseconds));
    return paced ? Real<int (*)(useconds_t)>("usleep")(microseconds) : 0;
}

// The long waits, before and after a download, are never waited.
int nanosleep(const timespec* wanted, timespec*) {
    if (download_started_ns != 0 && counts.download_us == 0) {
        counts.download_us = static_cast<long>((Now() - download_started_ns) / 1000);
    }
    Slept(static_cast<long>(wanted->tv_sec) * 1000000 + wanted->tv_nsec / 1000);
    return 0;
}
}
