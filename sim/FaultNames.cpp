// SPDX-License-Identifier: Apache-2.0
#include "sim/FaultNames.h"

namespace sim {

constexpr std::array<EventName, EVENTS> EVENT_NAMES = {{{"write", Event::Write},
                                                        {"read", Event::Read},
                                                        {"segment", Event::Segment},
                                                        {"poll", Event::Poll},
                                                        {"version", Event::Version},
                                                        {"unprotect", Event::Unprotect},
                                                        {"burn", Event::Burn},
                                                        {"reset", Event::Reset},
                                                        {"raise", Event::Raise},
                                                        {"lock", Event::Lock},
                                                        {"unlock", Event::Unlock}}};

constexpr std::array<ActionName, ACTIONS> ACTION_NAMES = {
    {{"fail", Action::Fail, Argument::Errno, TRANSFERS | RESET_LINE | LOCKS},
     {"fail-after", Action::FailAfter, Argument::Errno, TRANSFERS},
     {"nak", Action::Nak, Argument::None, TRANSFERS},
     {"restart", Action::Restart, Argument::Position, TRANSFERS | RESET_LINE | LOCKS},
     {"power-loss", Action::PowerLoss, Argument::Position, TRANSFERS | RESET_LINE | LOCKS},
     {"never-grant", Action::NeverGrant, Argument::None, Only(Event::Lock)},
     {"lose-unlock", Action::LoseUnlock, Argument::None, Only(Event::Unlock)},
     {"dead-line", Action::DeadLine, Argument::None, RESET_LINE},
     {"flip", Action::FlipBit, Argument::Bit, TRANSFERS},
     {"set", Action::SetByte, Argument::Assignment, TRANSFERS},
     {"count", Action::CountByte, Argument::Byte, TRANSFERS},
     {"length", Action::LengthField, Argument::Word, TRANSFERS},
     {"zeros", Action::AllZero, Argument::None, TRANSFERS},
     {"ones", Action::AllOnes, Argument::None, TRANSFERS},
     {"previous", Action::PreviousReply, Argument::None, TRANSFERS},
     {"other", Action::OtherReply, Argument::None, TRANSFERS},
     {"bad-checksum", Action::WrongChecksum, Argument::None, TRANSFERS},
     {"status", Action::StatusByte, Argument::Byte, TRANSFERS},
     {"programming-status", Action::ProgramStatus, Argument::Byte, STATUS_REPLIES},
     {"refuse", Action::RefuseSegment, Argument::None, Only(Event::Segment)},
     {"forget", Action::ForgetSegment, Argument::None, Only(Event::Segment)},
     {"busy", Action::Busy, Argument::None, Only(Event::Poll)},
     {"reject", Action::RejectImage, Argument::None, Only(Event::Burn)},
     {"die-erasing", Action::DieErasing, Argument::Percentage, Only(Event::Burn)},
     {"die-programming", Action::DieProgramming, Argument::Percentage, Only(Event::Burn)},
     {"verify-fails", Action::VerifyFails, Argument::None, Only(Event::Burn)},
     {"never-ready", Action::NeverReady, Argument::None, Only(Event::Reset)},
     {"slow-start", Action::SlowStart, Argument::Milliseconds, Only(Event::Reset)}}};

namespace {

// Each event and each action has its line, at its own place.
constexpr bool AreComplete() {
    for (std::size_t i = 0; i < EVENTS; ++i) {
        if (EVENT_NAMES[i].event != static_cast<Event>(i)) {
            return false;
        }
    }
    for (std::size_t i = 0; i < ACTIONS; ++i) {
        if (ACTION_NAMES[i].action != static_cast<Action>(i)) {
            return false;
        }
    }
    return true;
}
static_assert(AreComplete(), "the tables follow the enumerations");

}  // namespace

}  // namespace sim
