// SPDX-License-Identifier: Apache-2.0
#include "tests/support/VirtualHeadUnit.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <new>
#include <stdexcept>

#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "platform/platform.h"
#include "tests/support/StreamChecker.h"
#include "tests/support/virtual_calls.h"

// The program's main, renamed in its object.
extern "C" int bbpflash_main(int argc, char** argv);

namespace virt {

namespace {

constexpr std::string_view kBusDevice = "/dev/i2c1";
constexpr std::string_view kResetDevice = "/dev/gpio/HD_DAB2Reset";

// What a pipe's stream buffers.
constexpr std::size_t kStreamBuffer = 4096;

// The header of a transfer's data block: four words, then the bytes.
constexpr std::size_t kBlockHeader = 16;
constexpr std::uint32_t kFormat7Bit = 2;

// A program that makes so many calls while no time passes never stops.
constexpr int kMostIdleCalls = 10000;

std::uint32_t Word(const std::uint8_t* at) {
    return at[0] | static_cast<std::uint32_t>(at[1]) << 8 |
           static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}

// Every global as at the start of a process. What the strings held went with the run's memory.
void ResetProgram() {
    new (&installed_version) std::string;
    new (&file_version) std::string;
    new (&filename) std::string;
    p_ischip = nullptr;
    std::fill(std::begin(g_options), std::end(g_options), false);
    state = 0;
    g_p_hutil_opt = nullptr;
    g_p_hutil_msg = nullptr;
    // Makes getopt forget where in which arguments it was.
    optind = 0;
    optarg = nullptr;
    errno = 0;
}

}  // namespace

const char* NameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::kExit:
            return "exit";
        case Outcome::kOutOfRange:
            return "uncaught out_of_range";
        case Outcome::kBadAlloc:
            return "uncaught bad_alloc";
        case Outcome::kOtherException:
            return "uncaught exception";
        case Outcome::kSigPipe:
            return "SIGPIPE";
        case Outcome::kEndless:
            return "endless";
        case Outcome::kBlocked:
            return "blocked";
    }
    return "";
}

VirtualHeadUnit::VirtualHeadUnit(sim::ChipConfig config, std::vector<sim::Fault> faults)
    : unit_(std::move(config), std::move(faults)),
      stdout_buffer_(kStreamBuffer),
      stderr_buffer_(kStreamBuffer) {}

VirtualHeadUnit::~VirtualHeadUnit() = default;

RunResult VirtualHeadUnit::Run(const std::vector<std::string>& arguments) {
    std::vector<std::vector<char>> words;
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        words.emplace_back(argument.c_str(), argument.c_str() + argument.size() + 1);
        argv.push_back(words.back().data());
    }
    argv.push_back(nullptr);
    const int argc = static_cast<int>(arguments.size());
    RunResult result = RunPiece([argc, &argv] { return bbpflash_main(argc, argv.data()); });
    CheckOutput(arguments, result);
    return result;
}

void VirtualHeadUnit::CheckOutput(const std::vector<std::string>& arguments,
                                  const RunResult& result) const {
    const auto is_struck = [](const Call& call) {
        return call.kind == CallKind::kOutput && call.struck;
    };
    const std::vector<Call>& calls = log_.Calls();
    if (!checks_output || std::any_of(calls.begin(), calls.end(), is_struck)) {
        return;
    }
    // As a shell would see it: every other end is a signal's.
    const int status = result.outcome == Outcome::kExit ? result.status : 128 + SIGKILL;
    EXPECT_TRUE(ConformsToContract(result.out, ModeOf(arguments), status));
}

RunResult VirtualHeadUnit::RunPiece(const std::function<int()>& piece) {
    log_.Clear();
    files.Restart();
    result_ = RunResult();
    started_ = unit_.Now();
    last_pulse_ = started_;
    bus_descriptor_ = -1;
    line_descriptors_.clear();
    next_descriptor_ = STDERR_FILENO + 1;
    idle_calls_ = 0;
    discard_output_ = false;
    ResetProgram();
    OpenStreams();
    Perform(piece);
    EndProgram();
    // Unbuffered for the program, collected for speed.
    std::fflush(stderr);
    CloseStreams();
    ResetProgram();
    memory_.ReleaseAll();
    return std::move(result_);
}

void VirtualHeadUnit::Perform(const std::function<int()>& piece) {
    if (setjmp(leave_) != 0) {
        return;
    }
    StartProgram(this);
    try {
        Exit(piece());
    } catch (const std::out_of_range&) {
        result_.outcome = Outcome::kOutOfRange;
    } catch (const std::bad_alloc&) {
        result_.outcome = Outcome::kBadAlloc;
    } catch (...) {
        result_.outcome = Outcome::kOtherException;
    }
}

void VirtualHeadUnit::Leave(Outcome outcome) {
    result_.outcome = outcome;
    std::longjmp(leave_, 1);
}

