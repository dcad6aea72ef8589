// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Shield.h"

namespace tools {

namespace {

// The reset line is low for 200 ms at the beginning of a reset, and must not stay so.
constexpr Milliseconds RESET_PULSE(1000);

// The chip's makers give the burn 2 minutes at most.
constexpr Milliseconds LONGEST_BURN(180000);

constexpr int LAST_OF_DOWNLOAD = 80;
constexpr int LAST_SAFE_PERCENT = 78;

}  // namespace

// When this percentage was written, one segment more may have gone out unheard; the chip must still
// lack another one.
bool Shield::HasSegmentsToGo(int percent) const {
    return percent <= LAST_SAFE_PERCENT &&
           (LAST_OF_DOWNLOAD - percent) * segments_ > 2 * LAST_OF_DOWNLOAD;
}

Ruling Shield::Judge(const UpdateProgress& update, Milliseconds now) const {
    const Progress progress = update.At(now);
    if (progress.writes_flash) {
        const bool is_over = progress.is_refused || now - update.LastProgress() > LONGEST_BURN;
        return is_over ? Ruling{Ruling::What::End, ""}
                       : Ruling{Ruling::What::Wait,
                                "the chip is writing its flash; ended now, the next reset would "
                                "leave it without firmware"};
    }
    switch (progress.phase) {
        case BBPFLASH_PHASE_RESET:
        case BBPFLASH_PHASE_CHECK:
            return {
                now - update.PhaseBegan() < RESET_PULSE ? Ruling::What::Later : Ruling::What::End,
                ""};
        case BBPFLASH_PHASE_DOWNLOAD:
            break;
        default:
            return {Ruling::What::End, ""};
    }
    if (mode_ != BBPFLASH_MODE_STATUS) {
        const Milliseconds longest = 2 * update.ExpectedDownload() + LONGEST_BURN;
        return now - update.LastProgress() > longest
                   ? Ruling{Ruling::What::End, ""}
                   : Ruling{Ruling::What::Wait,
                            "without -s nobody sees when the chip begins to write its flash, and "
                            "it may have"};
    }
    if (!HasSegmentsToGo(progress.percent)) {
        return {Ruling::What::Wait, "the chip is about to write its flash"};
    }
    return {Ruling::What::End, ""};
}

}  // namespace tools
