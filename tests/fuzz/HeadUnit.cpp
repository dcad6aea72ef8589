// SPDX-License-Identifier: Apache-2.0
// An input is what happens to a simulated head unit: one fault, then writes of any bytes, sound
// messages, reads, levels of the reset line, and time. Without a fault all that the head unit does
// is what the reference says.
#include "sim/HeadUnit.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/FaultText.h"
#include "sim/LogView.h"
#include "sim/LogicalMessage.h"
#include "tests/fuzz/ChipReference.h"
#include "tests/fuzz/Require.h"

namespace {

using fuzz::Bytes;
using fuzz::Input;
using fuzz::Require;

const std::size_t MOST_STEPS = 64;

unsigned Word(Input& input) {
    const unsigned low = input.Byte();
    return low | static_cast<unsigned>(input.Byte()) << 8;
}

Bytes Take(Input& input, std::size_t size) {
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&input] { return input.Byte(); });
    return bytes;
}

// A message whose length and checksum are most often right; the rest is the input's, with small
// numbers of segments and the commands that there are more often than others.
Bytes Message(Input& input, std::uint8_t* count) {
    const std::uint8_t opcodes[] = {sim::OPCODE_FLASH, sim::OPCODE_FLASH, sim::OPCODE_VERSION,
                                    sim::OPCODE_CONFIGURATION, input.Byte()};
    const std::uint8_t functions[] = {sim::FUNCTION_PROGRAM,
                                      sim::FUNCTION_PROGRAM_STATUS,
                                      sim::FUNCTION_UNPROTECT,
                                      sim::FUNCTION_FLASH_STATUS,
                                      sim::FUNCTION_VERSION,
                                      sim::FUNCTION_CONFIGURATION,
                                      input.Byte(),
                                      sim::FUNCTION_PROGRAM};
    Bytes message(sim::PAYLOAD_AT);
    message[sim::SYNC_AT] = message[sim::SYNC_AT + 1] = sim::SYNC;
    message[sim::OPCODE_AT] = opcodes[input.Byte() % 5];
    const std::uint8_t kind = input.Byte();
    message[sim::COUNT_AT] = kind < 0xE0 ? *count : input.Byte();
    *count = static_cast<std::uint8_t>(message[sim::COUNT_AT] + 1);
    message[sim::INSTANCE_AT] = 1;
    sim::SetField(&message[sim::SEGMENTS_AT], input.Byte() % 8);
    sim::SetField(&message[sim::SEGMENT_AT], input.Byte() % 8);
    const std::size_t sizes[] = {1, sim::SEGMENT_PAYLOAD, 1 + Word(input) % sim::SEGMENT_PAYLOAD,
                                 2};
    Bytes payload(sizes[kind % 4], input.Byte());
    payload[0] = functions[kind / 4 % 8];
    message.insert(message.end(), payload.begin(), payload.end());
    // A first segment may leave its function byte out of its length and its last byte out of its
    // sum.
    const std::uint8_t oddity = input.Byte();
    const std::size_t length = message.size() + (oddity == 1 ? 0 : 1);
    sim::SetField(&message[sim::LENGTH_AT], static_cast<unsigned>(length));
    const int error = oddity == 2 ? 1 : 0;
    message.push_back(static_cast<std::uint8_t>(sim::Sum(message.data(), length - 1) + error));
    return message;
}

// One line of text, up to its end, as a fault; none where it is no fault.
std::vector<sim::Fault> ReadFault(Input& input) {
    std::string text;
    for (char c = static_cast<char>(input.Byte()); c != '\0' && c != '\n';
         c = static_cast<char>(input.Byte())) {
        text += c;
    }
    sim::Fault fault;
    sim::FaultMistake mistake;
    if (sim::ParseFault(text, &fault, &mistake)) {
        return {fault};
    }
    return {};
}

const Bytes INSTALLED = {1, 2, 3};

sim::ChipConfig Configuration() {
    sim::ChipConfig config;
    config.flash = INSTALLED;
    return config;
}

class Bench {
  public:
    explicit Bench(const std::vector<sim::Fault>& faults)
        : unit_(Configuration(), faults),
          is_sound_(faults.empty()),
          reference_(INSTALLED, unit_.GetReport().version) {
        unit_.AddObserver(&log_);
        if (is_sound_) {
            unit_.SetBusHz(0);
        }
    }

