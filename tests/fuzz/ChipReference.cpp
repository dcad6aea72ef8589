// SPDX-License-Identifier: Apache-2.0
#include "tests/fuzz/ChipReference.h"

#include <algorithm>
#include <numeric>

namespace fuzz {

namespace {

// A message: A5 A5, count, instance, length (2), opcode, status, segments (2), segment (2),
// payload, checksum; the low byte of a number first.
constexpr std::size_t HEADER = 12;
constexpr std::size_t LONGEST = 2048;
constexpr std::size_t FULL = LONGEST - HEADER - 1;
constexpr std::size_t LONGEST_READ = 64;
constexpr std::uint8_t FLASH = 0x84;

unsigned Pair(const Bytes& message, std::size_t at) {
    return message[at] + 256u * message[at + 1];
}

std::uint8_t Checksum(const Bytes& bytes, std::size_t size) {
    return std::accumulate(
        bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size), std::uint8_t{0},
        [](std::uint8_t sum, std::uint8_t byte) { return static_cast<std::uint8_t>(sum + byte); });
}

bool Is(const Bytes& message, std::uint8_t opcode, std::uint8_t function) {
    return message[6] == opcode && Pair(message, 10) * (opcode == FLASH) == 0 &&
           message.size() > HEADER && message[HEADER] == function;
}

bool IsSegment(const Bytes& message) {
    return Is(message, FLASH, 4) || (message[6] == FLASH && Pair(message, 10) != 0);
}

}  // namespace

ChipReference::ChipReference(const Bytes& flash, const std::string& version)
    : flash_(flash), version_(version) {}

void ChipReference::Advance(std::chrono::nanoseconds time) {
    if (!high_) {
        return;
    }
    since_start_ += time;
    since_request_ += time;
    if (burn_) {
        const bool was_programmed = *burn_ >= PROGRAMMED;
        *burn_ += time;
        if (!was_programmed && *burn_ >= PROGRAMMED) {
            flash_ = image_;
            is_whole_ = true;
        }
    }
}

void ChipReference::SetLine(bool high) {
    if (high == high_) {
        return;
    }
    high_ = high;
    if (high) {
        since_start_ = std::chrono::nanoseconds(0);
        if (burns_ > 0) {
            version_.reset();
        }
        if (!is_whole_) {
            version_ = "LOADER ONLY";
        }
    } else {
        if (burn_ && *burn_ < PROGRAMMED) {
            flash_.reset();
            is_whole_ = false;
        }
        burn_.reset();
        has_failed_ = is_unprotected_ = false;
        total_ = 0;
        reply_.clear();
    }
    count_ = 0;
}

void ChipReference::Write(const Bytes& message) {
    if (message.empty()) {
        return;
    }
    unsigned status = Receive(message);
    if (status == 0x01) {
        status = message[2] == count_ ? 0 : 0x02;
        count_ = static_cast<std::uint8_t>(message[2] + 1);
        status |= Obey(message);
    }
    AnswerTo(message, status);
}

// 0x01: the message is sound.
unsigned ChipReference::Receive(const Bytes& message) {
    if (message.size() > LONGEST) {
        return 0x10;
    }
    if (message.size() <= HEADER || message[0] != 0xA5 || message[1] != 0xA5 || message[3] != 1) {
        return 0x04;
    }
    // The first segment of a download does not count its function byte, nor sum up its last byte.
    const std::size_t length = Pair(message, 4);
    const bool is_first = IsSegment(message) && Pair(message, 10) == 0;
    const bool is_short_by_one = is_first && length + 1 == message.size() && length > HEADER;
    if (length != message.size() && !is_short_by_one) {
        return length < message.size() ? 0x10 : 0x08;
    }
    return Checksum(message, length - 1) == message.back() ? 0x01 : 0x08;
}

