// SPDX-License-Identifier: Apache-2.0
// An input is what happens to a simulated head unit: one fault, then writes of any bytes, sound
// messages, reads, levels of the reset line, and time.
#include "sim/HeadUnit.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/FaultText.h"
#include "sim/LogView.h"
#include "sim/LogicalMessage.h"
#include "tests/fuzz/Require.h"

namespace {

using fuzz::Input;
using fuzz::Require;

const std::size_t MOST_STEPS = 64;

unsigned Word(Input& input) {
    const unsigned low = input.Byte();
    return low | static_cast<unsigned>(input.Byte()) << 8;
}

std::vector<std::uint8_t> Bytes(Input& input, std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&input] { return input.Byte(); });
    return bytes;
}

// A message whose length and checksum are right; the rest is the input's.
std::vector<std::uint8_t> Message(Input& input) {
    const std::uint8_t opcodes[] = {sim::OPCODE_VERSION, sim::OPCODE_CONFIGURATION,
                                    sim::OPCODE_FLASH, input.Byte()};
    std::vector<std::uint8_t> message(sim::PAYLOAD_AT);
    message[sim::SYNC_AT] = message[sim::SYNC_AT + 1] = sim::SYNC;
    message[sim::OPCODE_AT] = opcodes[input.Byte() % 4];
    message[sim::COUNT_AT] = input.Byte();
    message[sim::INSTANCE_AT] = 1;
    sim::SetField(&message[sim::SEGMENTS_AT], input.Byte());
    sim::SetField(&message[sim::SEGMENT_AT], input.Byte());
    const auto payload = Bytes(input, Word(input) % (sim::SEGMENT_PAYLOAD + 1));
    message.insert(message.end(), payload.begin(), payload.end());
    sim::SetField(&message[sim::LENGTH_AT], static_cast<unsigned>(message.size() + 1));
    message.push_back(sim::Sum(message.data(), message.size()));
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

void Step(Input& input, sim::HeadUnit& unit) {
    enum { WRITE, MESSAGE, READ, LINE, TIME, LOCK, UNLOCK, STEPS };
    const std::uint8_t step = input.Byte();
    const unsigned address = step < 0xF0 ? sim::CHIP_ADDRESS : step;
    switch (step % STEPS) {
        case WRITE: {
            const auto bytes = Bytes(input, Word(input) % 2100);
            unit.Send(address, bytes.data(), bytes.size());
            break;
        }
        case MESSAGE: {
            const auto message = Message(input);
            unit.Send(address, message.data(), message.size());
            break;
        }
        case READ: {
            std::vector<std::uint8_t> bytes(input.Byte() == 0 ? sim::READ_SIZE : input.Byte());
            unit.Receive(address, bytes.data(), bytes.size());
            break;
        }
        case LINE: {
            const auto level = static_cast<char>(input.Byte());
            unit.WriteReset(&level, 1);
            break;
        }
        case TIME:
            unit.Advance(std::chrono::milliseconds(Word(input)));
            break;
        case LOCK:
            unit.Lock();
            break;
        default:
            unit.Unlock();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    sim::ChipConfig config;
    config.flash = {1, 2, 3};
    sim::HeadUnit unit(config, ReadFault(input));
    sim::LogView log([](const std::string& line) {
        Require(line.find('\n') == std::string::npos, "a transfer's text is one line");
    });
    unit.AddObserver(&log);

    for (std::size_t i = 0; i < MOST_STEPS && !input.Empty(); ++i) {
        const sim::Duration before = unit.Now();
        Step(input, unit);
        Require(unit.Now() >= before, "time never goes back");
        const sim::Report report = unit.GetReport();
        Require(report.burns > 0 || *report.flash == config.flash,
                "the flash keeps what it has until a whole image came");
    }
    return 0;
}
