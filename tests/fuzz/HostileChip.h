// SPDX-License-Identifier: Apache-2.0
// The chip, the bus and the image file as the bytes of a fuzz input make them.
#ifndef BBPFLASH_TESTS_FUZZ_HOSTILECHIP_H
#define BBPFLASH_TESTS_FUZZ_HOSTILECHIP_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "sim/LogicalMessage.h"
#include "tests/fuzz/Require.h"
#include "tests/fuzz/Surroundings.h"

namespace fuzz {

enum Command {
    VERSION,
    FLASH_STATUS,
    PROGRAM_STATUS,
    UNPROTECT,
    CONFIGURATION,
    SHORT_COMMAND_COUNT,
    PROGRAM = SHORT_COMMAND_COUNT,
    WHOLE_RUN,
    COMMAND_COUNT
};

enum Flag {
    STATUS_MODE = 0x01,
    TALKATIVE = 0x02,
    IMAGE = 0x1C,  // the number of the image's size
    INFO_ONLY = 0x20,
    FORCE = 0x40,
    PERSISTENT = 0x80  // a failing call goes on failing
};

class HostileChip : public Surroundings {
  public:
    HostileChip(const std::uint8_t* data, std::size_t size)
        : input_(data, size),
          command_(static_cast<Command>(input_.Byte() % COMMAND_COUNT)),
          flags_(input_.Byte()),
          failing_call_(input_.Byte()),
          error_(input_.Byte() % 130 + 1) {}

    Command GetCommand() const { return command_; }
    bool Has(Flag flag) const { return (flags_ & flag) != 0; }

    int Devctl(int dcmd, std::uint8_t* block, std::size_t size) override;

    std::size_t ImageSize() const override;

    std::size_t ReadImage(std::size_t offset, char* to, std::size_t size) const override;

    // Whether each call of a command of one write and one read succeeds as far as it counts: lock,
    // send, unlock, whose failure fails nothing, lock, receive, unlock.
    bool ExchangeSucceeds() const {
        const bool none = failing_call_ == 0 || failing_call_ > 6;
        return none || (failing_call_ == 3 && !Has(PERSISTENT));
    }

    // Whether the last read answers the last request.
    bool Answers() const;

    // Whether no call failed and every read was an answer.
    bool Behaved() const { return failing_call_ == 0 && behaved_; }

    std::size_t PayloadSize() const { return read_[0] - sim::OVERHEAD; }
    const std::uint8_t* Payload() const { return read_.data() + 1 + sim::PAYLOAD_AT; }

    bool HasWholeImage() const;

  private:
    using Read = std::array<std::uint8_t, sim::READ_SIZE>;
    using Image = std::array<std::uint8_t, 5000>;

    void Take(const std::uint8_t* lm, std::size_t size);
    void Append(const std::uint8_t* from, std::size_t count);

    // What the next read brings: a proper answer, one with bytes changed before or after its
    // checksum was made, or any bytes.
    Read Next();
    void Change(Read& read, std::size_t edits);
    void Answer(Read& read, std::size_t edits, std::size_t payload);

    Input input_;
    Command command_;
    unsigned flags_;
    std::size_t failing_call_;
    int error_;
    std::size_t calls_ = 0;
    std::array<std::uint8_t, sim::OVERHEAD> request_{};
    Read read_{};
    bool behaved_ = true;
    Image image_;
    std::size_t received_ = 0;  // bytes of it
};

}  // namespace fuzz

#endif
