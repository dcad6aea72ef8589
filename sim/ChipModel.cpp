// SPDX-License-Identifier: Apache-2.0
#include "sim/ChipModel.h"

#include <algorithm>
#include <utility>

#include "sim/SampleImage.h"

namespace sim {

const char LOADER_VERSION[] = "LOADER ONLY";

namespace {

constexpr std::uint8_t INSTANCE = 1;
constexpr std::size_t CONFIGURATION_SIZE = 256;

// A reply fits a read, so a longer version text is cut: a byte 0 stands before it, a NUL behind.
constexpr std::size_t LONGEST_REPORTED = READ_ROOM - OVERHEAD - 2;

// No more than this many segments' room is made in advance, whatever a message announces.
constexpr std::size_t FORESEEN_SEGMENTS = 1024;

}  // namespace

ChipModel::ChipModel(ChipConfig config)
    : config_(std::move(config)), burn_(config_.burn, std::move(config_.flash)) {
    Boot();
}

bool ChipModel::Answers() const {
    return powered_ && line_high_ && !hung_ && until_started_ == Duration::zero();
}

void ChipModel::SetReset(bool high) {
    if (high == line_high_) {
        return;
    }
    line_high_ = high;
    if (high) {
        Start();
    } else {
        Stop();
    }
}

void ChipModel::Restart() {
    Stop();
    Start();
}

void ChipModel::LosePower() {
    Stop();
    powered_ = false;
}

void ChipModel::Stop() {
    burn_.Interrupt();
    incoming_.running = false;
    unprotected_ = false;
    hung_ = false;
    reply_size_ = 0;
}

void ChipModel::Start() {
    until_started_ = next_start_.value_or(config_.start_up);
    next_start_.reset();
    expected_count_ = 0;
    Boot();
}

void ChipModel::Boot() {
    if (!burn_.IsBootable()) {
        version_ = LOADER_VERSION;
    } else if (burn_.WasProgrammed() && config_.reports) {
        version_ = *config_.reports;
    } else if (!burn_.IsKnown()) {
        version_ = config_.installed;
    } else {
        version_ = LabelVersion(burn_.Flash());
    }
    version_.resize(std::min(version_.size(), LONGEST_REPORTED));
}

void ChipModel::Elapse(Duration time) {
    if (!powered_ || !line_high_ || hung_) {
        return;
    }
    until_reply_ = std::max(until_reply_ - time, Duration::zero());
    until_started_ = std::max(until_started_ - time, Duration::zero());
    hung_ = !burn_.Elapse(time);
}

std::optional<Duration> ChipModel::UntilNextPhase() const {
    return powered_ && line_high_ && !hung_ ? burn_.UntilNextPhase() : std::nullopt;
}

bool ChipModel::Write(const WrittenMessage& message, Treatment treatment) {
    if (!Answers()) {
        return false;
    }
    // An empty write only asks whether somebody is there.
    if (message.size == 0) {
        return true;
    }
    std::uint8_t status = Check(message);
    if (status == RECEIVED) {
        status = CheckCounter(message.bytes[COUNT_AT]);
        status = static_cast<std::uint8_t>(status | Perform(message, treatment));
    }
    Reply(message, status);
    return true;
}

// What reception alone can tell of a message: RECEIVED, or what is wrong with it.
std::uint8_t ChipModel::Check(const WrittenMessage& message) const {
    const std::uint8_t* const bytes = message.bytes;
    const std::size_t size = message.size;
    if (size > LONGEST_MESSAGE) {
        return OVERFLOW_BIT;
    }
    if (size < OVERHEAD || bytes[SYNC_AT] != SYNC || bytes[SYNC_AT + 1] != SYNC ||
        bytes[INSTANCE_AT] != INSTANCE) {
        return HEADER_MISSING;
    }
    const std::size_t length = GetField(bytes + LENGTH_AT);
    // Relied on: a download's first segment may count itself one byte short, without the function
    // byte. Its checksum stands behind its last byte all the same, and leaves that one out.
    const bool first_segment =
        message.request == Request::Segment && GetField(bytes + SEGMENT_AT) == 0;
    if (length != size && !(first_segment && length + 1 == size && length >= OVERHEAD)) {
        return length < size ? OVERFLOW_BIT : CHECKSUM_MISMATCH;
    }
    return Sum(bytes, length - 1) == bytes[size - 1] ? RECEIVED : CHECKSUM_MISMATCH;
}

// A message that is out of step is taken all the same, and the next is expected to follow it.
std::uint8_t ChipModel::CheckCounter(std::uint8_t count) {
    const std::uint8_t mismatch = count == expected_count_ ? 0 : COUNT_MISMATCH;
    expected_count_ = static_cast<std::uint8_t>(count + 1);
    return mismatch;
}

std::uint8_t ChipModel::Perform(const WrittenMessage& message, Treatment treatment) {
    if (message.request == Request::Segment) {
        return TakeSegment(message, treatment) ? RECEIVED : 0;
    }
    incoming_.running = false;
    switch (message.request) {
        case Request::None:
        case Request::Other:
            return UNKNOWN_OPCODE;
        case Request::Unprotect:
            unprotected_ = !burn_.IsRunning();
            return unprotected_ ? RECEIVED : 0;
        case Request::Version:
        case Request::Configuration:
        case Request::Segment:
        case Request::Poll:
        case Request::FlashStatus:
            break;
    }
    return RECEIVED;
}

bool ChipModel::Expects(unsigned segment, unsigned total, std::size_t payload) const {
    if (segment + 1 != total && payload != SEGMENT_PAYLOAD) {
        return false;
    }
    if (segment == 0) {
        return unprotected_ && total > 0;
    }
    return incoming_.running && segment == incoming_.next && total == incoming_.total;
}

void ChipModel::StartDownload(unsigned total) {
    burn_.Forget();
    incoming_.running = true;
    incoming_.complete = true;
    incoming_.total = total;
    incoming_.next = 0;
    incoming_.image.clear();
    incoming_.image.reserve(std::min<std::size_t>(total, FORESEEN_SEGMENTS) * SEGMENT_PAYLOAD);
}

bool ChipModel::TakeSegment(const WrittenMessage& message, Treatment treatment) {
    const unsigned segment = GetField(message.bytes + SEGMENT_AT);
    const unsigned total = GetField(message.bytes + SEGMENTS_AT);
    if (treatment == Treatment::Refuse || !Expects(segment, total, message.size - OVERHEAD)) {
        return false;
    }
    std::size_t from = PAYLOAD_AT;
    if (segment == 0) {
        from += 1;  // the function byte
        StartDownload(total);
    }
    if (treatment == Treatment::Forget) {
        incoming_.complete = false;
    } else {
        incoming_.image.insert(incoming_.image.end(), message.bytes + from,
                               message.bytes + message.size - 1);
    }
    segments_ += 1;
    incoming_.next += 1;
    if (incoming_.next == incoming_.total) {
        StartBurn();
    }
    return true;
}

void ChipModel::StartBurn() {
    incoming_.running = false;
    unprotected_ = false;
    burns_ += 1;
    burn_.Begin(std::move(incoming_.image), incoming_.complete, next_plan_);
}

void ChipModel::Reply(const WrittenMessage& request, std::uint8_t status) {
    reply_.fill(0);
    std::copy_n(request.bytes, std::min(request.size, PAYLOAD_AT), reply_.begin());
    reply_[SYNC_AT] = SYNC;
    reply_[SYNC_AT + 1] = SYNC;
    reply_[STATUS_AT] = status;
    reply_size_ = PAYLOAD_AT;
    if ((status & RECEIVED) != 0) {
        AppendPayload(request.request);
    }
    SetField(reply_.data() + LENGTH_AT, static_cast<unsigned>(reply_size_ + 1));
    Append(Sum(reply_.data(), reply_size_));
    reply_read_ = 0;
    until_reply_ = config_.response;
}

void ChipModel::AppendPayload(Request request) {
    switch (request) {
        case Request::Version:
            Append(0);
            for (const char c : version_) {
                Append(static_cast<std::uint8_t>(c));
            }
            Append(0);
            break;
        case Request::Configuration:
            Append(0);  // the active one
            for (std::size_t i = 0; i < CONFIGURATION_SIZE; ++i) {
                Append(static_cast<std::uint8_t>(i));
            }
            break;
        case Request::Poll:
            Append(0);
            Append(burn_.Status());
            break;
        case Request::FlashStatus:
            Append(burn_.Status());
            break;
        case Request::Unprotect:
            Append(0);
            break;
        case Request::None:
        case Request::Segment:
        case Request::Other:
            break;
    }
}

bool ChipModel::Read(std::uint8_t* bytes, std::size_t size) {
    if (!Answers()) {
        return false;
    }
    std::fill_n(bytes, size, std::uint8_t{0});
    if (size == 0 || reply_size_ == 0 || until_reply_ > Duration::zero()) {
        return true;
    }
    const std::size_t count = std::min({reply_size_ - reply_read_, READ_ROOM, size - 1});
    bytes[0] = static_cast<std::uint8_t>(count);
    std::copy_n(reply_.begin() + static_cast<std::ptrdiff_t>(reply_read_), count, bytes + 1);
    reply_read_ += count;
    if (reply_read_ == reply_size_) {
        reply_read_ = 0;
    }
    return true;
}

}  // namespace sim
