// SPDX-License-Identifier: Apache-2.0
#include "sim/HeadUnit.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "sim/ReplyFault.h"

namespace sim {

namespace {

constexpr int NO_ANSWER = ENXIO;  // nobody acknowledged the address
constexpr std::uint8_t IDLE_BUS = 0xFF;

}  // namespace

HeadUnit::HeadUnit(ChipConfig config, std::vector<Fault> faults)
    : chip_(std::move(config)), faults_(std::move(faults)) {
    PlanBurn();
    PlanPoll();
}

Report HeadUnit::GetReport() const {
    Report report;
    report.resets = pulses_;
    report.messages = messages_;
    report.reads = reads_;
    report.segments = chip_.Segments();
    report.burns = chip_.Burns();
    report.polls = Counted(Event::Poll);
    report.faults = hits_;
    report.locked = locked_;
    report.image_size = chip_.ImageSize();
    report.version = chip_.Version();
    report.flash = &chip_.Flash();
    return report;
}

void HeadUnit::Advance(Duration time) {
    now_ += time;
    chip_.Elapse(time);
}

int HeadUnit::Lock() {
    Count(Event::Lock) += 1;
    if (const Fault* fault = FindAt(Event::Lock)) {
        hits_ += 1;
        if (fault->action == Action::Fail) {
            return static_cast<int>(fault->value);
        }
        if (fault->action == Action::NeverGrant) {
            return NEVER_RETURNS;
        }
        Strike(*fault);
    }
    locked_ = true;
    return 0;
}

int HeadUnit::Unlock() {
    Count(Event::Unlock) += 1;
    if (const Fault* fault = FindAt(Event::Unlock)) {
        hits_ += 1;
        if (fault->action == Action::Fail) {
            return static_cast<int>(fault->value);
        }
        if (fault->action == Action::LoseUnlock) {
            return 0;
        }
        Strike(*fault);
    }
    locked_ = false;
    return 0;
}

int HeadUnit::WriteReset(const char* text, std::size_t size) {
    if (size == 0 || (text[0] != '0' && text[0] != '1')) {
        return EINVAL;
    }
    const bool high = text[0] == '1';
    const int result = SetLine(high ? Event::Raise : Event::Reset, high);
    for (TransferObserver* const observer : observers_) {
        observer->OnReset(line_high_, now_);
    }
    return result;
}

int HeadUnit::SetLine(Event event, bool high) {
    Count(event) += 1;
    if (const Fault* fault = FindAt(event)) {
        hits_ += 1;
        switch (fault->action) {
            case Action::Fail:
                return static_cast<int>(fault->value);
            case Action::DeadLine:
                return 0;
            case Action::NeverReady:
                chip_.SetNextStart(Duration::max());
                break;
            case Action::SlowStart:
                chip_.SetNextStart(std::chrono::milliseconds(fault->value));
                break;
            default:
                Strike(*fault);
                break;
        }
    }
    if (high && !line_high_) {
        pulses_ += 1;
    }
    line_high_ = high;
    chip_.SetReset(high);
    return 0;
}

HeadUnit::Kind HeadUnit::CountKind(Request request) {
    Kind kind;
    switch (request) {
        case Request::Segment:
            kind.event = Event::Segment;
            break;
        case Request::Poll:
            kind.event = Event::Poll;
            break;
        case Request::Version:
            kind.event = Event::Version;
            break;
        case Request::Unprotect:
            kind.event = Event::Unprotect;
            break;
        default:
            return kind;
    }
    kind.ordinal = Count(*kind.event) += 1;
    return kind;
}

bool HeadUnit::HitsLastWrite(const Fault& fault) const {
    if (fault.event == Event::Write) {
        return Covers(fault, Counted(Event::Write));
    }
    return last_kind_.event == fault.event && Covers(fault, last_kind_.ordinal);
}

const Fault* HeadUnit::FindAt(Event event) const {
    for (const Fault& fault : faults_) {
        if (fault.event == event && Covers(fault, Counted(event))) {
            return &fault;
        }
    }
    return nullptr;
}

const Fault* HeadUnit::FindForWrite() const {
    for (const Fault& fault : faults_) {
        if (!fault.on_reply && !ChangesReply(fault.action) && HitsLastWrite(fault)) {
            return &fault;
        }
    }
    return nullptr;
}

const Fault* HeadUnit::FindForRead() const {
    for (const Fault& fault : faults_) {
        const bool this_read = fault.event == Event::Read && Covers(fault, Counted(Event::Read));
        const bool this_reply = fault.on_reply && HitsLastWrite(fault);
        if (!ChangesReply(fault.action) && (this_read || this_reply)) {
            return &fault;
        }
    }
    return nullptr;
}

int HeadUnit::Send(unsigned address7, const std::uint8_t* bytes, std::size_t size) {
    Transfer transfer{now_, now_, Direction::Write, address7, bytes, size, 0, false, 0, false};
    if (address7 != CHIP_ADDRESS) {
        transfer.result = NO_ANSWER;
        Finish(transfer);
        return transfer.result;
    }
    Count(Event::Write) += 1;
    last_kind_ = CountKind(Classify(bytes, size));
    if (const Fault* const fault = FindForWrite()) {
        hits_ += 1;
        transfer.faulty = true;
        SendWith(*fault, bytes, transfer);
    } else {
        transfer.acknowledged = WriteToChip(bytes, size, Treatment::Take);
        transfer.moved = transfer.acknowledged ? size : 0;
        transfer.result = transfer.acknowledged ? 0 : NO_ANSWER;
    }
    Finish(transfer);
    PlanBurn();
    PlanPoll();
    return transfer.result;
}

// A write that a fault happens to.
void HeadUnit::SendWith(const Fault& fault, const std::uint8_t* bytes, Transfer& transfer) {
    transfer.moved = transfer.size;
    switch (fault.action) {
        case Action::Nak:
            transfer.moved = 0;
            transfer.result = NO_ANSWER;
            return;
        case Action::Fail:
            transfer.moved = 0;
            transfer.result = static_cast<int>(fault.value);
            return;
        case Action::Restart:
        case Action::PowerLoss:
            if (fault.offset < transfer.size) {
                // A message that breaks off is none.
                Strike(fault);
                transfer.acknowledged = fault.offset > 0;
                transfer.moved = fault.offset;
                transfer.result = fault.offset > 0 ? EIO : NO_ANSWER;
                return;
            }
            break;
        default:
            break;
    }
    Treatment treatment = Treatment::Take;
    if (fault.action == Action::RefuseSegment) {
        treatment = Treatment::Refuse;
    } else if (fault.action == Action::ForgetSegment) {
        treatment = Treatment::Forget;
    }
    transfer.acknowledged = WriteToChip(bytes, transfer.size, treatment);
    if (!transfer.acknowledged) {
        transfer.moved = 0;
        transfer.result = NO_ANSWER;
    } else if (fault.action == Action::FailAfter) {
        transfer.result = static_cast<int>(fault.value);
    }
    if (fault.action == Action::Restart || fault.action == Action::PowerLoss) {
        Strike(fault);
    }
}

bool HeadUnit::WriteToChip(const std::uint8_t* bytes, std::size_t size, Treatment treatment) {
    if (!chip_.Answers()) {
        return false;
    }
    // The chip has the message when its last byte has gone over the wire.
    Advance(WireTime(size, bus_hz_));
    messages_ += 1;
    return chip_.Write(bytes, size, treatment);
}

int HeadUnit::Receive(unsigned address7, std::uint8_t* bytes, std::size_t size) {
    Transfer transfer{now_, now_, Direction::Read, address7, bytes, size, 0, false, 0, false};
    if (address7 != CHIP_ADDRESS) {
        transfer.result = NO_ANSWER;
        Finish(transfer);
        return transfer.result;
    }
    Count(Event::Read) += 1;
    if (const Fault* const fault = FindForRead()) {
        hits_ += 1;
        transfer.faulty = true;
        ReceiveWith(*fault, bytes, transfer);
    } else {
        transfer.acknowledged = ReadFromChip(bytes, size);
        transfer.moved = transfer.acknowledged ? size : 0;
        transfer.result = transfer.acknowledged ? 0 : NO_ANSWER;
    }
    if (transfer.acknowledged && ChangeReply(bytes, size)) {
        transfer.faulty = true;
    }
    Finish(transfer);
    return transfer.result;
}

// A read that a fault happens to, other than to its bytes.
void HeadUnit::ReceiveWith(const Fault& fault, std::uint8_t* bytes, Transfer& transfer) {
    if (fault.action == Action::Nak || fault.action == Action::Fail) {
        transfer.result = fault.action == Action::Nak ? NO_ANSWER : static_cast<int>(fault.value);
        return;
    }
    const bool strikes = fault.action == Action::Restart || fault.action == Action::PowerLoss;
    if (strikes && fault.offset == 0) {
        Strike(fault);
        transfer.result = NO_ANSWER;
        return;
    }
    transfer.acknowledged = ReadFromChip(bytes, transfer.size);
    if (!transfer.acknowledged) {
        transfer.result = NO_ANSWER;
        return;
    }
    transfer.moved = transfer.size;
    if (fault.action == Action::FailAfter) {
        transfer.result = static_cast<int>(fault.value);
    }
    if (strikes) {
        // Nobody notices a sender that falls silent: the rest of the read is the idle bus.
        const std::size_t sent = std::min(fault.offset, transfer.size);
        std::fill(bytes + sent, bytes + transfer.size, IDLE_BUS);
        Strike(fault);
    }
}

bool HeadUnit::ReadFromChip(std::uint8_t* bytes, std::size_t size) {
    const bool acknowledged = chip_.Read(bytes, size);
    reads_ += acknowledged ? 1 : 0;
    return acknowledged;
}

void HeadUnit::Strike(const Fault& fault) {
    if (fault.action == Action::Restart) {
        chip_.Restart();
    } else if (fault.action == Action::PowerLoss) {
        chip_.LosePower();
    }
}

// Does to a reply what the faults say. True if one of them did something.
bool HeadUnit::ChangeReply(std::uint8_t* bytes, std::size_t size) {
    std::array<std::uint8_t, READ_SIZE> sent{};
    std::copy_n(bytes, std::min(size, READ_SIZE), sent.begin());
    bool changed = false;
    for (const Fault& fault : faults_) {
        const bool this_read = fault.event == Event::Read && Covers(fault, Counted(Event::Read));
        if (ChangesReply(fault.action) && size == READ_SIZE &&
            (this_read || HitsLastWrite(fault))) {
            hits_ += 1;
            changed = true;
            MakeReply(fault, last_read_, bytes);
        }
    }
    last_read_ = sent;
    return changed;
}

void HeadUnit::PlanBurn() {
    BurnPlan plan;
    for (const Fault& fault : faults_) {
        if (fault.event != Event::Burn || !Covers(fault, chip_.Burns() + 1)) {
            continue;
        }
        switch (fault.action) {
            case Action::RejectImage:
                plan.reject_image = true;
                break;
            case Action::VerifyFails:
                plan.verify_fails = true;
                break;
            case Action::DieErasing:
                plan.die_erasing = fault.value;
                break;
            case Action::DieProgramming:
                plan.die_programming = fault.value;
                break;
            default:
                break;
        }
    }
    chip_.SetNextBurn(plan);
}

// Holds the burn where it is while the coming poll is to find it there.
void HeadUnit::PlanPoll() {
    bool busy = false;
    for (const Fault& fault : faults_) {
        if (fault.event == Event::Poll && fault.action == Action::Busy &&
            Covers(fault, Counted(Event::Poll) + 1)) {
            busy = true;
        }
    }
    chip_.SetFrozen(busy);
}

void HeadUnit::Finish(Transfer& transfer) {
    transfer.end = transfer.start + WireTime(transfer.moved, bus_hz_);
    Advance(transfer.end - now_);
    for (TransferObserver* const observer : observers_) {
        observer->OnTransfer(transfer);
    }
}

}  // namespace sim
