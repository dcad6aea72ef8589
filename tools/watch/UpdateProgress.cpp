// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/UpdateProgress.h"

#include <algorithm>

namespace tools {

namespace {

// What the phases take: the reset's fixed waits and the version query, and the chip's usual times.
constexpr Milliseconds RESET_TIME(3250);
constexpr Milliseconds BURN_TIME(500);  // until the chip's first status is read
constexpr Milliseconds ERASE_TIME(4000);
constexpr Milliseconds PROGRAM_TIME(8000);
constexpr Milliseconds VERIFY_TIME(3000);

// So many per cent make a pace that can be trusted.
constexpr int PACE_PERCENT = 3;

// What is granted beyond the usual before a time is no longer claimed.
constexpr Milliseconds LATE_PERCENT(5000);
constexpr Milliseconds LATE_PHASE(2000);

// The phases of a pass in the order of their work.
constexpr bbpflash_phase ORDER[] = {
    BBPFLASH_PHASE_RESET,   BBPFLASH_PHASE_DOWNLOAD, BBPFLASH_PHASE_BURN, BBPFLASH_PHASE_ERASE,
    BBPFLASH_PHASE_PROGRAM, BBPFLASH_PHASE_VERIFY,   BBPFLASH_PHASE_CHECK};

// The part of a phase of usual length `length` that is over after `time`: even at first, and ever
// slower when it lasts longer than usual, so that it never comes to its end by itself.
double ShareOverTime(Milliseconds time, Milliseconds length) {
    constexpr double EVEN = 0.9;
    const double share = static_cast<double>(time.count()) / static_cast<double>(length.count());
    constexpr double REST = 1 - EVEN;
    return share <= EVEN ? share : 1 - REST * REST / (share - EVEN + REST);
}

}  // namespace

void UpdateProgress::Take(const bbpflash_event& event, Milliseconds now) {
    const bool is_new_pass = event.pass != pass_;
    // Only a further pass begins again; a better guess of the whole must not.
    least_done_ = is_new_pass && pass_ > 0 ? 0 : At(now).done;
    // The version check before the first pass belongs to its reset.
    const bool goes_on = phase_ == BBPFLASH_PHASE_RESET && event.phase == BBPFLASH_PHASE_CHECK;
    if ((event.phase != phase_ && !goes_on) || is_new_pass) {
        phase_began_ = now;
        last_progress_ = now;
    }
    if (event.phase == BBPFLASH_PHASE_DOWNLOAD && (is_new_pass || event.percent != percent_)) {
        if (is_new_pass || event.percent < percent_ || first_percent_ == 0) {
            first_percent_ = event.line == BBPFLASH_LINE_PERCENT ? event.percent : 0;
            first_percent_came_ = now;
        }
        last_percent_came_ = now;
        last_progress_ = now;
    }
    phase_ = event.phase;
    pass_ = event.pass;
    percent_ = event.percent;
    if (event.refused == 0) {
        refused_since_.reset();
    } else if (!refused_since_) {
        refused_since_ = now;
    }
}

// As measured, once it can be, or else as expected.
Milliseconds UpdateProgress::Download() const {
    const int percents = percent_ - first_percent_;
    if (phase_ != BBPFLASH_PHASE_DOWNLOAD || first_percent_ == 0 || percents < PACE_PERCENT) {
        return expected_download_;
    }
    return (last_percent_came_ - first_percent_came_) * LAST_OF_DOWNLOAD / percents;
}

Milliseconds UpdateProgress::LengthOf(bbpflash_phase of) const {
    switch (of) {
        case BBPFLASH_PHASE_RESET:
            return pass_ <= 1 ? RESET_TIME : Milliseconds(0);
        case BBPFLASH_PHASE_CHECK:
            return RESET_TIME;
        case BBPFLASH_PHASE_DOWNLOAD:
            return Download();
        case BBPFLASH_PHASE_BURN:
            return BURN_TIME;
        case BBPFLASH_PHASE_ERASE:
            return ERASE_TIME;
        case BBPFLASH_PHASE_PROGRAM:
            return PROGRAM_TIME;
        case BBPFLASH_PHASE_VERIFY:
            return VERIFY_TIME;
        case BBPFLASH_PHASE_ENDED:
            break;
    }
    return Milliseconds(0);
}

Milliseconds UpdateProgress::Before(bbpflash_phase until) const {
    Milliseconds sum(0);
    for (const bbpflash_phase one : ORDER) {
        if (one == until) {
            break;
        }
        sum += LengthOf(one);
    }
    return sum;
}

double UpdateProgress::ShareOfPhase(Milliseconds now) const {
    if (phase_ == BBPFLASH_PHASE_DOWNLOAD) {
        return static_cast<double>(first_percent_ == 0 ? 0 : percent_) / LAST_OF_DOWNLOAD;
    }
    return ShareOverTime(now - phase_began_, LengthOf(phase_));
}

// Whether what is on has lasted so much longer than usual that nobody can say how long it will.
bool UpdateProgress::IsLate(Milliseconds now) const {
    if (phase_ == BBPFLASH_PHASE_DOWNLOAD) {
        return now - last_progress_ > LATE_PERCENT + Download() / LAST_OF_DOWNLOAD;
    }
    const bool is_before_pass = pass_ == 0 && phase_ == BBPFLASH_PHASE_CHECK;
    return now - phase_began_ >
           LATE_PHASE + LengthOf(is_before_pass ? BBPFLASH_PHASE_RESET : phase_) * 3 / 2;
}

Progress UpdateProgress::At(Milliseconds now) const {
    Progress progress;
    progress.pass = pass_;
    progress.percent = percent_;
    progress.elapsed = now;
    progress.is_refused = refused_since_.has_value();
    const bool is_before_pass = pass_ == 0 && phase_ == BBPFLASH_PHASE_CHECK;
    progress.phase = is_before_pass ? BBPFLASH_PHASE_RESET : phase_;
    progress.writes_flash = phase_ == BBPFLASH_PHASE_BURN || phase_ == BBPFLASH_PHASE_ERASE ||
                            phase_ == BBPFLASH_PHASE_PROGRAM || phase_ == BBPFLASH_PHASE_VERIFY;
    if (phase_ == BBPFLASH_PHASE_ENDED) {
        progress.done = percent_ == 100 ? 1 : least_done_;
        return progress;
    }
    const Milliseconds total = Before(BBPFLASH_PHASE_CHECK) + LengthOf(BBPFLASH_PHASE_CHECK);
    const double length = static_cast<double>(LengthOf(progress.phase).count());
    const double share = ShareOfPhase(now);
    const double over = static_cast<double>(Before(progress.phase).count()) + share * length;
    progress.done = std::max(least_done_, over / static_cast<double>(total.count()));
    progress.remaining = total - Milliseconds(static_cast<long long>(over));
    if (refused_since_ || IsLate(now)) {
        progress.remaining.reset();
    }
    return progress;
}

}  // namespace tools
