// SPDX-License-Identifier: Apache-2.0
#include "tests/fuzz/HostileChip.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/platform.h"
#include "sim/SampleImage.h"

namespace fuzz {

namespace {

using namespace sim;

const std::size_t CHUNK_HEADER = 16;

// Round the ends of the first and the second segment.
const std::size_t IMAGE_SIZES[] = {0, 1, 2033, 2034, 2035, 4068, 4069, 5000};

const std::uint8_t PROPER_PAYLOAD[] = {1, 1, 'v', '2', 0};
// What makes the same version of an image: its last two characters do not count.
const char MATCHING_LABEL[] = "\x01v2##";

using Image = std::array<std::uint8_t, 5000>;

// No two segments of it are alike.
Image MakeImage() {
    Image image;
    for (std::size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    }
    return image;
}
const Image IMAGE_BYTES = MakeImage();

std::size_t ReadLabel(std::size_t offset, char* to, std::size_t size) {
    const std::size_t count = std::min(size, LABEL_SIZE - std::min(offset, LABEL_SIZE));
    std::string label(MATCHING_LABEL);
    label.resize(LABEL_SIZE, ' ');
    std::memcpy(to, label.data() + offset, count);
    return count;
}

}  // namespace

int HostileChip::Devctl(int dcmd, std::uint8_t* block, std::size_t size) {
    ++calls_;
    if (failing_call_ != 0 &&
        (calls_ == failing_call_ || (Has(PERSISTENT) && calls_ > failing_call_))) {
        return error_;
    }
    if (dcmd == DCMD_I2C_SEND) {
        Take(block + CHUNK_HEADER, size - CHUNK_HEADER);
    } else if (dcmd == DCMD_I2C_RECV) {
        Require(size == CHUNK_HEADER + READ_SIZE, "a read of 65 bytes");
        read_ = Next();
        std::copy(read_.begin(), read_.end(), block + CHUNK_HEADER);
        behaved_ = behaved_ && Answers();
    }
    return 0;
}

std::size_t HostileChip::ImageSize() const {
    return IMAGE_SIZES[(flags_ & IMAGE) >> 2];
}

std::size_t HostileChip::ReadImage(std::size_t offset, char* to, std::size_t size) const {
    if (offset >= LABEL_OFFSET) {
        return ReadLabel(offset - LABEL_OFFSET, to, size);
    }
    const std::size_t count = std::min(size, ImageSize() - std::min(offset, ImageSize()));
    if (count > 0) {
        std::memcpy(to, IMAGE_BYTES.data() + offset, count);
    }
    return count;
}

bool HostileChip::Answers() const {
    const std::size_t count = read_[0];
    const std::uint8_t* const lm = read_.data() + 1;
    if (count < OVERHEAD || count >= READ_SIZE) {
        return false;
    }
    const std::size_t length = GetField(lm + LENGTH_AT);
    const std::size_t summed = length == 0 ? 0 : std::min(length - 1, READ_SIZE - 1);
    return lm[count - 1] == Sum(lm, summed) && lm[0] == SYNC && lm[1] == SYNC &&
           lm[COUNT_AT] == request_[COUNT_AT] && lm[INSTANCE_AT] == request_[INSTANCE_AT] &&
           lm[OPCODE_AT] == request_[OPCODE_AT] &&
           std::equal(lm + SEGMENTS_AT, lm + PAYLOAD_AT, request_.begin() + SEGMENTS_AT) &&
           (lm[STATUS_AT] & RECEIVED) != 0;
}

bool HostileChip::HasWholeImage() const {
    return received_ == ImageSize() &&
           std::memcmp(image_.data(), IMAGE_BYTES.data(), received_) == 0;
}

void HostileChip::Take(const std::uint8_t* lm, std::size_t size) {
    Require(size > OVERHEAD && size <= LONGEST_MESSAGE, "a request of 14 to 2048 bytes");
    Require(lm[0] == SYNC && lm[1] == SYNC && lm[INSTANCE_AT] == 1 && lm[STATUS_AT] == 0,
            "a request's header");
    // An only segment's length field leaves its function byte out, and the sum goes by it.
    const std::size_t length = GetField(lm + LENGTH_AT);
    Require(length == size || length + 1 == size, "a request's length");
    Require(Sum(lm, length - 1) == lm[size - 1], "a request's checksum");
    std::copy(lm, lm + OVERHEAD, request_.begin());
    const std::size_t segment = GetField(lm + SEGMENT_AT);
    if (segment == 0 && lm[PAYLOAD_AT] == FUNCTION_PROGRAM) {
        received_ = 0;
        Append(lm + PAYLOAD_AT + 1, size - OVERHEAD - 1);
    } else if (segment > 0) {
        Append(lm + PAYLOAD_AT, size - OVERHEAD);
    }
}

void HostileChip::Append(const std::uint8_t* from, std::size_t count) {
    Require(received_ + count <= image_.size(), "a download no longer than its image");
    std::memcpy(image_.data() + received_, from, count);
    received_ += count;
}

HostileChip::Read HostileChip::Next() {
    enum { PROPER, CHANGED_INSIDE, CHANGED_AFTER, ANY_BYTES };
    Read read{};
    const std::size_t control = input_.Byte();
    const std::size_t edits = (control >> 2) % 8 + 1;
    switch (control % 4) {
        case PROPER:
            Answer(read, 0, input_.Empty() ? sizeof PROPER_PAYLOAD : input_.Byte() % 52);
            break;
        case CHANGED_INSIDE:
            Answer(read, edits, input_.Byte() % 52);
            break;
        case CHANGED_AFTER:
            Answer(read, 0, input_.Byte() % 52);
            Change(read, edits);
            break;
        default:
            for (std::uint8_t& byte : read) {
                byte = input_.Byte();
            }
    }
    return read;
}

void HostileChip::Change(Read& read, std::size_t edits) {
    for (std::size_t i = 0; i < edits; ++i) {
        const std::size_t at = input_.Byte() % READ_SIZE;
        read[at] = input_.Byte();
    }
}

void HostileChip::Answer(Read& read, std::size_t edits, std::size_t payload) {
    std::uint8_t* const lm = read.data() + 1;
    const std::size_t size = OVERHEAD + payload;
    std::copy(request_.begin(), request_.begin() + PAYLOAD_AT, lm);
    for (std::size_t i = 0; i < payload; ++i) {
        lm[PAYLOAD_AT + i] =
            input_.Empty() ? PROPER_PAYLOAD[i % sizeof PROPER_PAYLOAD] : input_.Byte();
    }
    read[0] = static_cast<std::uint8_t>(size);
    SetField(lm + LENGTH_AT, static_cast<unsigned>(size));
    lm[STATUS_AT] = RECEIVED;
    Change(read, edits);
    lm[size - 1] = Sum(lm, std::min(size, std::max<std::size_t>(GetField(lm + LENGTH_AT), 1)) - 1);
}

}  // namespace fuzz
