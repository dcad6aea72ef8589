// SPDX-License-Identifier: Apache-2.0
#include "sim/Burn.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

constexpr std::uint8_t ERASED = 0xFF;

// The flash's first block is erased first and programmed last: while it is blank, the chip knows
// that it holds no complete firmware.
constexpr std::size_t BLOCK = 256;

std::size_t Share(std::size_t size, Duration done, Duration whole) {
    if (whole <= Duration::zero()) {
        return size;
    }
    const double share = static_cast<double>(done.count()) / static_cast<double>(whole.count());
    return std::min(size, static_cast<std::size_t>(static_cast<double>(size) * share));
}

bool IsBlank(const FlashBytes& flash) {
    const auto end = flash.begin() + static_cast<std::ptrdiff_t>(std::min(BLOCK, flash.size()));
    return std::all_of(flash.begin(), end, [](std::uint8_t byte) { return byte == ERASED; });
}

}  // namespace

Burn::Burn(const BurnTimes& times, std::optional<FlashBytes> flash)
    : times_(times),
      flash_(flash ? std::move(*flash) : FlashBytes()),
      is_known_(flash.has_value()),
      is_bootable_(!is_known_ || !IsBlank(flash_)) {}

void Burn::Begin(FlashBytes image, bool sound, const BurnPlan& plan) {
    image_ = std::move(image);
    image_size_ = image_.size();
    plan_ = plan;
    in_phase_ = Duration::zero();
    const bool taken = sound && !image_.empty() && !plan_.reject_image;
    phase_ = taken ? Phase::Erasing : Phase::Failed;
}

bool Burn::IsRunning() const {
    switch (phase_) {
        case Phase::Erasing:
        case Phase::Programming:
        case Phase::Verifying:
            return true;
        case Phase::Idle:
        case Phase::Complete:
        case Phase::Failed:
            break;
    }
    return false;
}

ProgramStatus Burn::Status() const {
    switch (phase_) {
        case Phase::Idle:
            break;
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
    }
    return STATUS_IDLE;
}

Duration Burn::PhaseLength() const {
    switch (phase_) {
        case Phase::Erasing:
            return times_.erase;
        case Phase::Programming:
            return times_.program;
        case Phase::Verifying:
            return times_.verify;
        case Phase::Idle:
        case Phase::Complete:
        case Phase::Failed:
            break;
    }
    return Duration::zero();
}

std::optional<unsigned> Burn::DeathInPhase() const {
    if (phase_ == Phase::Erasing) {
        return plan_.die_erasing;
    }
    return phase_ == Phase::Programming ? plan_.die_programming : std::nullopt;
}

Duration Burn::PhaseEnd() const {
    const std::optional<unsigned> death = DeathInPhase();
    return death ? PhaseLength() * *death / 100 : PhaseLength();
}

std::optional<Duration> Burn::UntilNextPhase() const {
    return IsRunning() && !frozen_ ? std::optional<Duration>(PhaseEnd() - in_phase_) : std::nullopt;
}

bool Burn::Elapse(Duration time) {
    while (const std::optional<Duration> left = UntilNextPhase()) {
        if (time < *left) {
            in_phase_ += time;
            break;
        }
        time -= *left;
        in_phase_ += *left;
        if (!EndPhase()) {
            return false;
        }
    }
    return true;
}

// False: the chip dies at this end.
bool Burn::EndPhase() {
    if (DeathInPhase()) {
        Interrupt();
        return false;
    }
    in_phase_ = Duration::zero();
    if (phase_ == Phase::Erasing) {
        phase_ = Phase::Programming;
    } else if (phase_ == Phase::Programming) {
        phase_ = Phase::Verifying;
        is_bootable_ = true;
        programmed_ = true;
        Replace(std::move(image_));
    } else {
        phase_ = plan_.verify_fails ? Phase::Failed : Phase::Complete;
        if (plan_.verify_fails) {
            Invalidate();
        }
    }
    return true;
}

// Reading back does nothing to the flash.
void Burn::Interrupt() {
    if (phase_ == Phase::Erasing) {
        EraseFrontPart();
    } else if (phase_ == Phase::Programming) {
        ProgramFrontPart();
    }
    phase_ = Phase::Idle;
}

void Burn::EraseFrontPart() {
    if (flash_.empty()) {
        // Nobody knows what it held.
        flash_.assign(image_.size(), ERASED);
    }
    const std::size_t erased = Share(flash_.size(), in_phase_, PhaseLength());
    std::fill_n(flash_.begin(), erased, ERASED);
    Invalidate();
}

void Burn::ProgramFrontPart() {
    const std::size_t programmed = Share(image_.size(), in_phase_, PhaseLength());
    std::fill(image_.begin() + static_cast<std::ptrdiff_t>(programmed), image_.end(), ERASED);
    flash_ = std::move(image_);
    Invalidate();
}

void Burn::Invalidate() {
    FlashBytes flash = std::move(flash_);
    std::fill_n(flash.begin(), std::min(BLOCK, flash.size()), ERASED);
    is_bootable_ = false;
    Replace(std::move(flash));
}

void Burn::Replace(FlashBytes flash) {
    flash_ = std::move(flash);
    image_.clear();
    is_known_ = true;
    changes_ += 1;
}

}  // namespace sim
