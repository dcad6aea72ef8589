// SPDX-License-Identifier: Apache-2.0
// What can go wrong in a head unit, as data: at which event, what happens, and how often.
#ifndef SIM_FAULT_H
#define SIM_FAULT_H

#include <cstddef>
#include <cstdint>
#include <limits>

namespace sim {

// What is counted, from 1, since the head unit was switched on.
enum class Event {
    Write,      // a transfer to the chip
    Read,       // a transfer from it
    Segment,    // the write of a download's segment
    Poll,       // the write of a programming status query
    Version,    // the write of a version query
    Unprotect,  // the write that lifts the flash's protection
    Burn,       // the last segment of a download has come
    Reset,      // the reset line is lowered
    Raise,      // the reset line is raised
    Lock,
    Unlock
};
constexpr std::size_t EVENTS = static_cast<std::size_t>(Event::Unlock) + 1;

enum class Action {
    // The transfer, the lock or the write to the reset line itself.
    Fail,        // fails with the errno `value`; the chip sees nothing of it
    FailAfter,   // the chip sees it all, and then it fails with the errno `value`
    Nak,         // the chip does not acknowledge its address
    Restart,     // the chip restarts by itself at byte `offset`
    PowerLoss,   // the chip is without power from byte `offset` on, for good
    NeverGrant,  // Lock: nobody ever gets it
    LoseUnlock,  // Unlock: reports success, and the lock stays held
    DeadLine,    // Reset, Raise: reports success, and the line keeps its level

    // The reply, from FIRST_OF_REPLY to LAST_OF_REPLY.
    FlipBit,        // bit `value` (0..7) of the read's byte `offset`
    SetByte,        // the read's byte `offset` becomes `value`, with a right checksum
    CountByte,      // the count byte becomes `value`
    LengthField,    // the length field becomes `value`
    AllZero,        // every byte of the read is 0x00
    AllOnes,        // every byte of the read is 0xFF
    PreviousReply,  // what was read before comes once more
    OtherReply,     // the reply to another command
    WrongChecksum,
    StatusByte,     // the reception status becomes `value`, with a right checksum
    ProgramStatus,  // the programming status becomes `value`, with a right checksum

    // The chip.
    RefuseSegment,   // Segment: does not take it and says so
    ForgetSegment,   // Segment: says that it has it, and has not
    Busy,            // Poll: has come no further than at the poll before
    RejectImage,     // Burn: the received image fails its check, nothing is erased
    DieErasing,      // Burn: hangs after `value` per cent of the erase, until its next reset
    DieProgramming,  // Burn: likewise, of the programming
    VerifyFails,     // Burn: what was programmed reads back differently
    NeverReady,      // Reset: never comes up after it
    SlowStart        // Reset: takes `value` milliseconds to come up after it
};

constexpr Action FIRST_OF_REPLY = Action::FlipBit;
constexpr Action LAST_OF_REPLY = Action::ProgramStatus;
constexpr std::size_t ACTIONS = static_cast<std::size_t>(Action::SlowStart) + 1;

constexpr std::size_t AFTER_THE_TRANSFER = std::numeric_limits<std::size_t>::max();
constexpr unsigned FOR_EVER = std::numeric_limits<unsigned>::max();

struct Fault {
    Event event = Event::Write;
    unsigned nth = 1;  // the first one that it happens to
    Action action = Action::Nak;
    unsigned value = 0;      // as the action says
    std::size_t offset = 0;  // a byte's position: 0 is a read's count byte or a write's first byte
    unsigned times = 1;      // how many in a row, FOR_EVER for from there on
    // A transfer action on Write, Segment, Poll, Version or Unprotect happens to that write; with
    // this set, to the read of its reply. The reply's actions always mean the reply.
    bool on_reply = false;
};

// Whether the action changes a reply's bytes.
bool ChangesReply(Action action);

// Whether the fault happens to the k-th of its events.
bool Covers(const Fault& fault, unsigned k);

}  // namespace sim

#endif
