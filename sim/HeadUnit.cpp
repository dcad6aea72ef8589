// SPDX-License-Identifier: Apache-2.0
#include "sim/HeadUnit.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace sim {

namespace {

constexpr std::uint8_t IDLE_BUS = 0xFF;

}  // namespace

HeadUnit::HeadUnit(ChipConfig config, std::vector<Fault> faults)
    : chip_(std::move(config)), script_(std::move(faults)) {
    PlanBurn();
}

Report HeadUnit::GetReport() const {
    Report report;
    report.resets = pulses_;
    report.messages = messages_;
    report.reads = reads_;
    report.segments = chip_.Segments();
    report.burns = chip_.Burns();
    report.polls = script_.Counted(Event::Poll);
    report.faults = script_.Hits();
    report.locked = locked_;
    report.image_size = chip_.Memory().ImageSize();
    report.version = chip_.Version();
    report.flash = chip_.Memory().IsKnown() ? &chip_.Flash() : nullptr;
    return report;
}

void HeadUnit::Advance(Duration time) {
    now_ += time;
    chip_.Elapse(time);
    TellOfFlash();
}

void HeadUnit::SwitchOff() {
    chip_.LosePower();
    TellOfFlash();
}

int HeadUnit::Lock() {
    const Strike strike = script_.OnLock();
    if (strike.result) {
        return *strike.result;
    }
    Apply(strike.upset);
    locked_ = true;
    return 0;
}

int HeadUnit::Unlock() {
    const Strike strike = script_.OnUnlock();
    if (strike.result) {
        return *strike.result;
    }
    Apply(strike.upset);
    locked_ = false;
    return 0;
}

int HeadUnit::WriteReset(const char* text, std::size_t size) {
    if (size == 0 || (text[0] != '0' && text[0] != '1')) {
        return EINVAL;
    }
    const bool high = text[0] == '1';
    const Strike strike = script_.OnLine(high);
    if (!strike.result) {
        if (strike.start_up) {
            chip_.SetNextStart(*strike.start_up);
        }
        Apply(strike.upset);
        pulses_ += high && !line_high_ ? 1 : 0;
        line_high_ = high;
        chip_.SetReset(high);
        TellOfFlash();
    }
    for (Observer* const observer : observers_) {
        observer->OnReset(line_high_, now_);
    }
    return strike.result.value_or(0);
}

int HeadUnit::Send(unsigned address7, const std::uint8_t* bytes, std::size_t size) {
    Transfer transfer;
    transfer.start = now_;
    transfer.direction = Direction::Write;
    transfer.address = address7;
    transfer.bytes = bytes;
    transfer.size = size;
    transfer.result = NO_ANSWER;
    if (address7 == CHIP_ADDRESS) {
        const WrittenMessage message(bytes, size);
        const Strike strike = script_.OnWrite(message.request);
        transfer.request = message.request;
        SendToChip(strike, message, &transfer);
        PlanBurn();
    }
    Finish(&transfer);
    return transfer.result;
}

// A message that breaks off is none.
void HeadUnit::BreakOff(const Strike& strike, std::size_t at, Transfer* transfer) {
    Apply(strike.upset);
    transfer->acknowledged = at > 0;
    transfer->moved = at;
    transfer->result = at > 0 ? EIO : NO_ANSWER;
}

void HeadUnit::SendToChip(const Strike& strike, const WrittenMessage& message, Transfer* transfer) {
    transfer->faulty = strike.faults > 0;
    if (strike.result) {
        transfer->result = *strike.result;
        return;
    }
    if (strike.BreaksOff(message.size)) {
        return BreakOff(strike, strike.offset, transfer);
    }
    PassOverWire(transfer);
    if (chip_.Write(message, strike.treatment)) {
        messages_ += 1;
        transfer->result = strike.late_result.value_or(0);
    }
    Apply(strike.upset);
}

// The chip has the message when its last byte has gone over the wire. One that hangs meanwhile, in
// the burn, acknowledges no further byte.
void HeadUnit::PassOverWire(Transfer* transfer) {
    transfer->acknowledged = chip_.Answers();
    const Duration end = now_ + WireTime(transfer->size, bus_hz_);
    while (chip_.Answers() && now_ < end) {
        Advance(std::min(end - now_, chip_.UntilNextPhase().value_or(end - now_)));
    }
    if (chip_.Answers()) {
        transfer->moved = transfer->size;
    } else if (transfer->acknowledged) {
        transfer->moved = WholeBytes(now_ - transfer->start, bus_hz_);
        transfer->result = EIO;
    }
}

int HeadUnit::Receive(unsigned address7, std::uint8_t* bytes, std::size_t size) {
    Transfer transfer;
    transfer.start = now_;
    transfer.direction = Direction::Read;
    transfer.address = address7;
    transfer.bytes = bytes;
    transfer.size = size;
    transfer.result = NO_ANSWER;
    if (address7 == CHIP_ADDRESS) {
        const Strike strike = script_.OnRead();
        transfer.request = script_.Asked();
        transfer.faulty = strike.faults > 0;
        ReceiveFromChip(strike, bytes, &transfer);
        if (transfer.acknowledged && size == READ_SIZE && script_.ChangeReply(bytes)) {
            transfer.faulty = true;
        }
    }
    Finish(&transfer);
    return transfer.result;
}

void HeadUnit::ReceiveFromChip(const Strike& strike, std::uint8_t* bytes, Transfer* transfer) {
    if (strike.result) {
        transfer->result = *strike.result;
        return;
    }
    if (strike.upset != Upset::None && strike.offset == 0) {
        return BreakOff(strike, 0, transfer);
    }
    transfer->acknowledged = chip_.Read(bytes, transfer->size);
    if (!transfer->acknowledged) {
        return;
    }
    reads_ += 1;
    transfer->moved = transfer->size;
    transfer->result = strike.late_result.value_or(0);
    if (strike.upset != Upset::None) {
        // Nobody notices a sender that falls silent: the rest of the read is the idle bus.
        const std::size_t sent = std::min(strike.offset, transfer->size);
        std::fill(bytes + sent, bytes + transfer->size, IDLE_BUS);
        Apply(strike.upset);
    }
}

void HeadUnit::Apply(Upset upset) {
    switch (upset) {
        case Upset::None:
            return;
        case Upset::Restart:
            chip_.Restart();
            break;
        case Upset::PowerLoss:
            chip_.LosePower();
            break;
    }
    TellOfFlash();
}

// Tells the chip what is to go wrong with its next burn, and holds the running one where it is
// while the coming poll is to find it there.
void HeadUnit::PlanBurn() {
    if (chip_.Burns() != script_.Counted(Event::Burn)) {
        script_.OnBurn();
    }
    chip_.SetNextBurn(script_.NextBurn());
    chip_.SetFrozen(script_.HoldsNextPoll());
}

void HeadUnit::Finish(Transfer* transfer) {
    transfer->end = std::max(now_, transfer->start + WireTime(transfer->moved, bus_hz_));
    Advance(transfer->end - now_);
    for (Observer* const observer : observers_) {
        observer->OnTransfer(*transfer);
    }
}

void HeadUnit::TellOfFlash() {
    const unsigned changes = chip_.Memory().FlashChanges();
    if (changes == flash_changes_) {
        return;
    }
    flash_changes_ = changes;
    for (Observer* const observer : observers_) {
        observer->OnFlash(chip_.Flash());
    }
}

}  // namespace sim
