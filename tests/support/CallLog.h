// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_SUPPORT_CALLLOG_H
#define BBPFLASH_TESTS_SUPPORT_CALLLOG_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Every call that a run of the updater makes on its surroundings, in order.
namespace virt {

using Duration = std::chrono::nanoseconds;

enum class CallKind : std::uint8_t {
    Open,      // data: path, argument: flags, result: descriptor or -1
    SetSpeed,  // argument: bits per second, result: 0 or errno value
    Lock,      // result: 0 or errno value
    Unlock,    // result: 0 or errno value
    Send,      // data: the bytes, argument: 7-bit address, detail: stop flag, result: 0 or errno
    Receive,   // data: the bytes as the program got them, argument: 7-bit address, result: as above
    WriteReset,  // data: the text, argument: descriptor, result: bytes taken or -1
    Delay,       // argument: milliseconds, result: milliseconds left
    Usleep,      // argument: microseconds, result: 0 or -1
    Memalign,    // argument: size, detail: alignment, result: 0 or errno value
    NewObject,   // a new that may return null; argument: size, result: 0 or ENOMEM
    NewStorage,  // a new that throws; argument: size, result: 0 or ENOMEM
    Fopen,       // data: path, result: 0 or errno value
    Fseek,       // argument: offset, detail: whence, result: 0 or -1
    Ftell,       // result: position or -1
    Fread,       // data: the bytes got, argument: bytes wanted, detail: at the file's end
    Output,      // standard output; data: the bytes written, result: how many were taken
    Log,         // data: text, argument: opcode, detail: severity
};
constexpr std::size_t CALL_KINDS = 18;

// A short name for a person: "lock", "send"...
std::string_view NameOf(CallKind kind);

struct Call {
    CallKind kind;
    bool struck = false;  // a hook has changed what happened
    std::int64_t argument = 0;
    std::int64_t detail = 0;
    std::int64_t result = 0;
    int error_before = 0;  // the program's errno when it made the call
    std::size_t data = 0;  // place of the data in the log's storage
    std::size_t size = 0;
    Duration at{};  // virtual time when it was made
};

class CallLog {
  public:
    void Clear();
    Call& Add(CallKind kind, Duration at);
    // Keeps a copy of `size` bytes as the data of the call added last.
    void Attach(const void* bytes, std::size_t size);

    const std::vector<Call>& Calls() const { return calls_; }
    std::string_view Data(const Call& call) const;
    // How many calls of a kind there were, also when they are not kept.
    int Count(CallKind kind) const { return counts_[static_cast<std::size_t>(kind)]; }
    int Total() const { return total_; }

    // Without keeping, only the counts and the last call remain.
    void Keep(bool keep) { keep_ = keep; }

  private:
    bool keep_ = true;
    int total_ = 0;
    std::array<int, CALL_KINDS> counts_{};
    std::vector<Call> calls_;
    std::vector<char> storage_;
};

// One line for a person, with the first bytes of its data.
std::string Describe(const CallLog& log, const Call& call);

}  // namespace virt

#endif
