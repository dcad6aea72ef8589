// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_SUPPORT_FAKEPLATFORM_H
#define BBPFLASH_TESTS_SUPPORT_FAKEPLATFORM_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "hutil/hutil_init.h"
#include "platform/platform.h"

// The platform under a unit test: devctl, delay and slogf as the core calls them, recorded, with
// results and replies that the test scripts. A test program that wraps usleep gets it from here
// too.
namespace fake {

using Bytes = std::vector<std::uint8_t>;

// One devctl as it was called; `data` is a copy of the data block at that moment.
struct DevctlCall {
    int fd;
    int dcmd;
    Bytes data;
    std::size_t nbytes;
    bool data_is_null;
    bool info_is_null;
};

struct LogEntry {
    int opcode;
    int severity;
    std::string text;
};

// What one read brings. Without modifications it is a valid answer to the last request: the count
// byte, the request's sync, count, instance, opcode and segments, its own length, status 0x01, the
// payload and the checksum over it all. The rest of the 65 bytes is zero.
class Reply {
  public:
    Reply() = default;
    explicit Reply(Bytes payload) : payload_(std::move(payload)) {}

    // The 65 bytes as they are given, filled up with zeros.
    static Reply Raw(Bytes bytes);

    // Modifications of the logical message that the checksum includes.
    Reply& Status(std::uint8_t status) { return Set(7, status); }
    Reply& Length(unsigned length);
    Reply& Segments(unsigned total, unsigned number);
    Reply& Set(std::size_t offset, std::uint8_t value);

    // Modifications made after the checksum: the count byte; a byte of the logical message by
    // offset; a wrong checksum.
    Reply& Count(std::uint8_t count);
    Reply& Corrupt(std::size_t offset, std::uint8_t value);
    Reply& WrongChecksum();

    // The bytes that answer the logical message `request`, the count byte first.
    Bytes Answer(const Bytes& request) const;

  private:
    Bytes raw_;
    Bytes payload_;
    std::map<std::size_t, std::uint8_t> set_;
    std::map<std::size_t, std::uint8_t> corrupted_;
    int count_ = -1;
    bool wrong_checksum_ = false;
};

// One at a time: the one that exists answers the core's calls.
class Platform {
  public:
    Platform();
    ~Platform();
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    // The call number `index` (from 0) of the command `dcmd` returns `error`.
    void Fail(int dcmd, int error, int index = 0);
    // Each call of the command returns `error`.
    void FailAlways(int dcmd, int error);

    // Reads bring these one after the other, then `default_reply` each time.
    void Answer(Reply reply) { replies.push_back(std::move(reply)); }

    // The recorded calls of one command.
    std::vector<DevctlCall> Calls(int dcmd) const;
    // The logical messages that were sent: the data blocks without their 16 bytes of header.
    std::vector<Bytes> Requests() const;
    // The log's texts without the program's name and without the source position:
    // "ERROR: sending".
    std::vector<std::string> Messages() const;
    // Appends to the trace, for what a test wraps itself.
    void Note(const std::string& event) { trace.push_back(event); }

    std::vector<DevctlCall> devctls;
    std::vector<unsigned> delays;    // milliseconds
    std::vector<useconds_t> sleeps;  // microseconds
    std::vector<LogEntry> log;
    // What was called, in order: "SPEED 400000", "LOCK", "SEND <nbytes>", "RECV <nbytes>",
    // "UNLOCK", "delay <ms>", "usleep <us>".
    std::vector<std::string> trace;

    std::deque<Reply> replies;
    Reply default_reply;
    unsigned delay_result = 0;
    int slogf_result = 0;
    // Called before each devctl is answered, when set.
    std::function<void(const DevctlCall&)> on_devctl;

    // The entries of the C functions.
    int Devctl(int fd, int dcmd, void* data, std::size_t nbytes, int* info);
    unsigned Delay(unsigned milliseconds);
    int Usleep(useconds_t microseconds);
    int Slogf(int opcode, int severity, const std::string& text);

  private:
    std::map<std::pair<int, int>, int> errors_;
    std::map<int, int> constant_errors_;
    std::map<int, int> counts_;
    Bytes last_request_;
};

// The platform that exists; ends the test program when there is none.
Platform& Current();

// What a piece of code writes to standard output and standard error.
struct Output {
    std::string out;
    std::string err;
};
Output Capture(const std::function<void()>& code);

// `text` without the source position " @File.cpp:123" at the end of each line.
std::string WithoutPositions(const std::string& text);

// For EXPECT_EXIT, which sees standard error alone: the child's standard output joins it, and what
// both got must be `text` when source positions are left out.
void JoinOutputs();
testing::Matcher<const std::string&> Prints(const std::string& text);

// A fresh platform and fresh message objects for each test. The program's name is "bbpflash", the
// verbosity 0.
class PlatformTest : public ::testing::Test {
  public:
    Platform platform;

  protected:
    PlatformTest();
    ~PlatformTest() override;
};

}  // namespace fake

#endif
