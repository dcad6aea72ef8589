// SPDX-License-Identifier: Apache-2.0
#include "sim/ChipModel.h"

#include <algorithm>
#include <utility>

#include "sim/SampleImage.h"

namespace sim {

const char LOADER_VERSION[] = "LOADER ONLY";

namespace {

constexpr std::uint8_t INSTANCE = 1;
constexpr std::uint8_t ERASED = 0xFF;

// The flash's first block is erased first and programmed last: while it is blank, the chip knows
// that it holds no complete firmware.
constexpr std::size_t BLOCK = 256;

constexpr std::size_t CONFIGURATION_SIZE = 256;

// A reply fits a read, so a longer version text is cut: a byte 0 stands before it, a NUL behind.
constexpr std::size_t LONGEST_REPORTED = READ_ROOM - OVERHEAD - 2;

// No more than this many segments' room is made in advance, whatever a message announces.
constexpr std::size_t FORESEEN_SEGMENTS = 1024;

std::size_t Share(std::size_t size, Duration done, Duration whole) {
    if (whole <= Duration::zero()) {
        return size;
    }
    const double share = static_cast<double>(done.count()) / static_cast<double>(whole.count());
    return std::min(size, static_cast<std::size_t>(static_cast<double>(size) * share));
}

bool IsBlank(const std::vector<std::uint8_t>& flash) {
    const auto end = flash.begin() + static_cast<std::ptrdiff_t>(std::min(BLOCK, flash.size()));
    return std::all_of(flash.begin(), end, [](std::uint8_t byte) { return byte == ERASED; });
}

}  // namespace

ChipModel::ChipModel(ChipConfig config)
    : config_(std::move(config)), flash_(std::move(config_.flash)) {
    bootable_ = flash_.empty() || !IsBlank(flash_);
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
    InterruptBurn();
    phase_ = Phase::Idle;
    downloading_ = false;
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
    if (!bootable_) {
        version_ = LOADER_VERSION;
    } else if (programmed_ && config_.reports) {
        version_ = *config_.reports;
    } else if (flash_.empty()) {
        version_ = config_.installed;
    } else {
        version_ = LabelVersion(flash_);
    }
    version_.resize(std::min(version_.size(), LONGEST_REPORTED));
}

void ChipModel::Elapse(Duration time) {
    if (!powered_ || !line_high_ || hung_) {
        return;
    }
    until_reply_ = std::max(until_reply_ - time, Duration::zero());
    until_started_ = std::max(until_started_ - time, Duration::zero());
    while (Burning() && !frozen_) {
        const Duration left = PhaseEnd() - in_phase_;
        if (time < left) {
            in_phase_ += time;
            return;
        }
        time -= left;
        in_phase_ += left;
        EndPhase();
    }
}

bool ChipModel::Burning() const {
    return phase_ == Phase::Erasing || phase_ == Phase::Programming || phase_ == Phase::Verifying;
}

Duration ChipModel::PhaseLength() const {
    switch (phase_) {
        case Phase::Erasing:
            return config_.burn.erase;
        case Phase::Programming:
            return config_.burn.program;
        default:
            return config_.burn.verify;
    }
}

std::optional<unsigned> ChipModel::DeathInPhase() const {
    switch (phase_) {
        case Phase::Erasing:
            return plan_.die_erasing;
        case Phase::Programming:
            return plan_.die_programming;
        default:
            return std::nullopt;
    }
}

Duration ChipModel::PhaseEnd() const {
    const std::optional<unsigned> death = DeathInPhase();
    return death ? PhaseLength() * *death / 100 : PhaseLength();
}

void ChipModel::EndPhase() {
    if (DeathInPhase()) {
        InterruptBurn();
        phase_ = Phase::Idle;
        hung_ = true;
        return;
    }
    in_phase_ = Duration::zero();
    switch (phase_) {
        case Phase::Erasing:
            phase_ = Phase::Programming;
            break;
        case Phase::Programming:
            phase_ = Phase::Verifying;
            flash_ = std::move(image_);
            image_.clear();
            bootable_ = true;
            programmed_ = true;
            flash_changes_ += 1;
            break;
        default:
            phase_ = plan_.verify_fails ? Phase::Failed : Phase::Complete;
            if (plan_.verify_fails) {
                Invalidate();
            }
            break;
    }
}

// Leaves in the flash what a burn has done to it so far. Reading it back does nothing to it.
void ChipModel::InterruptBurn() {
    if (phase_ == Phase::Erasing) {
        EraseFrontPart();
    } else if (phase_ == Phase::Programming) {
        ProgramFrontPart();
    }
}

void ChipModel::EraseFrontPart() {
    if (flash_.empty()) {
        // Nobody knows what it held.
        flash_.assign(image_.size(), ERASED);
    }
    const std::size_t erased = Share(flash_.size(), in_phase_, PhaseLength());
    std::fill_n(flash_.begin(), erased, ERASED);
    Invalidate();
}

void ChipModel::ProgramFrontPart() {
    const std::size_t programmed = Share(image_.size(), in_phase_, PhaseLength());
    flash_ = std::move(image_);
    image_.clear();
    std::fill(flash_.begin() + static_cast<std::ptrdiff_t>(programmed), flash_.end(), ERASED);
    Invalidate();
}

void ChipModel::Invalidate() {
    std::fill_n(flash_.begin(), std::min(BLOCK, flash_.size()), ERASED);
    bootable_ = false;
    flash_changes_ += 1;
}

std::uint8_t ChipModel::Status() const {
    switch (phase_) {
        case Phase::Erasing:
            return STATUS_ERASING;
        case Phase::Programming:
            return STATUS_PROGRAMMING;
        case Phase::Verifying:
            return STATUS_VERIFYING;
        case Phase::Complete:
            return STATUS_COMPLETE;
        case Phase::Failed:
            return STATUS_VERIFICATION_FAILED;
        default:
            return STATUS_IDLE;
    }
}

bool ChipModel::Write(const std::uint8_t* bytes, std::size_t size, Treatment treatment) {
    if (!Answers()) {
        return false;
    }
    // An empty write only asks whether somebody is there.
    if (size == 0) {
        return true;
    }
    std::uint8_t status = Check(bytes, size);
    if (status == RECEIVED) {
        status = CheckCounter(bytes[COUNT_AT]);
        status = static_cast<std::uint8_t>(status | Perform(bytes, size, treatment));
    }
    Reply(bytes, size, status);
    return true;
}

// What reception alone can tell of a message: RECEIVED, or what is wrong with it.
std::uint8_t ChipModel::Check(const std::uint8_t* bytes, std::size_t size) {
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
        Classify(bytes, size) == Request::Segment && GetField(bytes + SEGMENT_AT) == 0;
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

std::uint8_t ChipModel::Perform(const std::uint8_t* bytes, std::size_t size, Treatment treatment) {
    const Request request = Classify(bytes, size);
    if (request == Request::Segment) {
        return TakeSegment(bytes, size, treatment) ? RECEIVED : 0;
    }
    downloading_ = false;
    switch (request) {
        case Request::Other:
            return UNKNOWN_OPCODE;
        case Request::Unprotect:
            unprotected_ = !Burning();
            return unprotected_ ? RECEIVED : 0;
        default:
            return RECEIVED;
    }
}

bool ChipModel::Expects(unsigned segment, unsigned total, std::size_t payload) const {
    if (segment == 0) {
        return unprotected_ && total > 0;
    }
    const bool full = segment + 1 == total || payload == SEGMENT_PAYLOAD;
    return downloading_ && segment == next_segment_ && total == total_segments_ && full;
}

bool ChipModel::TakeSegment(const std::uint8_t* bytes, std::size_t size, Treatment treatment) {
    const unsigned segment = GetField(bytes + SEGMENT_AT);
    const unsigned total = GetField(bytes + SEGMENTS_AT);
    if (treatment == Treatment::Refuse || !Expects(segment, total, size - OVERHEAD)) {
        return false;
    }
    std::size_t from = PAYLOAD_AT;
    if (segment == 0) {
        from += 1;  // the function byte
        phase_ = Phase::Idle;
        downloading_ = true;
        complete_ = true;
        total_segments_ = total;
        next_segment_ = 0;
        image_.clear();
        image_.reserve(std::min<std::size_t>(total, FORESEEN_SEGMENTS) * SEGMENT_PAYLOAD);
    }
    if (treatment == Treatment::Forget) {
        complete_ = false;
    } else {
        image_.insert(image_.end(), bytes + from, bytes + size - 1);
    }
    segments_ += 1;
    next_segment_ += 1;
    if (next_segment_ == total_segments_) {
        StartBurn();
    }
    return true;
}

void ChipModel::StartBurn() {
    downloading_ = false;
    unprotected_ = false;
    burns_ += 1;
    plan_ = next_plan_;
    image_size_ = image_.size();
    in_phase_ = Duration::zero();
    const bool sound = complete_ && !image_.empty() && !plan_.reject_image;
    phase_ = sound ? Phase::Erasing : Phase::Failed;
}

void ChipModel::Reply(const std::uint8_t* request, std::size_t size, std::uint8_t status) {
    reply_.fill(0);
    std::copy_n(request, std::min(size, PAYLOAD_AT), reply_.begin());
    reply_[SYNC_AT] = SYNC;
    reply_[SYNC_AT + 1] = SYNC;
    reply_[STATUS_AT] = status;
    reply_size_ = PAYLOAD_AT;
    if ((status & RECEIVED) != 0) {
        AppendPayload(Classify(request, size));
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
            Append(Status());
            break;
        case Request::FlashStatus:
            Append(Status());
            break;
        case Request::Unprotect:
            Append(0);
            break;
        default:
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