    void Step(Input& input);
    void Check() const;
    sim::Duration Now() const { return unit_.Now(); }

  private:
    void Send(unsigned address, const Bytes& bytes);
    void Receive(unsigned address, std::size_t size);
    void SetLine(char level);
    bool IsAnswered(unsigned address) const {
        return address == sim::CHIP_ADDRESS && reference_.Answers();
    }

    sim::LogView log_{[](const std::string& line) {
        Require(line.find('\n') == std::string::npos, "a transfer's text is one line");
    }};
    sim::HeadUnit unit_;
    bool is_sound_;
    fuzz::ChipReference reference_;
    std::uint8_t count_ = 0;
};

void Bench::Send(unsigned address, const Bytes& bytes) {
    const int result = unit_.Send(address, bytes.data(), bytes.size());
    if (is_sound_) {
        Require((result == 0) == IsAnswered(address), "a write is answered when it is to be");
        if (result == 0) {
            reference_.Write(bytes);
        }
    }
}

void Bench::Receive(unsigned address, std::size_t size) {
    Bytes bytes(size);
    const int result = unit_.Receive(address, bytes.data(), size);
    if (is_sound_) {
        Require((result == 0) == IsAnswered(address), "a read is answered when it is to be");
        const std::optional<Bytes> expected =
            result == 0 ? reference_.Read(size) : std::optional<Bytes>();
        Require(!expected || bytes == *expected, "a reply is what the command and the chip say");
    }
}

void Bench::SetLine(char level) {
    const int result = unit_.WriteReset(&level, 1);
    Require((result == 0) == (level == '0' || level == '1') || !is_sound_, "a level is 0 or 1");
    if (result == 0) {
        reference_.SetLine(level == '1');
        count_ = 0;
    }
}

void Bench::Step(Input& input) {
    enum { WRITE, MESSAGE, READ, LINE, TIME, LOCK, UNLOCK, REPLY, STEPS };
    const std::uint8_t step = input.Byte();
    const unsigned address = step < 0xF0 ? sim::CHIP_ADDRESS : step;
    switch (step % STEPS) {
        case WRITE:
            Send(address, Take(input, Word(input) % 2100));
            break;
        case MESSAGE:
            Send(address, Message(input, &count_));
            break;
        case READ:
            Receive(address, input.Byte());
            break;
        case LINE:
            SetLine(static_cast<char>(input.Byte()));
            break;
        case TIME: {
            const std::chrono::milliseconds time(Word(input) % 20000);
            unit_.Advance(time);
            reference_.Advance(time);
            break;
        }
        case LOCK:
            unit_.Lock();
            break;
        case UNLOCK:
            unit_.Unlock();
            break;
        default:
            unit_.Advance(std::chrono::microseconds(400));
            reference_.Advance(std::chrono::microseconds(400));
            Receive(address, sim::READ_SIZE);
    }
}

void Bench::Check() const {
    const sim::Report report = unit_.GetReport();
    const Bytes flash(report.flash->begin(), report.flash->end());
    Require(report.burns > 0 || flash == INSTALLED,
            "the flash keeps what it has until a whole image came");
    if (!is_sound_) {
        return;
    }
    Require(report.burns == reference_.Burns(), "a burn begins with the last segment only");
    Require(report.segments == reference_.Segments(), "the chip takes the next segment only");
    if (reference_.Flash()) {
        Require(flash == *reference_.Flash(), "the flash holds what was programmed last");
    } else {
        const std::size_t blank = std::min(flash.size(), fuzz::ChipReference::BLANK_BLOCK);
        Require(Bytes(flash.begin(), flash.begin() + static_cast<std::ptrdiff_t>(blank)) ==
                    Bytes(blank, 0xFF),
                "a burn that was cut off leaves the first block blank");
    }
    Require(!reference_.Version() || report.version == *reference_.Version(),
            "the version is that of the firmware that has started");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Bench bench(ReadFault(input));
    for (std::size_t i = 0; i < MOST_STEPS && !input.Empty(); ++i) {
        const sim::Duration before = bench.Now();
        bench.Step(input);
        Require(bench.Now() >= before, "time never goes back");
        bench.Check();
    }
    return 0;
}
