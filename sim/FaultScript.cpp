// SPDX-License-Identifier: Apache-2.0
#include "sim/FaultScript.h"

#include <algorithm>
#include <cerrno>

namespace sim {

const int NO_ANSWER = ENXIO;

namespace {

// The event of a write beside Event::Write, if it has one.
std::optional<Event> EventOf(Request request) {
    switch (request) {
        case Request::Segment:
            return Event::Segment;
        case Request::Poll:
            return Event::Poll;
        case Request::Version:
            return Event::Version;
        case Request::Unprotect:
            return Event::Unprotect;
        case Request::None:
        case Request::Configuration:
        case Request::FlashStatus:
        case Request::Other:
            break;
    }
    return std::nullopt;
}

template <typename T>
void SetOnce(std::optional<T>* value, T to) {
    if (!*value) {
        *value = to;
    }
}

// Of two places the earlier one counts.
void SetUpset(Strike* strike, Upset upset, std::size_t offset) {
    if (strike->upset == Upset::None || offset < strike->offset) {
        strike->upset = upset;
        strike->offset = offset;
    }
}

void SetTreatment(Strike* strike, Treatment treatment) {
    if (strike->treatment == Treatment::Take) {
        strike->treatment = treatment;
    }
}

void AddToBurn(const Fault& fault, BurnPlan* burn) {
    if (fault.action == Action::RejectImage) {
        burn->reject_image = true;
    } else if (fault.action == Action::VerifyFails) {
        burn->verify_fails = true;
    } else if (fault.action == Action::DieErasing) {
        SetOnce(&burn->die_erasing, fault.value);
    } else {
        SetOnce(&burn->die_programming, fault.value);
    }
}

// Adds one fault to what happens.
void Add(const Fault& fault, Strike* strike) {
    const int error = static_cast<int>(fault.value);
    strike->faults += 1;
    switch (fault.action) {
        case Action::Fail:
            return SetOnce(&strike->result, error);
        case Action::FailAfter:
            return SetOnce(&strike->late_result, error);
        case Action::Nak:
            return SetOnce(&strike->result, NO_ANSWER);
        case Action::Restart:
            return SetUpset(strike, Upset::Restart, fault.offset);
        case Action::PowerLoss:
            return SetUpset(strike, Upset::PowerLoss, fault.offset);
        case Action::NeverGrant:
            return SetOnce(&strike->result, NEVER_RETURNS);
        case Action::LoseUnlock:
        case Action::DeadLine:
            return SetOnce(&strike->result, 0);
        case Action::RefuseSegment:
            return SetTreatment(strike, Treatment::Refuse);
        case Action::ForgetSegment:
            return SetTreatment(strike, Treatment::Forget);
        case Action::NeverReady:
            return SetOnce(&strike->start_up, Duration::max());
        case Action::SlowStart:
            return SetOnce<Duration>(&strike->start_up, std::chrono::milliseconds(fault.value));
        case Action::RejectImage:
        case Action::VerifyFails:
        case Action::DieErasing:
        case Action::DieProgramming:
            return AddToBurn(fault, &strike->burn);
        case Action::Busy:
            // The burn was held before the poll came.
        case Action::FlipBit:
        case Action::SetByte:
        case Action::CountByte:
        case Action::LengthField:
        case Action::AllZero:
        case Action::AllOnes:
        case Action::PreviousReply:
        case Action::OtherReply:
        case Action::WrongChecksum:
        case Action::StatusByte:
        case Action::ProgramStatus:
            // ChangeReply does these.
            return;
    }
}

}  // namespace

bool FaultScript::HitsEvent(const Fault& fault, Event event) const {
    return fault.event == event && Covers(fault, Counted(event));
}

bool FaultScript::HitsLastWrite(const Fault& fault) const {
    const std::optional<Event> kind = EventOf(asked_);
    return HitsEvent(fault, Event::Write) || (kind && HitsEvent(fault, *kind));
}

bool FaultScript::HitsLastRead(const Fault& fault) const {
    const bool of_write = fault.on_reply || ChangesReply(fault.action);
    return HitsEvent(fault, Event::Read) || (of_write && HitsLastWrite(fault));
}

Strike FaultScript::At(Event event) {
    Count(event);
    Strike strike;
    for (const Fault& fault : faults_) {
        if (HitsEvent(fault, event)) {
            Add(fault, &strike);
        }
    }
    hits_ += strike.faults;
    return strike;
}

Strike FaultScript::OnWrite(Request request) {
    asked_ = request;
    Count(Event::Write);
    if (const std::optional<Event> kind = EventOf(request)) {
        Count(*kind);
    }
    Strike strike;
    for (const Fault& fault : faults_) {
        if (!fault.on_reply && !ChangesReply(fault.action) && HitsLastWrite(fault)) {
            Add(fault, &strike);
        }
    }
    hits_ += strike.faults;
    return strike;
}

Strike FaultScript::OnRead() {
    Count(Event::Read);
    Strike strike;
    for (const Fault& fault : faults_) {
        if (!ChangesReply(fault.action) && HitsLastRead(fault)) {
            Add(fault, &strike);
        }
    }
    hits_ += strike.faults;
    return strike;
}

Strike FaultScript::OnLine(bool high) {
    return At(high ? Event::Raise : Event::Reset);
}

Strike FaultScript::OnLock() {
    return At(Event::Lock);
}

Strike FaultScript::OnUnlock() {
    return At(Event::Unlock);
}

BurnPlan FaultScript::NextBurn() const {
    Strike strike;
    for (const Fault& fault : faults_) {
        if (fault.event == Event::Burn && Covers(fault, Counted(Event::Burn) + 1)) {
            Add(fault, &strike);
        }
    }
    return strike.burn;
}

void FaultScript::OnBurn() {
    At(Event::Burn);
}

bool FaultScript::HoldsNextPoll() const {
    return std::any_of(faults_.begin(), faults_.end(), [this](const Fault& fault) {
        return fault.event == Event::Poll && fault.action == Action::Busy &&
               Covers(fault, Counted(Event::Poll) + 1);
    });
}

bool FaultScript::ChangeReply(std::uint8_t* bytes) {
    ReadBytes sent;
    std::copy_n(bytes, READ_SIZE, sent.begin());
    bool changed = false;
    for (const Fault& fault : faults_) {
        if (ChangesReply(fault.action) && HitsLastRead(fault)) {
            hits_ += 1;
            changed = true;
            MakeReply(fault, last_read_, bytes);
        }
    }
    last_read_ = sent;
    return changed;
}

}  // namespace sim
