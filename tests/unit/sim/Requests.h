// SPDX-License-Identifier: Apache-2.0
// Builds what an updater writes to the chip, and takes apart what it reads.
#ifndef TESTS_UNIT_SIM_REQUESTS_H
#define TESTS_UNIT_SIM_REQUESTS_H

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/HeadUnit.h"
#include "sim/LogicalMessage.h"

namespace sim {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t SMALL = 5000;  // bytes of an image: three segments

// A logical message with a right length and checksum unless told otherwise.
class Message {
  public:
    Message(std::uint8_t opcode, Bytes payload) : opcode_(opcode), payload_(std::move(payload)) {}

    Message& Count(unsigned count) { return count_ = count, *this; }
    Message& Instance(unsigned instance) { return instance_ = instance, *this; }
    Message& Segment(unsigned number, unsigned total) {
        return segment_ = number, total_ = total, *this;
    }
    Message& Length(unsigned length) { return length_ = length, *this; }

    Bytes Build() const {
        const unsigned whole = static_cast<unsigned>(payload_.size() + OVERHEAD);
        const unsigned length = length_ == 0 ? whole : length_;
        Bytes bytes;
        bytes.reserve(whole);
        bytes.resize(PAYLOAD_AT);
        bytes[SYNC_AT] = bytes[SYNC_AT + 1] = SYNC;
        bytes[COUNT_AT] = static_cast<std::uint8_t>(count_);
        bytes[INSTANCE_AT] = static_cast<std::uint8_t>(instance_);
        SetField(&bytes[LENGTH_AT], length);
        bytes[OPCODE_AT] = opcode_;
        SetField(&bytes[SEGMENTS_AT], total_);
        SetField(&bytes[SEGMENT_AT], segment_);
        bytes.insert(bytes.end(), payload_.begin(), payload_.end());
        bytes.push_back(Sum(bytes.data(), std::min<std::size_t>(length - 1, bytes.size())));
        return bytes;
    }

  private:
    std::uint8_t opcode_;
    Bytes payload_;
    unsigned count_ = 0;
    unsigned instance_ = 1;
    unsigned segment_ = 0;
    unsigned total_ = 1;
    unsigned length_ = 0;
};

inline Message VersionQuery() {
    return Message(OPCODE_VERSION, {FUNCTION_VERSION});
}
inline Message ConfigurationQuery() {
    return Message(OPCODE_CONFIGURATION, {FUNCTION_CONFIGURATION});
}
inline Message Unprotect() {
    return Message(OPCODE_FLASH, {FUNCTION_UNPROTECT});
}
inline Message Poll() {
    return Message(OPCODE_FLASH, {FUNCTION_PROGRAM_STATUS});
}
inline Message FlashStatus() {
    return Message(OPCODE_FLASH, {FUNCTION_FLASH_STATUS});
}

// The segments of a download, as the updater cuts and labels them; their counts begin with `count`.
inline std::vector<Bytes> Download(const Bytes& image, unsigned count) {
    const unsigned total = static_cast<unsigned>((image.size() + 1) / SEGMENT_PAYLOAD + 1);
    std::vector<Bytes> segments;
    std::size_t sent = 0;
    while (sent < image.size()) {
        Bytes payload;
        const std::size_t left = image.size() - sent;
        if (sent == 0) {
            payload.push_back(FUNCTION_PROGRAM);
        }
        const std::size_t now = std::min(left, SEGMENT_PAYLOAD - payload.size());
        payload.insert(payload.end(), image.begin() + static_cast<std::ptrdiff_t>(sent),
                       image.begin() + static_cast<std::ptrdiff_t>(sent + now));
        // The length is made from the bytes that are left, without the function byte.
        const unsigned length = left > SEGMENT_PAYLOAD - 1 ? static_cast<unsigned>(LONGEST_MESSAGE)
                                                           : static_cast<unsigned>(left + OVERHEAD);
        const unsigned number = static_cast<unsigned>(segments.size());
        segments.push_back(Message(OPCODE_FLASH, payload)
                               .Count(count + number)
                               .Segment(number, total)
                               .Length(length)
                               .Build());
        sent += now;
    }
    return segments;
}

// One 65-byte read.
struct Reply {
    std::array<std::uint8_t, READ_SIZE> read{};
    int result = 0;

    unsigned Count() const { return read[0]; }
    unsigned At(std::size_t offset) const { return read[offset + 1]; }
    unsigned Status() const { return At(STATUS_AT); }
    unsigned Field(std::size_t offset) const { return GetField(&read[offset + 1]); }
    unsigned Payload(std::size_t index) const { return At(PAYLOAD_AT + index); }
    bool Sound() const {
        return Count() > PAYLOAD_AT && Count() == Field(LENGTH_AT) &&
               Sum(&read[1], Count() - 1) == read[Count()];
    }
    // The text of a version reply, without the byte before it and the NUL behind it.
    std::string Text() const { return std::string(&read[PAYLOAD_AT + 2], &read[Count() - 1]); }
};

constexpr Duration REPLY_WAIT = std::chrono::milliseconds(5);

// An updater's side of a head unit: it numbers its messages and waits for the replies.
class Caller {
  public:
    explicit Caller(HeadUnit& unit) : unit_(unit) {}

    int Send(const Bytes& bytes) { return unit_.Send(CHIP_ADDRESS, bytes.data(), bytes.size()); }
    Reply Fetch() {
        Reply reply;
        reply.result = unit_.Receive(CHIP_ADDRESS, reply.read.data(), reply.read.size());
        return reply;
    }
    // Sends a message that is numbered already. A failed write is the reply's result.
    Reply AskRaw(const Bytes& bytes) {
        Reply reply;
        reply.result = Send(bytes);
        unit_.Advance(REPLY_WAIT);
        return reply.result == 0 ? Fetch() : reply;
    }
    Reply Ask(Message message) { return AskRaw(message.Count(count_++).Build()); }
    // Sends a download and returns the last reply, which is the first bad one if there is one.
    Reply SendImage(const Bytes& image) {
        Reply reply = Ask(Unprotect());
        for (const Bytes& segment : Download(image, count_)) {
            count_ += 1;
            reply = AskRaw(segment);
            if (reply.result != 0 || (reply.Status() & RECEIVED) == 0) {
                break;
            }
        }
        return reply;
    }
    unsigned PollStatus() { return Ask(Poll()).Payload(1); }
    std::string Version() { return Ask(VersionQuery()).Text(); }
    // A reset as the updater makes it.
    void Reset() {
        unit_.WriteReset("0", 1);
        unit_.Advance(std::chrono::milliseconds(200));
        unit_.WriteReset("1", 1);
        unit_.Advance(std::chrono::milliseconds(3000));
        count_ = 0;
    }

  private:
    HeadUnit& unit_;
    unsigned count_ = 0;
};

}  // namespace sim

#endif