void VirtualHeadUnit::Exit(int status) {
    std::fflush(stdout);
    result_.status = status & 0xFF;
    Leave(Outcome::kExit);
}

Call& VirtualHeadUnit::Begin(CallKind kind, std::int64_t argument, std::int64_t detail) {
    CountIdle();
    const int error = errno;
    Call& call = log_.Add(kind, unit_.Now() - started_);
    call.error_before = error;
    errno = error;
    call.argument = argument;
    call.detail = detail;
    return call;
}

Strike VirtualHeadUnit::Ask(Call& call) {
    if (hook_ == nullptr) {
        return Strike();
    }
    const Strike strike = hook_->OnCall(call, log_.Total() - 1, log_.Count(call.kind) - 1);
    call.struck = strike.how != Strike::How::kNone;
    return strike;
}

void VirtualHeadUnit::CountIdle() {
    if (++idle_calls_ > kMostIdleCalls) {
        Leave(Outcome::kEndless);
    }
}

void VirtualHeadUnit::Pass(Duration time) {
    idle_calls_ = 0;
    unit_.Advance(time);
    if (unit_.Now() - last_pulse_ > time_limit_) {
        Leave(Outcome::kEndless);
    }
}

int VirtualHeadUnit::Open(const char* path, int flags) {
    Call& call = Begin(CallKind::kOpen, flags, 0);
    log_.Attach(path, std::strlen(path));
    const Strike strike = Ask(call);
    const bool is_bus = kBusDevice == path;
    int error = strike.error;
    if (strike.how == Strike::How::kNone) {
        error = is_bus && has_bus_device                   ? 0
                : kResetDevice == path && has_reset_device ? 0
                                                           : ENOENT;
    }
    if (error != 0) {
        errno = error;
        call.result = -1;
        return -1;
    }
    const int descriptor =
        strike.how == Strike::How::kValue ? static_cast<int>(strike.value) : next_descriptor_++;
    if (is_bus) {
        bus_descriptor_ = descriptor;
    } else {
        line_descriptors_.push_back(descriptor);
    }
    call.result = descriptor;
    return descriptor;
}

long VirtualHeadUnit::Write(int descriptor, const void* bytes, std::size_t size) {
    Call& call = Begin(CallKind::kWriteReset, descriptor, 0);
    last_pulse_ = unit_.Now();
    log_.Attach(bytes, size);
    const Strike strike = Ask(call);
    call.result = static_cast<std::int64_t>(size);
    int error = strike.error;
    if (strike.how == Strike::How::kValue) {
        call.result = strike.value;
    } else if (strike.how != Strike::How::kFail) {
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
        return Transfer(CallKind::kSend, descriptor, data, size);
    }
    if (command == DCMD_I2C_RECV) {
        return Transfer(CallKind::kReceive, descriptor, data, size);
    }
    const CallKind kind = command == DCMD_I2C_LOCK     ? CallKind::kLock
                          : command == DCMD_I2C_UNLOCK ? CallKind::kUnlock
                                                       : CallKind::kSetSpeed;
    int speed = 0;
    if (kind == CallKind::kSetSpeed && size == sizeof speed) {
        std::memcpy(&speed, data, sizeof speed);
    }
    Call& call = Begin(kind, speed, command);
    const Strike strike = Ask(call);
    int result = strike.error;
    if (strike.how == Strike::How::kNone || strike.how == Strike::How::kAfter) {
        const bool is_known = kind != CallKind::kSetSpeed || command == DCMD_I2C_SET_BUS_SPEED;
        const int done = descriptor != bus_descriptor_      ? EBADF
                         : kind == CallKind::kLock          ? Lock()
                         : kind == CallKind::kUnlock        ? unit_.Unlock()
                         : is_known && size == sizeof speed ? 0
                                                            : ENOTTY;
        result = result != 0 ? result : done;
    } else if (strike.how == Strike::How::kBlock) {
        Leave(Outcome::kBlocked);
    }
    call.result = result;
    return result;
}

