// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "tests/support/FakePlatform.h"

namespace fake {

namespace {

const std::size_t LM_HEADER = 12;  // of a logical message
const std::size_t READ_SIZE = 65;  // what one read brings

}  // namespace

Reply Reply::Raw(Bytes bytes) {
    Reply reply;
    bytes.resize(READ_SIZE);
    reply.raw_ = std::move(bytes);
    return reply;
}

Reply& Reply::Length(unsigned length) {
    Set(4, static_cast<std::uint8_t>(length));
    return Set(5, static_cast<std::uint8_t>(length >> 8));
}

Reply& Reply::Segments(unsigned total, unsigned number) {
    Set(8, static_cast<std::uint8_t>(total));
    Set(9, static_cast<std::uint8_t>(total >> 8));
    Set(10, static_cast<std::uint8_t>(number));
    return Set(11, static_cast<std::uint8_t>(number >> 8));
}

Reply& Reply::Set(std::size_t offset, std::uint8_t value) {
    set_[offset] = value;
    return *this;
}

Reply& Reply::Count(std::uint8_t count) {
    count_ = count;
    return *this;
}

Reply& Reply::Corrupt(std::size_t offset, std::uint8_t value) {
    corrupted_[offset] = value;
    return *this;
}

Reply& Reply::WrongChecksum() {
    wrong_checksum_ = true;
    return *this;
}

Bytes Reply::Answer(const Bytes& request) const {
    if (!raw_.empty()) {
        return raw_;
    }
    Bytes lm(request.begin(),
             request.begin() + static_cast<std::ptrdiff_t>(std::min(request.size(), LM_HEADER)));
    lm.resize(LM_HEADER);
    lm.insert(lm.end(), payload_.begin(), payload_.end());
    const std::size_t size = lm.size() + 1;
    lm[4] = static_cast<std::uint8_t>(size);
    lm[5] = static_cast<std::uint8_t>(size >> 8);
    lm[7] = 0x01;
    for (const auto& [offset, value] : set_) {
        lm.at(offset) = value;
    }
    std::uint8_t sum = 0;
    for (const std::uint8_t byte : lm) {
        sum = static_cast<std::uint8_t>(sum + byte);
    }
    lm.push_back(wrong_checksum_ ? static_cast<std::uint8_t>(sum ^ 0xFF) : sum);

    Bytes bytes(std::max(READ_SIZE, 1 + lm.size()));
    bytes[0] = static_cast<std::uint8_t>(count_ >= 0 ? count_ : static_cast<int>(lm.size()));
    std::copy(lm.begin(), lm.end(), bytes.begin() + 1);
    for (const auto& [offset, value] : corrupted_) {
        bytes.at(1 + offset) = value;
    }
    return bytes;
}

}  // namespace fake
