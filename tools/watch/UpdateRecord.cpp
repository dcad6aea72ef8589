// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/UpdateRecord.h"

#include <charconv>

#include "common/Text.h"
#include "tools/watch/UpdateProgress.h"

namespace tools {

namespace {

constexpr int LAST_SAFE_PERCENT = 78;

constexpr std::string_view BANNER = "HD tuner firmware updater";
constexpr std::string_view INSTALLED = "Installed firmware version is \"";
constexpr std::string_view LABEL = "BIN file firmware version is \"";
constexpr std::string_view MATCH = "Installed version matches BIN file label";

// The text between the quotes; empty when it does not end on this line.
std::string Quoted(std::string_view message, std::string_view beginning) {
    const std::size_t end = message.rfind('"');
    return end < beginning.size()
               ? ""
               : std::string(message.substr(beginning.size(), end - beginning.size()));
}

// Without the place in the source, " @HdChip.cpp:107", which means nothing to a person.
std::string_view WithoutPlace(std::string_view message) {
    return message.substr(0, message.rfind(" @"));
}

// The number behind `name` in a dump's line.
std::optional<int> NumberBehind(std::string_view text, std::string_view name) {
    const std::size_t at = text.find(name);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view rest = text.substr(at + name.size());
    const std::size_t digits = rest.find_first_not_of(' ');
    int number = 0;
    if (digits == std::string_view::npos ||
        std::from_chars(rest.data() + digits, rest.data() + rest.size(), number).ec !=
            std::errc()) {
        return std::nullopt;
    }
    return number;
}

bool IsBurning(bbpflash_phase phase) {
    return phase == BBPFLASH_PHASE_BURN || phase == BBPFLASH_PHASE_ERASE ||
           phase == BBPFLASH_PHASE_PROGRAM || phase == BBPFLASH_PHASE_VERIFY;
}

}  // namespace

bool HasSegmentsToGo(int percent, int segments) {
    return percent <= LAST_SAFE_PERCENT &&
           (LAST_OF_DOWNLOAD - percent) * segments > 2 * LAST_OF_DOWNLOAD;
}

void UpdateRecord::Take(const bbpflash_event& event) {
    if (event.phase != BBPFLASH_PHASE_ENDED) {
        TakeProgress(event);
    }
    const std::string_view text(event.text, event.size);
    switch (event.line) {
        case BBPFLASH_LINE_PERCENT:
        case BBPFLASH_LINE_DONE:
            is_done_ = is_done_ || event.line == BBPFLASH_LINE_DONE;
            has_ended_ = has_ended_ || is_done_;
            mode_ = has_banner_ ? mode_ : BBPFLASH_MODE_STATUS;
            is_mixed_ = has_banner_;
            break;
        case BBPFLASH_LINE_ERROR:
            has_ended_ = true;
            break;
        case BBPFLASH_LINE_MESSAGE:
            TakeMessage(event);
            break;
        case BBPFLASH_LINE_DUMP:
            TakeDump(text);
            break;
        case BBPFLASH_LINE_CONTINUATION:
        case BBPFLASH_LINE_OPTIONS:
        case BBPFLASH_LINE_UNKNOWN:
            break;
    }
    if (event.refused == 0) {
        refusal_.clear();
    }
}

// An error that the update has left behind is none that ended it.
void UpdateRecord::TakeProgress(const bbpflash_event& event) {
    const bool is_new_pass = event.pass != position_.pass;
    const bool is_new_phase = event.phase != position_.phase;
    if (!is_new_pass && !is_new_phase && event.percent == position_.percent) {
        return;
    }
    first_error_.clear();
    position_.phase = event.phase;
    position_.pass = event.pass;
    position_.percent = event.percent;
    position_.segment.reset();
    if (is_new_pass) {
        began_to_write_ = false;
        missed_polls_ = false;
    }
    began_to_write_ = began_to_write_ || event.phase == BBPFLASH_PHASE_ERASE ||
                      event.phase == BBPFLASH_PHASE_PROGRAM;
    was_programmed_ = was_programmed_ || (event.pass > 0 && event.phase == BBPFLASH_PHASE_CHECK);
}

void UpdateRecord::TakeMessage(const bbpflash_event& event) {
    const std::string_view message(event.message, event.message_size);
    if (event.level == BBPFLASH_LEVEL_ERROR || event.level == BBPFLASH_LEVEL_CRITICAL) {
        TakeError(message);
        return;
    }
    // Without -s the updater begins so, and writes no percentage.
    if (event.level == BBPFLASH_LEVEL_PLAIN && common::StartsWith(message, BANNER)) {
        has_banner_ = true;
        mode_ = BBPFLASH_MODE_NARRATING;
    }
    if (common::StartsWith(message, INSTALLED)) {
        installed_ = Quoted(message, INSTALLED);
        from_ = from_.empty() ? installed_ : from_;
    } else if (common::StartsWith(message, LABEL)) {
        label_ = Quoted(message, LABEL);
    }
    has_matched_ = has_matched_ || common::StartsWith(message, MATCH);
}

void UpdateRecord::TakeError(std::string_view message) {
    const std::string_view text = WithoutPlace(message);
    const Advice& advice = AdviceForMessage(text);
    if (common::StartsWith(advice.code, "refused-")) {
        refusal_ = advice.code;
    } else {
        missed_polls_ = missed_polls_ || IsBurning(position_.phase);
    }
    if (first_error_.empty()) {
        first_error_ = text;
    }
}

// The exchange that failed, where it carried a segment.
void UpdateRecord::TakeDump(std::string_view text) {
    if (first_error_.empty() || position_.phase != BBPFLASH_PHASE_DOWNLOAD) {
        return;
    }
    const std::optional<int> total = NumberBehind(text, "] num segs:");
    const std::optional<int> number = NumberBehind(text, "] curr seg:");
    if (total && *total > 0) {
        segments_ = *total;
    }
    if (number && !position_.segment) {
        position_.segment = *number + 1;
    }
}

bool UpdateRecord::LacksSegments() const {
    if (common::StartsWith(first_error_, "filling")) {
        return true;
    }
    if (position_.segment && segments_ > 0) {
        return *position_.segment < segments_;
    }
    return mode_ == BBPFLASH_MODE_STATUS && HasSegmentsToGo(position_.percent, segments_);
}

Content UpdateRecord::Held(bool is_cut) const {
    if (is_cut && !has_ended_ && mode_ != BBPFLASH_MODE_STATUS) {
        return Content::Unknown;
    }
    const Content before = was_programmed_ ? Content::New : Content::Old;
    switch (position_.phase) {
        case BBPFLASH_PHASE_RESET:
        case BBPFLASH_PHASE_CHECK:
        case BBPFLASH_PHASE_ENDED:
            return before;
        case BBPFLASH_PHASE_DOWNLOAD:
            return LacksSegments() ? before : Content::Unknown;
        case BBPFLASH_PHASE_BURN:
        case BBPFLASH_PHASE_ERASE:
        case BBPFLASH_PHASE_PROGRAM:
        case BBPFLASH_PHASE_VERIFY:
            break;
    }
    if (began_to_write_) {
        return Content::Neither;
    }
    // One that was seen to refuse the image, from the first poll on, has erased nothing.
    const bool is_untouched =
        !refusal_.empty() && !missed_polls_ && position_.phase == BBPFLASH_PHASE_BURN;
    return is_untouched || common::StartsWith(first_error_, "filling") ? before : Content::Unknown;
}

}  // namespace tools
