// SPDX-License-Identifier: Apache-2.0
// The chip's flash, and how a new image gets into it: erase, programming, verification, and what is
// left when one of them is cut short.
#ifndef SIM_BURN_H
#define SIM_BURN_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "sim/LogicalMessage.h"
#include "sim/WireTime.h"

namespace sim {

using FlashBytes = std::vector<std::uint8_t>;

// How long the chip takes for a new image, once it has all of it.
struct BurnTimes {
    Duration erase = std::chrono::seconds(4);
    Duration program = std::chrono::seconds(8);
    Duration verify = std::chrono::seconds(3);
};

// What goes wrong with one burn.
struct BurnPlan {
    bool reject_image = false;
    bool verify_fails = false;
    std::optional<unsigned> die_erasing;      // per cent of the erase
    std::optional<unsigned> die_programming;  // per cent of the programming
};

class Burn {
  public:
    // Without a flash it holds a firmware whose bytes nobody knows.
    Burn(const BurnTimes& times, std::optional<FlashBytes> flash);

    // A new burn. An image that is not sound is refused, and nothing is erased.
    void Begin(FlashBytes image, bool sound, const BurnPlan& plan);

    // Leaves in the flash what was done to it so far. The status is idle then.
    void Interrupt();

    // The status is idle again.
    void Forget() { phase_ = Phase::Idle; }

    // Time passes. False: the chip has died of it, and the burn was interrupted.
    bool Elapse(Duration time);

    // The time until the burn gets into another phase; nothing if it does not by itself.
    std::optional<Duration> UntilNextPhase() const;

    // While it is frozen, time does nothing to it.
    void SetFrozen(bool frozen) { frozen_ = frozen; }

    bool IsRunning() const;
    ProgramStatus Status() const;

    // What the flash holds: until a burn ends or is interrupted, what it held before. Empty while
    // nobody knows.
    const FlashBytes& Flash() const { return flash_; }
    bool IsKnown() const { return is_known_; }
    bool IsBootable() const { return is_bootable_; }       // it holds a complete firmware
    bool WasProgrammed() const { return programmed_; }     // since it was switched on
    unsigned FlashChanges() const { return changes_; }     // how often Flash() became another
    std::size_t ImageSize() const { return image_size_; }  // bytes of the last image

  private:
    enum class Phase { Idle, Erasing, Programming, Verifying, Complete, Failed };

    std::optional<unsigned> DeathInPhase() const;
    Duration PhaseLength() const;
    Duration PhaseEnd() const;
    bool EndPhase();
    void EraseFrontPart();
    void ProgramFrontPart();
    void Invalidate();
    void Replace(FlashBytes flash);

    const BurnTimes times_;
    FlashBytes flash_;
    bool is_known_;
    bool is_bootable_;
    bool programmed_ = false;
    unsigned changes_ = 0;

    FlashBytes image_;
    std::size_t image_size_ = 0;
    BurnPlan plan_;
    Phase phase_ = Phase::Idle;
    Duration in_phase_{0};
    bool frozen_ = false;
};

}  // namespace sim

#endif
