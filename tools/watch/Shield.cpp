// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Shield.h"

#include "tools/watch/UpdateRecord.h"

namespace tools {

namespace {

// The reset line is low for 200 ms at the beginning of a reset, and must not stay so.
constexpr Milliseconds RESET_PULSE(1000);

// No download begins sooner after a reset.
constexpr Milliseconds RESET_WAIT(2500);

// Of so few segments the last may be on its way before a line tells of the first.
constexpr int FEW_SEGMENTS = 2;

// The chip's makers give the burn 2 minutes at most.
constexpr Milliseconds LONGEST_BURN(180000);

const char ABOUT_TO_WRITE[] = "the chip is about to write its flash, or does so already";

Ruling Rule(Ruling::What what, const std::string& reason = "") {
    Ruling ruling;
    ruling.what = what;
    ruling.reason = reason;
    return ruling;
}

}  // namespace

bool Shield::IsOverdue(const UpdateProgress& update, Milliseconds now) {
    return now - update.LastProgress() > LONGEST_BURN;
}

Ruling Shield::JudgeReset(const UpdateProgress& update, Milliseconds now) const {
    const Milliseconds since = now - update.PhaseBegan();
    if (since < RESET_PULSE) {
        return Rule(Ruling::What::Later);
    }
    // Without any image known it is taken for one of the usual size.
    const bool has_few = segments_ > 0 && segments_ <= FEW_SEGMENTS;
    return has_few && since > RESET_WAIT && !IsOverdue(update, now)
               ? Rule(Ruling::What::Wait, ABOUT_TO_WRITE)
               : Rule(Ruling::What::End);
}

Ruling Shield::JudgeDownload(const UpdateProgress& update, bbpflash_mode mode,
                             Milliseconds now) const {
    if (mode != BBPFLASH_MODE_STATUS) {
        const Milliseconds longest = 2 * update.ExpectedDownload() + LONGEST_BURN;
        return now - update.LastProgress() > longest
                   ? Rule(Ruling::What::End)
                   : Rule(Ruling::What::Wait,
                          "without -s nobody sees when the chip begins to write its flash, and it "
                          "may have");
    }
    return HasSegmentsToGo(update.At(now).percent, segments_) || IsOverdue(update, now)
               ? Rule(Ruling::What::End)
               : Rule(Ruling::What::Wait, ABOUT_TO_WRITE);
}

Ruling Shield::Judge(const UpdateProgress& update, bbpflash_mode mode, Milliseconds now) const {
    const Progress progress = update.At(now);
    if (progress.writes_flash) {
        return progress.is_refused || IsOverdue(update, now)
                   ? Rule(Ruling::What::End)
                   : Rule(Ruling::What::Wait,
                          "the chip is writing its flash; ended now, the next reset would leave it "
                          "without firmware");
    }
    switch (progress.phase) {
        case BBPFLASH_PHASE_RESET:
        case BBPFLASH_PHASE_CHECK:
            return JudgeReset(update, now);
        case BBPFLASH_PHASE_DOWNLOAD:
            return JudgeDownload(update, mode, now);
        case BBPFLASH_PHASE_BURN:
        case BBPFLASH_PHASE_ERASE:
        case BBPFLASH_PHASE_PROGRAM:
        case BBPFLASH_PHASE_VERIFY:
        case BBPFLASH_PHASE_ENDED:
            break;
    }
    return Rule(Ruling::What::End);
}

}  // namespace tools