int VirtualHeadUnit::Transfer(CallKind kind, int descriptor, void* data, std::size_t size) {
    auto* const block = static_cast<std::uint8_t*>(data);
    if (descriptor != bus_descriptor_ || size < kBlockHeader) {
        Begin(kind, 0, 0).result = EBADF;
        return EBADF;
    }
    const bool is_send = kind == CallKind::kSend;
    const std::uint32_t address = Word(block);
    const std::size_t length = size - kBlockHeader;
    std::uint8_t* const bytes = block + kBlockHeader;
    Call& call = Begin(kind, address, Word(block + 12));
    if (is_send) {
        log_.Attach(bytes, length);
    }
    const Strike strike = Ask(call);
    int result = strike.error;
    if (strike.how == Strike::How::kNone || strike.how == Strike::How::kAfter) {
        std::vector<std::uint8_t>& read = received_;
        read.assign(length, 0);
        const int done = Word(block + 4) != kFormat7Bit || Word(block + 8) != length ? EINVAL
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
    Call& call = Begin(CallKind::kDelay, milliseconds, 0);
    const Strike strike = Ask(call);
    const unsigned left = std::min(static_cast<unsigned>(strike.value), milliseconds);
    call.result = left;
    Pass(std::chrono::milliseconds(milliseconds - left));
    return left;
}

int VirtualHeadUnit::Usleep(unsigned microseconds) {
    Call& call = Begin(CallKind::kUsleep, microseconds, 0);
    const Strike strike = Ask(call);
    if (strike.how == Strike::How::kFail) {
        errno = strike.error;
        call.result = -1;
        return -1;
    }
    Pass(std::chrono::microseconds(microseconds));
    return 0;
}

int VirtualHeadUnit::Slogf(int opcode, int severity, const char* text, std::size_t size) {
    Call& call = Begin(CallKind::kLog, opcode, severity);
    log_.Attach(text, size);
    const Strike strike = Ask(call);
    call.result = strike.how == Strike::How::kNone ? 0 : -1;
    return static_cast<int>(call.result);
}

int VirtualHeadUnit::Memalign(void** block, std::size_t alignment, std::size_t size) {
    Call& call = Begin(CallKind::kMemalign, static_cast<std::int64_t>(size),
                       static_cast<std::int64_t>(alignment));
    if (Ask(call).how == Strike::How::kNone) {
        *block = memory_.TakeAligned(alignment, size);
        call.result = *block != nullptr ? 0 : ENOMEM;
    } else {
        call.result = ENOMEM;
    }
    return static_cast<int>(call.result);
}

void* VirtualHeadUnit::New(std::size_t size, CallKind kind) {
    Call& call = Begin(kind, static_cast<std::int64_t>(size), 0);
    void* const block = Ask(call).how == Strike::How::kNone ? memory_.Take(size) : nullptr;
    call.result = block != nullptr ? 0 : ENOMEM;
    return block;
}

bool VirtualHeadUnit::Release(void* block) {
    return memory_.Release(block);
}

std::FILE* VirtualHeadUnit::Fopen(const char* path) {
    Call& call = Begin(CallKind::kFopen, 0, 0);
    log_.Attach(path, std::strlen(path));
    const Strike strike = Ask(call);
    // An opening that fails is one all the same: which content comes next does not change.
    std::FILE* file = files.Open(path);
    if (strike.how != Strike::How::kNone) {
        file = nullptr;
        errno = strike.error;
    }
    call.result = file != nullptr ? 0 : errno;
    return file;
}

int VirtualHeadUnit::Fseek(std::FILE* file, long offset, int whence) {
    Call& call = Begin(CallKind::kFseek, offset, whence);
    const Strike strike = Ask(call);
    if (strike.how == Strike::How::kNone) {
        call.result = files.Seek(file, offset, whence);
    } else {
        errno = strike.error;
        call.result = -1;
    }
    return static_cast<int>(call.result);
}

long VirtualHeadUnit::Ftell(std::FILE* file) {
    Call& call = Begin(CallKind::kFtell, 0, 0);
    const Strike strike = Ask(call);
    call.result = strike.how == Strike::How::kValue ? strike.value : files.Tell(file);
    if (strike.how == Strike::How::kFail) {
        errno = strike.error;
        call.result = -1;
    }
    return static_cast<long>(call.result);
}

std::size_t VirtualHeadUnit::Fread(void* to, std::size_t wanted, std::FILE* file) {
    Call& call = Begin(CallKind::kFread, static_cast<std::int64_t>(wanted), 0);
    const Strike strike = Ask(call);
    const std::size_t limit = strike.how == Strike::How::kNone ? wanted
                              : strike.how == Strike::How::kLimit
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
    Call& call = Begin(CallKind::kOutput, 0, 0);
    log_.Attach(bytes, size);
    const Strike strike = Ask(call);
    std::size_t taken = size;
    if (strike.how == Strike::How::kFail || strike.how == Strike::How::kLimit) {
        taken = std::min(size, static_cast<std::size_t>(strike.value));
        errno = strike.error;
    }
    call.result = static_cast<std::int64_t>(taken);
    result_.out.append(bytes, taken);
    if (strike.error == EPIPE) {
        Leave(Outcome::kSigPipe);
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
        Leave(Outcome::kBlocked);
    }
    return result;
}

void VirtualHeadUnit::OpenStreams() {
    real_stdout_ = stdout;
    real_stderr_ = stderr;
    stdout = OpenCapture(this, false, stdout_buffer_.data(), stdout_buffer_.size());
    stderr = OpenCapture(this, true, stderr_buffer_.data(), stderr_buffer_.size());
}

void VirtualHeadUnit::CloseStreams() {
    // What a stream still holds after an end that does not flush is lost.
    discard_output_ = true;
    std::fclose(stdout);
    std::fclose(stderr);
    stdout = real_stdout_;
    stderr = real_stderr_;
}

}  // namespace virt