// 0x01: the command is carried out.
unsigned ChipReference::Obey(const Bytes& message) {
    if (IsSegment(message)) {
        return TakeSegment(message);
    }
    total_ = 0;
    if (Is(message, FLASH, 0x0B)) {
        is_unprotected_ = !IsBurning();
        return is_unprotected_ ? 0x01 : 0;
    }
    const bool is_known = Is(message, 0x80, 1) || Is(message, 0x83, 9) || Is(message, FLASH, 5) ||
                          Is(message, FLASH, 0x0C);
    return is_known ? 0x01 : 0x20;
}

unsigned ChipReference::TakeSegment(const Bytes& message) {
    const unsigned total = Pair(message, 8);
    const unsigned segment = Pair(message, 10);
    const bool is_next = segment == 0 ? is_unprotected_ && total > 0
                                      : total_ != 0 && segment == next_ && total == total_;
    if (!is_next || (segment + 1 != total && message.size() != HEADER + FULL + 1)) {
        return 0;
    }
    if (segment == 0) {
        image_.clear();
        burn_.reset();
        has_failed_ = false;
    }
    image_.insert(image_.end(), message.begin() + HEADER + (segment == 0 ? 1 : 0),
                  message.end() - 1);
    total_ = total;
    next_ = segment + 1;
    segments_ += 1;
    if (next_ == total) {
        burns_ += 1;
        total_ = 0;
        is_unprotected_ = false;
        has_failed_ = image_.empty();
        if (!has_failed_) {
            burn_ = std::chrono::nanoseconds(0);
        }
    }
    return 0x01;
}

unsigned ChipReference::Progress() const {
    if (has_failed_) {
        return 2;
    }
    if (!burn_) {
        return 3;
    }
    return *burn_ < ERASED ? 4 : *burn_ < PROGRAMMED ? 5 : *burn_ < VERIFIED ? 6 : 1;
}

Bytes ChipReference::Payload(const Bytes& message) const {
    const auto progress = static_cast<std::uint8_t>(Progress());
    if (Is(message, 0x80, 1)) {
        Bytes payload = {0};
        payload.insert(payload.end(), version_->begin(), version_->end());
        payload.push_back(0);
        return payload;
    }
    if (Is(message, 0x83, 9)) {
        Bytes payload(257);
        std::iota(payload.begin() + 1, payload.end(), std::uint8_t{0});
        return payload;
    }
    if (Is(message, FLASH, 5)) {
        return {0, progress};
    }
    if (Is(message, FLASH, 0x0C)) {
        return {progress};
    }
    return Is(message, FLASH, 0x0B) ? Bytes{0} : Bytes{};
}

void ChipReference::AnswerTo(const Bytes& message, unsigned status) {
    reply_ = message;
    reply_.resize(HEADER);
    reply_[0] = reply_[1] = 0xA5;
    reply_[7] = static_cast<std::uint8_t>(status);
    is_comparable_ = version_ || (status & 0x01) == 0 || !Is(message, 0x80, 1);
    if ((status & 0x01) != 0 && is_comparable_) {
        const Bytes payload = Payload(message);
        reply_.insert(reply_.end(), payload.begin(), payload.end());
    }
    reply_[4] = static_cast<std::uint8_t>(reply_.size() + 1);
    reply_[5] = static_cast<std::uint8_t>((reply_.size() + 1) >> 8);
    reply_.push_back(Checksum(reply_, reply_.size()));
    reply_at_ = 0;
    since_request_ = std::chrono::nanoseconds(0);
}

std::optional<Bytes> ChipReference::Read(std::size_t size) {
    if (!is_comparable_) {
        return std::nullopt;
    }
    Bytes read(size);
    if (size == 0 || reply_.empty() || since_request_ < RESPONSE) {
        return read;
    }
    const std::size_t count = std::min({reply_.size() - reply_at_, LONGEST_READ, size - 1});
    read[0] = static_cast<std::uint8_t>(count);
    std::copy_n(reply_.begin() + static_cast<std::ptrdiff_t>(reply_at_), count, read.begin() + 1);
    reply_at_ = (reply_at_ + count) % reply_.size();
    return read;
}

}  // namespace fuzz
