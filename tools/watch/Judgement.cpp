// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Judgement.h"

#include <csignal>
#include <cstdlib>

namespace tools {

namespace {

constexpr int FIRST_SIGNAL_STATUS = 128;

bool HasUnknownStatus(const Evidence& evidence) {
    return evidence.status == BBPFLASH_STATUS_UNKNOWN;
}

// Whether the lines themselves say that the updater came to a good end. Silence does not.
bool TellsOfSuccess(const UpdateRecord& record) {
    if (record.IsMixed()) {
        return false;
    }
    switch (record.Mode()) {
        case BBPFLASH_MODE_STATUS:
            return record.IsDone();
        case BBPFLASH_MODE_NARRATING:
            return record.HasMatched() || (!record.HasProgrammed() && record.HasTold());
        case BBPFLASH_MODE_UNKNOWN:
            break;
    }
    return false;
}

Verdict GoodVerdict(const UpdateRecord& record) {
    if (record.HasProgrammed()) {
        return Verdict::Success;
    }
    // A query shows the version and compares nothing.
    const bool is_query = record.HasTold() && record.Label().empty() && !record.HasMatched();
    return is_query ? Verdict::Answered : Verdict::Current;
}

Verdict VerdictOf(const UpdateRecord& record, const Evidence& evidence) {
    if (evidence.is_over) {
        return Verdict::Refused;
    }
    if (evidence.was_requested) {
        return Verdict::Interrupted;
    }
    switch (evidence.stream) {
        case BBPFLASH_VERDICT_SUCCESS:
            return TellsOfSuccess(record) ? GoodVerdict(record) : Verdict::Doubtful;
        case BBPFLASH_VERDICT_FAILURE:
            return Verdict::Failure;
        case BBPFLASH_VERDICT_DOUBTFUL:
            break;
    }
    return Verdict::Doubtful;
}

int StatusOf(Verdict verdict, const Evidence& evidence) {
    switch (verdict) {
        case Verdict::Success:
        case Verdict::Current:
        case Verdict::Answered:
        case Verdict::Ready:
            return EXIT_SUCCESS;
        case Verdict::Refused:
            return STATUS_REFUSED;
        case Verdict::Failure:
            return HasUnknownStatus(evidence) ? EXIT_FAILURE : evidence.status;
        case Verdict::Doubtful:
            return HasUnknownStatus(evidence) || evidence.status == 0 ? STATUS_DOUBTFUL
                                                                      : evidence.status;
        case Verdict::Interrupted:
        case Verdict::NotReady:
        case Verdict::NotStarted:
            break;
    }
    return evidence.status;
}

std::string ReasonOf(const UpdateRecord& record, const Evidence& evidence, Verdict verdict) {
    if (verdict == Verdict::Refused) {
        return record.Refusal();
    }
    if (verdict == Verdict::Interrupted) {
        return evidence.is_slow ? "silent" : "request-to-end";
    }
    if (!record.FirstError().empty()) {
        return AdviceForMessage(record.FirstError()).code;
    }
    if (evidence.status == FIRST_SIGNAL_STATUS + SIGABRT) {
        return "aborted";
    }
    if (evidence.status >= FIRST_SIGNAL_STATUS) {
        return "signal";
    }
    if (verdict == Verdict::Doubtful) {
        const bool is_silent = record.Mode() == BBPFLASH_MODE_UNKNOWN && !record.HasProgrammed();
        return is_silent ? "nothing-said" : "contradiction";
    }
    return "unknown";
}

Content ContentOf(const UpdateRecord& record, const Evidence& evidence, Verdict verdict) {
    if (verdict == Verdict::Success || verdict == Verdict::Current) {
        return Content::New;
    }
    // A query tells nothing about the image; contradictions tell nothing at all; and an updater
    // that was only listened to may still be at work.
    const bool may_go_on = verdict == Verdict::Interrupted && evidence.is_only_heard;
    if (verdict == Verdict::Answered || verdict == Verdict::Doubtful || may_go_on) {
        return Content::Unknown;
    }
    const bool is_ended_by_others =
        evidence.status >= FIRST_SIGNAL_STATUS && !evidence.was_requested && !evidence.is_over;
    return record.Held(is_ended_by_others || HasUnknownStatus(evidence));
}

}  // namespace

Ending Judge(const UpdateRecord& record, const Evidence& evidence) {
    Ending ending;
    ending.verdict = VerdictOf(record, evidence);
    ending.status = StatusOf(ending.verdict, evidence);
    ending.content = ContentOf(record, evidence, ending.verdict);
    ending.where = record.Where();
    ending.segments = record.Segments();
    if (IsGood(ending.verdict)) {
        return ending;
    }
    ending.reason = ReasonOf(record, evidence, ending.verdict);
    const Advice& advice = AdviceFor(ending.reason);
    ending.what = record.FirstError().empty() ? advice.meaning : record.FirstError();
    const ContentAdvice& content = AdviceFor(ending.content);
    const bool has_own_advice =
        ending.verdict == Verdict::Refused || ending.verdict == Verdict::Doubtful;
    ending.next = content.next.empty() || has_own_advice ? advice.next : content.next;
    return ending;
}

}  // namespace tools
