// SPDX-License-Identifier: Apache-2.0
// What the chip and its replies can do wrong.
#include "tests/fault/Catalogue.h"
#include "tests/fault/CatalogueParts.h"

namespace fault {

namespace {

using sim::Action;
using sim::Event;

}  // namespace

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

}  // namespace fault
