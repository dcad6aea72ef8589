// SPDX-License-Identifier: Apache-2.0
#include "tests/fault/Catalogue.h"

#include <algorithm>
#include <cerrno>
#include <set>

#include "tests/fault/CatalogueParts.h"

namespace fault {

namespace {

using sim::Action;
using sim::Event;
using virt::CallKind;
using virt::Strike;
using How = Strike::How;

constexpr int BUS_ERRORS[] = {EIO, ETIMEDOUT, ENXIO, EBUSY, EINTR, EPERM};

bool IsBus(CallKind kind) {
    return kind == CallKind::Lock || kind == CallKind::Unlock || kind == CallKind::Send ||
           kind == CallKind::Receive || kind == CallKind::SetSpeed;
}

bool IsMemory(CallKind kind) {
    return kind == CallKind::Memalign || kind == CallKind::NewObject ||
           kind == CallKind::NewStorage;
}

// The plainest way in which a call fails.
Strike Plain(const Catalogue::Place& place) {
    switch (place.kind) {
        case CallKind::Output:
            return Make(How::Fail, ENOSPC);
        case CallKind::Delay:
            return Make(How::Value, 0, 1);
        case CallKind::Usleep:
            return Make(How::Fail, EINTR);
        case CallKind::Fopen:
        case CallKind::Open:
            return Make(How::Fail, EACCES);
        case CallKind::Memalign:
        case CallKind::NewObject:
        case CallKind::NewStorage:
            return Make(How::Fail, ENOMEM);
        case CallKind::SetSpeed:
        case CallKind::Lock:
        case CallKind::Unlock:
        case CallKind::Send:
        case CallKind::Receive:
        case CallKind::WriteReset:
        case CallKind::Fseek:
        case CallKind::Ftell:
        case CallKind::Fread:
        case CallKind::Log:
            break;
    }
    return Make(How::Fail,
                BUS_ERRORS[static_cast<std::size_t>(place.index) % std::size(BUS_ERRORS)]);
}

Kind KindOf(CallKind kind) {
    return IsBus(kind)                ? Kind::Bus
           : IsMemory(kind)           ? Kind::Memory
           : IsFile(kind)             ? Kind::File
           : kind == CallKind::Output ? Kind::Output
                                      : Kind::Line;
}

}  // namespace

Catalogue::Catalogue(const Scenario& scenario)
    : image_size_(static_cast<long>(scenario.Image().size())) {
    virt::VirtualHeadUnit unit(scenario.Chip());
    scenario.PutFiles(unit.files);
    unit.SetTimeLimit(scenario.TimeLimit());
    unit.Run(scenario.Arguments());
    int index = 0;
    for (const virt::Call& call : unit.Log().Calls()) {
        places_.push_back(
            {call.kind, index++, static_cast<long>(call.argument), static_cast<long>(call.size)});
        if (call.kind == CallKind::Send) {
            writes_.push_back(call.size);
        }
    }
    const sim::Report report = unit.Unit().GetReport();
    reads_ = report.reads;
    segments_ = report.segments;
    polls_ = report.polls;
    resets_ = report.resets;
    burns_ = report.burns;
}

void Catalogue::ForEach(Kind kind, const Visit& visit) const {
    switch (kind) {
        case Kind::Bus:
            return ForEachBusFault(visit);
        case Kind::Reply:
            return ForEachReplyFault(visit);
        case Kind::Chip:
            return ForEachChipFault(visit);
        case Kind::File:
            return ForEachFileFault(visit);
        case Kind::Memory:
            return ForEachMemoryFault(visit);
        case Kind::Output:
            return ForEachOutputFault(visit);
        case Kind::Line:
            return ForEachLineFault(visit);
        case Kind::Pair:
            return ForEachPair(visit);
    }
}

void Catalogue::ForEachCallOnce(const Visit& visit) const {
    for (const Place& place : places_) {
        for (const int times : {1, FOR_EVER}) {
            visit(Injection::Of(KindOf(place.kind), At(place, Plain(place), times)));
        }
    }
}

void Catalogue::ForEachBusFault(const Visit& visit) const {
    for (const Place& place : places_) {
        if (!IsBus(place.kind)) {
            continue;
        }
        for (const int error : BUS_ERRORS) {
            for (const How how : {How::Fail, How::After}) {
                for (const int times : {1, 2, 5, FOR_EVER}) {
                    visit(Injection::Of(Kind::Bus, At(place, Make(how, error), times)));
                }
            }
        }
        if (place.kind == CallKind::Lock) {
            visit(Injection::Of(Kind::Bus, At(place, Make(How::Block))));
        } else {
            // Reported as done, and not done.
            for (const int times : {1, FOR_EVER}) {
                visit(Injection::Of(Kind::Bus, At(place, Make(How::Value), times)));
            }
        }
    }
}

void Catalogue::ForEachMemoryFault(const Visit& visit) const {
    for (const Place& place : places_) {
        if (IsMemory(place.kind)) {
            for (const int times : {1, 2, 3, FOR_EVER}) {
                visit(Injection::Of(Kind::Memory, At(place, Make(How::Fail, ENOMEM), times)));
            }
        }
    }
}

void Catalogue::ForEachOutputFault(const Visit& visit) const {
    for (const Place& place : places_) {
        if (place.kind != CallKind::Output) {
            continue;
        }
        for (const long taken : std::set<long>{0, 1, place.size / 2, place.size - 1}) {
            visit(Injection::Of(Kind::Output, At(place, Make(How::Limit, EPIPE, taken))));
            for (const int error : {ENOSPC, EIO, EFBIG}) {
                for (const int times : {1, 2, 3, FOR_EVER}) {
                    visit(Injection::Of(Kind::Output,
                                        At(place, Make(How::Limit, error, taken), times)));
                }
            }
        }
    }
}

void Catalogue::ForEachLineFault(const Visit& visit) const {
    for (const Place& place : places_) {
        const auto happen = [&](const Strike& strike) {
            for (const int times : {1, 2, FOR_EVER}) {
                visit(Injection::Of(Kind::Line, At(place, strike, times)));
            }
        };
        switch (place.kind) {
            case CallKind::Open:
                for (const int error : {EACCES, ENOENT, EBUSY, EMFILE, EINTR}) {
                    happen(Make(How::Fail, error));
                }
                happen(Make(How::Value, 0, 0));
                break;
            case CallKind::WriteReset:
                for (const int error : {EIO, EPERM, EAGAIN}) {
                    happen(Make(How::Fail, error));
                    happen(Make(How::After, error));
                }
                happen(Make(How::Value, 0, 0));
                break;
            case CallKind::Delay:
                for (const long left : std::set<long>{1, 2, place.argument / 2, place.argument}) {
                    happen(Make(How::Value, 0, left));
                }
                break;
            case CallKind::Usleep:
                happen(Make(How::Fail, EINTR));
                break;
            case CallKind::Log:
                happen(Make(How::Fail, EIO));
                break;
            // What the other visits are about.
            case CallKind::SetSpeed:
            case CallKind::Lock:
            case CallKind::Unlock:
            case CallKind::Send:
            case CallKind::Receive:
            case CallKind::Memalign:
            case CallKind::NewObject:
            case CallKind::NewStorage:
            case CallKind::Fopen:
            case CallKind::Fseek:
            case CallKind::Ftell:
            case CallKind::Fread:
            case CallKind::Output:
                break;
        }
    }
}

// One of each sort for the second place of a pair: they meet what the first has left.
std::vector<Injection> Catalogue::Typical() const {
    std::vector<Injection> typical;
    const auto add = [&](const sim::Fault& fault) {
        typical.push_back(Injection::Of(Kind::Chip, fault));
    };
    for (unsigned nth = 1; nth <= reads_; ++nth) {
        add(Unit(Event::Read, nth, Action::WrongChecksum));
        add(Unit(Event::Read, nth, Action::PreviousReply));
        add(Unit(Event::Read, nth, Action::StatusByte, 0x03));
        add(Unit(Event::Read, nth, Action::Restart, 0, sim::AFTER_THE_TRANSFER));
    }
    for (unsigned nth = 1; nth <= writes_.size(); ++nth) {
        add(Unit(Event::Write, nth, Action::Restart, 0, 7));
        add(Unit(Event::Write, nth, Action::PowerLoss, 0, sim::AFTER_THE_TRANSFER));
    }
    for (unsigned nth = 1; nth <= polls_; ++nth) {
        add(Unit(Event::Poll, nth, Action::Busy, 0, 0, 3));
    }
    add(Unit(Event::Burn, 1, Action::VerifyFails));
    add(Unit(Event::Burn, 1, Action::DieErasing, 50));
    add(Unit(Event::Reset, 2, Action::SlowStart, 3003));
    return typical;
}

void Catalogue::ForEachPair(const Visit& visit) const {
    const std::vector<Injection> typical = Typical();
    // Of a long run's many calls, some hundred stand for all.
    const std::size_t step = places_.size() / 700 + 1;
    for (std::size_t i = 0; i < places_.size(); i += step) {
        const Place& first = places_[i];
        const Injection one = Injection::Of(KindOf(first.kind), At(first, Plain(first)));
        for (std::size_t j = i + 1; j < places_.size(); j += step) {
            const Place& second = places_[j];
            visit(Injection::Pair(one,
                                  Injection::Of(KindOf(second.kind), At(second, Plain(second)))));
        }
        for (const Injection& other : typical) {
            visit(Injection::Pair(one, other));
        }
    }
}

}  // namespace fault
