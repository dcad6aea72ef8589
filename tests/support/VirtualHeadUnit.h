// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_SUPPORT_VIRTUALHEADUNIT_H
#define BBPFLASH_TESTS_SUPPORT_VIRTUALHEADUNIT_H

#include <csetjmp>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "sim/HeadUnit.h"
#include "tests/support/CallLog.h"
#include "tests/support/VirtualFiles.h"
#include "tests/support/VirtualMemory.h"

// The updater's whole program, run inside the test process as often as one likes: on the simulated
// head unit, on files in memory, in virtual time.
//
// Linking this library defines devctl, delay and slogf, and leads open, write, usleep, exit,
// posix_memalign, free, fopen, fseek, ftell, fread, feof and the operators new and delete here
// while a run lasts; outside a run they are the system's own. Standard output and standard error
// are captured.
namespace virt {

// How a run ended.
enum class Outcome {
    Exit,            // by exit or by main's return, with a status
    OutOfRange,      // by an uncaught std::out_of_range
    BadAlloc,        // by an uncaught std::bad_alloc
    OtherException,  // by any other uncaught exception
    SigPipe,         // by the signal, because nobody reads standard output any more
    Endless,         // not at all: cut when the time limit had passed
    Blocked,         // not at all: waits for a lock that is never granted
};
const char* NameOf(Outcome outcome);

// What becomes of one call.
struct Strike {
    enum class How {
        None,   // it is carried out
        Fail,   // it is not carried out and fails with `error`
        After,  // it is carried out and then fails with `error`
        Value,  // it is not carried out and returns `value`: an open, a write, a delay, an output
        Limit,  // fread, output: `value` bytes are carried out, then it fails with `error`
        Block,  // a lock that is never granted
    };
    How how = How::None;
    int error = 0;  // an errno value; EPIPE of an output is the signal
    long value = 0;
};

// Asked before each call of a run that can fail.
class CallHook {
  public:
    virtual ~CallHook() = default;
    // `call` has its kind, argument and detail; `index` counts the calls of the run from 0, and
    // `nth` those of the kind. What it allocates is not the run's.
    virtual Strike OnCall(const Call& call, int index, int nth) = 0;
};

struct RunResult {
    Outcome outcome = Outcome::Exit;
    int status = 0;   // of EXIT, as a parent sees it: 0..255
    std::string out;  // what standard output has taken
    std::string err;
};

class VirtualHeadUnit {
  public:
    explicit VirtualHeadUnit(sim::ChipConfig config = {}, std::vector<sim::Fault> faults = {});
    ~VirtualHeadUnit();
    VirtualHeadUnit(const VirtualHeadUnit&) = delete;
    VirtualHeadUnit& operator=(const VirtualHeadUnit&) = delete;

    // What a run finds: the files, and what does not exist.
    VirtualFiles files;
    bool has_bus_device = true;
    bool has_reset_device = true;

    // Whether Run holds what standard output has taken against the contract on the updater's
    // output, and fails the test where it contradicts it. Output that was struck is not judged.
    bool checks_output = true;

    // Not owned; null for none.
    void SetHook(CallHook* hook) { hook_ = hook; }
    // A run is cut when it still goes on this long after it last wrote to the reset line.
    void SetTimeLimit(Duration limit) { time_limit_ = limit; }

    // Runs the program with these arguments, the command's name first. Every global of the program
    // starts as in a new process. The head unit goes on from where the last run left it.
    RunResult Run(const std::vector<std::string>& arguments);
    // Runs any piece of the program in the same way; its result is the exit status.
    RunResult RunPiece(const std::function<int()>& piece);

    sim::HeadUnit& Unit() { return unit_; }
    // Blocks that a run has taken and that were not given back.
    std::size_t MemoryBlocks() const { return memory_.Blocks(); }

    const CallLog& Log() const { return log_; }
    CallLog& Log() { return log_; }

    // The entries of the C functions, for the run that goes on.
    int Open(const char* path, int flags);
    long Write(int descriptor, const void* bytes, std::size_t size);
    int Devctl(int descriptor, int command, void* data, std::size_t size);
    unsigned Delay(unsigned milliseconds);
    int Usleep(unsigned microseconds);
    int Slogf(int opcode, int severity, const char* text, std::size_t size);
    int Memalign(void** block, std::size_t alignment, std::size_t size);
    void* New(std::size_t size, CallKind kind);  // null when it fails
    bool Release(void* block);
    std::FILE* Fopen(const char* path);
    int Fseek(std::FILE* file, long offset, int whence);
    long Ftell(std::FILE* file);
    std::size_t Fread(void* to, std::size_t wanted, std::FILE* file);
    int Feof(std::FILE* file);
    long Output(const char* bytes, std::size_t size);
    long ErrorOutput(const char* bytes, std::size_t size);
    [[noreturn]] void Exit(int status);

  private:
    Call& Begin(CallKind kind, std::int64_t argument, std::int64_t detail);
    Strike Ask(Call& call);
    int Transfer(CallKind kind, int descriptor, void* data, std::size_t size);
    int Lock();
    void CountIdle();
    void Pass(Duration time);
    void Perform(const std::function<int()>& piece);
    void CheckOutput(const std::vector<std::string>& arguments, const RunResult& result) const;
    [[noreturn]] void Leave(Outcome outcome);
    void OpenStreams();
    void CloseStreams();

    sim::HeadUnit unit_;
    CallLog log_;
    VirtualMemory memory_;
    CallHook* hook_ = nullptr;
    Duration time_limit_ = std::chrono::hours(1);

    std::jmp_buf leave_;
    RunResult result_;
    Duration started_{};
    Duration last_pulse_{};
    int bus_descriptor_ = -1;
    std::vector<int> line_descriptors_;
    int next_descriptor_ = 0;
    int idle_calls_ = 0;
    bool discard_output_ = false;
    std::vector<std::uint8_t> received_;
    std::FILE* real_stdout_ = nullptr;
    std::FILE* real_stderr_ = nullptr;
    std::vector<char> stdout_buffer_;
    std::vector<char> stderr_buffer_;
};

}  // namespace virt

#endif
