// SPDX-License-Identifier: Apache-2.0
#include "tests/fault/Catalogue.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <set>

namespace fault {

namespace {

using sim::Action;
using sim::Event;
using virt::CallKind;
using virt::Strike;
using How = Strike::How;

constexpr int FOR_EVER = -1;
constexpr int BUS_ERRORS[] = {EIO, ETIMEDOUT, ENXIO, EBUSY, EINTR, EPERM};
constexpr unsigned READ = 65;  // bytes

bool IsBus(CallKind kind) {
    return kind == CallKind::Lock || kind == CallKind::Unlock || kind == CallKind::Send ||
           kind == CallKind::Receive || kind == CallKind::SetSpeed;
}

bool IsMemory(CallKind kind) {
    return kind == CallKind::Memalign || kind == CallKind::NewObject ||
           kind == CallKind::NewStorage;
}

bool IsFile(CallKind kind) {
    return kind == CallKind::Fopen || kind == CallKind::Fseek || kind == CallKind::Ftell ||
           kind == CallKind::Fread;
}

Strike Make(How how, int error = 0, long value = 0) {
    Strike strike;
    strike.how = how;
    strike.error = error;
    strike.value = value;
    return strike;
}

CallFault At(const Catalogue::Place& place, const Strike& strike, int times = 1) {
    return CallFault{place.kind, place.index, strike, times, FileAction::None, 0};
}

sim::Fault Unit(Event event, unsigned nth, Action action, unsigned value = 0,
                std::size_t offset = 0, unsigned times = 1) {
    sim::Fault fault;
    fault.event = event;
    fault.nth = nth;
    fault.action = action;
    fault.value = value;
    fault.offset = offset;
    fault.times = times;
    return fault;
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
        default:
            return IsMemory(place.kind)
                       ? Make(How::Fail, ENOMEM)
                       : Make(How::Fail, BUS_ERRORS[static_cast<std::size_t>(place.index) %
                                                    std::size(BUS_ERRORS)]);
    }
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

void Catalogue::ForEachReplyFault(const Visit& visit) const {
    for (unsigned nth = 1; nth <= reads_; ++nth) {
        for (const unsigned times : {1U, sim::FOR_EVER}) {
            const auto change = [&](Action action, unsigned value = 0, std::size_t offset = 0) {
                visit(Injection::Of(Kind::Reply,
                                    Unit(Event::Read, nth, action, value, offset, times)));
            };
            for (const Action action : {Action::AllZero, Action::AllOnes, Action::PreviousReply,
                                        Action::OtherReply, Action::WrongChecksum}) {
                change(action);
            }
            for (unsigned bit = 0; bit < 8 * READ; ++bit) {
                change(Action::FlipBit, bit % 8, bit / 8);
            }
            for (unsigned value = 0; value < 256; ++value) {
                change(Action::CountByte, value);
                change(Action::StatusByte, value);
                change(Action::ProgramStatus, value);
            }
            for (unsigned value = 0; value < 80; ++value) {
                change(Action::LengthField, value);
            }
            for (unsigned value = 80; value < 65536; value += 251) {
                change(Action::LengthField, value);
            }
            // Without a length there is no sum: any count that ends on a zero is sound but for its
            // size.
            for (unsigned value = 0; value < 256; ++value) {
                Injection both = Injection::Pair(
                    Injection::Of(Kind::Reply,
                                  Unit(Event::Read, nth, Action::CountByte, value, 0, times)),
                    Injection::Of(Kind::Reply,
                                  Unit(Event::Read, nth, Action::LengthField, 0, 0, times)));
                both.kind = Kind::Reply;
                visit(both);
            }
            for (std::size_t offset = 1; offset < 30; ++offset) {
                for (const unsigned value : {0x00U, 0x01U, 0x20U, 0x5AU, 0xFFU}) {
                    change(Action::SetByte, value, offset);
                }
            }
        }
    }
}

void Catalogue::ForEachChipFault(const Visit& visit) const {
    ForEachTransferCut(visit);
    ForEachBurnFault(visit);
    const auto happen = [&](const sim::Fault& fault) { visit(Injection::Of(Kind::Chip, fault)); };
    for (const unsigned times : {1U, 2U, sim::FOR_EVER}) {
        for (unsigned nth = 1; nth <= segments_; ++nth) {
            happen(Unit(Event::Segment, nth, Action::RefuseSegment, 0, 0, times));
            happen(Unit(Event::Segment, nth, Action::ForgetSegment, 0, 0, times));
        }
        for (unsigned nth = 1; nth <= resets_; ++nth) {
            happen(Unit(Event::Reset, nth, Action::NeverReady, 0, 0, times));
            happen(Unit(Event::Reset, nth, Action::DeadLine, 0, 0, times));
            happen(Unit(Event::Raise, nth, Action::DeadLine, 0, 0, times));
            for (const unsigned start : {0U, 1300U, 2999U, 3000U, 3001U, 3006U, 3400U, 9000U}) {
                happen(Unit(Event::Reset, nth, Action::SlowStart, start, 0, times));
            }
        }
    }
    for (unsigned nth = 1; nth <= polls_; ++nth) {
        for (const unsigned times : {1U, 2U, 3U, 7U, 12U, sim::FOR_EVER}) {
            happen(Unit(Event::Poll, nth, Action::Busy, 0, 0, times));
        }
    }
}

// The chip restarts, or its power goes, before, inside and after each transfer.
void Catalogue::ForEachTransferCut(const Visit& visit) const {
    const auto cut = [&](Event event, unsigned nth, std::size_t offset) {
        for (const Action action : {Action::Restart, Action::PowerLoss}) {
            visit(Injection::Of(Kind::Chip, Unit(event, nth, action, 0, offset)));
        }
    };
    for (unsigned nth = 1; nth <= writes_.size(); ++nth) {
        const std::size_t size = writes_[nth - 1];
        const std::size_t step = size <= 128 ? 1 : 61;
        for (std::size_t offset = 0; offset < size; offset += offset < 16 ? 1 : step) {
            cut(Event::Write, nth, offset);
        }
        cut(Event::Write, nth, sim::AFTER_THE_TRANSFER);
    }
    for (unsigned nth = 1; nth <= reads_; ++nth) {
        for (std::size_t offset = 0; offset < READ; ++offset) {
            cut(Event::Read, nth, offset);
        }
        cut(Event::Read, nth, sim::AFTER_THE_TRANSFER);
    }
}

void Catalogue::ForEachBurnFault(const Visit& visit) const {
    for (unsigned nth = 1; nth <= burns_; ++nth) {
        for (const unsigned times : {1U, sim::FOR_EVER}) {
            const auto happen = [&](Action action, unsigned value) {
                visit(Injection::Of(Kind::Chip, Unit(Event::Burn, nth, action, value, 0, times)));
            };
            happen(Action::RejectImage, 0);
            happen(Action::VerifyFails, 0);
            for (unsigned per_cent = 0; per_cent <= 100; ++per_cent) {
                happen(Action::DieErasing, per_cent);
                happen(Action::DieProgramming, per_cent);
            }
        }
    }
}

void Catalogue::ForEachFileFault(const Visit& visit) const {
    const auto happen = [&](const CallFault& fault) { visit(Injection::Of(Kind::File, fault)); };
    std::vector<long> lengths = {0,        1,         2033,      2034,      26843545,
                                 26843546, 133363723, 133363724, 2147483647};
    for (const long long length : {2147483648, 4294967295, 4294967306, 9223372036854775807}) {
        if (length <= std::numeric_limits<long>::max()) {
            lengths.push_back(static_cast<long>(length));
        }
    }
    for (const Place& place : places_) {
        const auto fail = [&](const Strike& strike) {
            for (const int times : {1, 2, FOR_EVER}) {
                happen(At(place, strike, times));
            }
        };
        if (place.kind == CallKind::Fopen || place.kind == CallKind::Fseek ||
            place.kind == CallKind::Ftell) {
            for (const int error : {EACCES, ENOENT, EIO, EMFILE, ENOMEM}) {
                fail(Make(How::Fail, error));
            }
        }
        if (place.kind == CallKind::Ftell) {
            for (const long length : lengths) {
                fail(Make(How::Value, 0, length));
            }
        } else if (place.kind == CallKind::Fread) {
            for (const long limit :
                 std::set<long>{0, 1, 13, place.size / 2, std::max(0L, place.size - 1)}) {
                fail(Make(How::Limit, EIO, limit));
            }
        }
        // The file changes, or the disk goes bad, just before any call after its first opening.
        if (IsFile(place.kind) || place.kind == CallKind::Send || place.kind == CallKind::Receive) {
            std::set<long> sizes;
            std::set<long> offsets;
            for (const long change : {-5000, -2035, -100, -1, 1, 13, 2034, 2035, 5000}) {
                sizes.insert(std::max(0L, image_size_ + change));
            }
            for (long eighth = 0; eighth < 8; ++eighth) {
                offsets.insert(image_size_ * eighth / 8);
            }
            for (const long size : sizes) {
                happen({place.kind, place.index, {}, 1, FileAction::Resize, size});
            }
            for (const long offset : offsets) {
                happen({place.kind, place.index, {}, 1, FileAction::UnreadableFrom, offset});
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
            default:
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
