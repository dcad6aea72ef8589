// SPDX-License-Identifier: Apache-2.0
// What each call of the program does.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/platform.h"
#include "tests/support/VirtualHeadUnit.h"

namespace virt {

namespace {

constexpr std::string_view BUS_DEVICE = "/dev/i2c1";
constexpr std::string_view RESET_DEVICE = "/dev/gpio/HD_DAB2Reset";

// A program that resets the chip so often never stops; a run has at most four pulses.
constexpr int MOST_RESET_WRITES = 100;

// The header of a transfer's data block: four words, then the bytes.
constexpr std::size_t BLOCK_HEADER = 16;
constexpr std::uint32_t FORMAT7_BIT = 2;

std::uint32_t Word(const std::uint8_t* at) {
    return at[0] | static_cast<std::uint32_t>(at[1]) << 8 |
           static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}

}  // namespace

int VirtualHeadUnit::Open(const char* path, int flags) {
    Call& call = Begin(CallKind::Open, flags, 0);
    log_.Attach(path, std::strlen(path));
    const Strike strike = Ask(call);
    const bool is_bus = BUS_DEVICE == path;
    int error = strike.error;
    if (strike.how == Strike::How::None) {
        error = is_bus && has_bus_device                   ? 0
                : RESET_DEVICE == path && has_reset_device ? 0
                                                           : ENOENT;
    }
    if (error != 0) {
        errno = error;
        call.result = -1;
        return -1;
    }
    const int descriptor =
        strike.how == Strike::How::Value ? static_cast<int>(strike.value) : next_descriptor_++;
    if (is_bus) {
        bus_descriptor_ = descriptor;
    } else {
        line_descriptors_.push_back(descriptor);
    }
    call.result = descriptor;
    return descriptor;
}

long VirtualHeadUnit::Write(int descriptor, const void* bytes, std::size_t size) {
    Call& call = Begin(CallKind::WriteReset, descriptor, 0);
    last_pulse_ = unit_.Now();
    if (log_.Count(CallKind::WriteReset) > MOST_RESET_WRITES) {
        Leave(Outcome::Endless);
    }
    log_.Attach(bytes, size);
    const Strike strike = Ask(call);
    call.result = static_cast<std::int64_t>(size);
    int error = strike.error;
    if (strike.how == Strike::How::Value) {
        call.result = strike.value;
    } else if (strike.how != Strike::How::Fail) {
        const bool is_line = std::find(line_descriptors_.begin(), line_descriptors_.end(),
                                       descriptor) != line_descriptors_.end();
        const int result =
            is_line ? unit_.WriteReset(static_cast<const char*>(bytes), size) : EBADF;
        error = result != 0 ? result : error;
    }
    if (error != 0) {
        errno = error;
        call.result = -1;
    }
    return static_cast<long>(call.result);
}

int VirtualHeadUnit::Devctl(int descriptor, int command, void* data, std::size_t size) {
    if (command == DCMD_I2C_SEND) {
        return Transfer(CallKind::Send, descriptor, data, size);
    }
    if (command == DCMD_I2C_RECV) {
        return Transfer(CallKind::Receive, descriptor, data, size);
    }
    const CallKind kind = command == DCMD_I2C_LOCK     ? CallKind::Lock
                          : command == DCMD_I2C_UNLOCK ? CallKind::Unlock
                                                       : CallKind::SetSpeed;
    int speed = 0;
    if (kind == CallKind::SetSpeed && size == sizeof speed) {
        std::memcpy(&speed, data, sizeof speed);
    }
    Call& call = Begin(kind, speed, command);
    const Strike strike = Ask(call);
    int result = strike.error;
    if (strike.how == Strike::How::None || strike.how == Strike::How::After) {
        const bool is_known = kind != CallKind::SetSpeed || command == DCMD_I2C_SET_BUS_SPEED;
        const int done = descriptor != bus_descriptor_      ? EBADF
                         : kind == CallKind::Lock           ? Lock()
                         : kind == CallKind::Unlock         ? unit_.Unlock()
                         : is_known && size == sizeof speed ? 0
                                                            : ENOTTY;
        result = result != 0 ? result : done;
    } else if (strike.how == Strike::How::Block) {
        Leave(Outcome::Blocked);
    }
    call.result = result;
    return result;
}

int VirtualHeadUnit::Transfer(CallKind kind, int descriptor, void* data, std::size_t size) {
    auto* const block = static_cast<std::uint8_t*>(data);
    if (descriptor != bus_descriptor_ || size < BLOCK_HEADER) {
        Begin(kind, 0, 0).result = EBADF;
        return EBADF;
    }
    const bool is_send = kind == CallKind::Send;
    const std::uint32_t address = Word(block);
    const std::size_t length = size - BLOCK_HEADER;
    std::uint8_t* const bytes = block + BLOCK_HEADER;
    Call& call = Begin(kind, address, Word(block + 12));
    if (is_send) {
        log_.Attach(bytes, length);
    }
    const Strike strike = Ask(call);
    int result = strike.error;
    if (strike.how == Strike::How::None || strike.how == Strike::How::After) {
        std::vector<std::uint8_t>& read = received_;
        read.assign(length, 0);
        const int done = Word(block + 4) != FORMAT7_BIT || Word(block + 8) != length ? EINVAL
                         : is_send ? unit_.Send(address, bytes, length)
                                   : unit_.Receive(address, read.data(), length);
        result = result != 0 ? result : done;
        if (!is_send && result == 0) {
            std::copy(read.begin(), read.end(), bytes);
        }
    }
    if (!is_send && result == 0) {
        log_.Attach(bytes, length);
    }
    call.result = result;
    return result;
}

unsigned VirtualHeadUnit::Delay(unsigned milliseconds) {
    Call& call = Begin(CallKind::Delay, milliseconds, 0);
    const Strike strike = Ask(call);
    const unsigned left = std::min(static_cast<unsigned>(strike.value), milliseconds);
    call.result = left;
    Pass(std::chrono::milliseconds(milliseconds - left));
    return left;
}

int VirtualHeadUnit::Usleep(unsigned microseconds) {
    Call& call = Begin(CallKind::Usleep, microseconds, 0);
    const Strike strike = Ask(call);
    if (strike.how == Strike::How::Fail) {
        errno = strike.error;
        call.result = -1;
        return -1;
    }
    Pass(std::chrono::microseconds(microseconds));
    return 0;
}

int VirtualHeadUnit::Slogf(int opcode, int severity, const char* text, std::size_t size) {
    Call& call = Begin(CallKind::Log, opcode, severity);
    log_.Attach(text, size);
    const Strike strike = Ask(call);
    call.result = strike.how == Strike::How::None ? 0 : -1;
    return static_cast<int>(call.result);
}

int VirtualHeadUnit::Memalign(void** block, std::size_t alignment, std::size_t size) {
    Call& call = Begin(CallKind::Memalign, static_cast<std::int64_t>(size),
                       static_cast<std::int64_t>(alignment));
    if (Ask(call).how == Strike::How::None) {
        *block = memory_.TakeAligned(alignment, size);
        call.result = *block != nullptr ? 0 : ENOMEM;
    } else {
        call.result = ENOMEM;
    }
    return static_cast<int>(call.result);
}

void* VirtualHeadUnit::New(std::size_t size, CallKind kind) {
    Call& call = Begin(kind, static_cast<std::int64_t>(size), 0);
    void* const block = Ask(call).how == Strike::How::None ? memory_.Take(size) : nullptr;
    call.result = block != nullptr ? 0 : ENOMEM;
    return block;
}

bool VirtualHeadUnit::Release(void* block) {
    return memory_.Release(block);
}

std::FILE* VirtualHeadUnit::Fopen(const char* path) {
    Call& call = Begin(CallKind::Fopen, 0, 0);
    log_.Attach(path, std::strlen(path));
    const Strike strike = Ask(call);
    // An opening that fails is one all the same: which content comes next does not change.
    std::FILE* file = files.Open(path);
    if (strike.how != Strike::How::None) {
        file = nullptr;
        errno = strike.error;
    }
    call.result = file != nullptr ? 0 : errno;
    return file;
}

int VirtualHeadUnit::Fseek(std::FILE* file, long offset, int whence) {
    Call& call = Begin(CallKind::Fseek, offset, whence);
    const Strike strike = Ask(call);
    if (strike.how == Strike::How::None) {
        call.result = files.Seek(file, offset, whence);
    } else {
        errno = strike.error;
        call.result = -1;
    }
    return static_cast<int>(call.result);
}

long VirtualHeadUnit::Ftell(std::FILE* file) {
    Call& call = Begin(CallKind::Ftell, 0, 0);
    const Strike strike = Ask(call);
    call.result = strike.how == Strike::How::Value ? strike.value : files.Tell(file);
    if (strike.how == Strike::How::Fail) {
        errno = strike.error;
        call.result = -1;
    }
    return static_cast<long>(call.result);
}

std::size_t VirtualHeadUnit::Fread(void* to, std::size_t wanted, std::FILE* file) {
    Call& call = Begin(CallKind::Fread, static_cast<std::int64_t>(wanted), 0);
    const Strike strike = Ask(call);
    const std::size_t limit = strike.how == Strike::How::None ? wanted
                              : strike.how == Strike::How::Limit
                                  ? static_cast<std::size_t>(strike.value)
                                  : std::size_t{0};
    const std::size_t got = files.Read(file, to, wanted, limit);
    if (strike.error != 0) {
        errno = strike.error;
    }
    call.result = static_cast<std::int64_t>(got);
    call.detail = files.AtEnd(file) ? 1 : 0;
    log_.Attach(to, got);
    return got;
}

int VirtualHeadUnit::Feof(std::FILE* file) {
    CountIdle();
    return files.AtEnd(file) ? 1 : 0;
}

long VirtualHeadUnit::Output(const char* bytes, std::size_t size) {
    if (discard_output_) {
        return static_cast<long>(size);
    }
    Call& call = Begin(CallKind::Output, 0, 0);
    log_.Attach(bytes, size);
    const Strike strike = Ask(call);
    std::size_t taken = size;
    if (strike.how == Strike::How::Fail || strike.how == Strike::How::Limit) {
        taken = std::min(size, static_cast<std::size_t>(strike.value));
        errno = strike.error;
    }
    call.result = static_cast<std::int64_t>(taken);
    result_.out.append(bytes, taken);
    if (strike.error == EPIPE) {
        Leave(Outcome::SigPipe);
    }
    return static_cast<long>(taken);
}

long VirtualHeadUnit::ErrorOutput(const char* bytes, std::size_t size) {
    if (!discard_output_) {
        result_.err.append(bytes, size);
    }
    return static_cast<long>(size);
}

int VirtualHeadUnit::Lock() {
    const int result = unit_.Lock();
    if (result == sim::NEVER_RETURNS) {
        Leave(Outcome::Blocked);
    }
    return result;
}

}  // namespace virt
