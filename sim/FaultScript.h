// SPDX-License-Identifier: Apache-2.0
// Which fault strikes what: counts a head unit's events and says what goes wrong with each.
#ifndef SIM_FAULT_SCRIPT_H
#define SIM_FAULT_SCRIPT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "sim/Burn.h"
#include "sim/ChipModel.h"
#include "sim/Fault.h"
#include "sim/LogicalMessage.h"
#include "sim/ReplyFault.h"
#include "sim/WireTime.h"

namespace sim {

// What Lock() returns when the caller would wait for ever: no errno value.
constexpr int NEVER_RETURNS = -1;

// What the caller gets whose address nobody acknowledged, an errno value.
extern const int NO_ANSWER;

// What happens to the chip's run.
enum class Upset { None, Restart, PowerLoss };

// What all faults together do to one event. Each of them has its effect; where two of them set the
// same thing, the first in the list does.
struct Strike {
    unsigned faults = 0;             // how many there are
    std::optional<int> result;       // the caller's at once: the chip sees nothing of the event
    std::optional<int> late_result;  // the caller's, though the chip has seen it
    Upset upset = Upset::None;       // of the chip, at byte `offset` of a transfer
    std::size_t offset = 0;
    Treatment treatment = Treatment::Take;  // of a segment
    std::optional<Duration> start_up;       // how long the chip's next start takes
    BurnPlan burn;

    // The chip is upset inside a transfer of `size` bytes, or before it.
    bool BreaksOff(std::size_t size) const { return upset != Upset::None && offset < size; }
};

class FaultScript {
  public:
    explicit FaultScript(std::vector<Fault> faults) : faults_(std::move(faults)) {}

    // An event has come: it is counted, and this is what happens to it.
    Strike OnWrite(Request request);
    Strike OnRead();
    Strike OnLine(bool high);
    Strike OnLock();
    Strike OnUnlock();

    // What is to happen to the burn that comes next, and that it has come.
    BurnPlan NextBurn() const;
    void OnBurn();

    // Whether the burn is to stand still until the next poll.
    bool HoldsNextPoll() const;

    // Does to the READ_SIZE bytes of the read that has come what the faults say. True if one did.
    bool ChangeReply(std::uint8_t* bytes);

    // The request of the last write.
    Request Asked() const { return asked_; }

    // How many events of the kind there were, and how often a fault happened.
    unsigned Counted(Event event) const { return counts_[static_cast<std::size_t>(event)]; }
    unsigned Hits() const { return hits_; }

  private:
    void Count(Event event) { counts_[static_cast<std::size_t>(event)] += 1; }
    bool HitsEvent(const Fault& fault, Event event) const;
    bool HitsLastWrite(const Fault& fault) const;
    bool HitsLastRead(const Fault& fault) const;
    Strike At(Event event);

    std::vector<Fault> faults_;
    std::array<unsigned, EVENTS> counts_{};
    Request asked_ = Request::None;
    ReadBytes last_read_{};  // as the chip sent it
    unsigned hits_ = 0;
};

}  // namespace sim

#endif
