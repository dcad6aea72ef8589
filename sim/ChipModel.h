// SPDX-License-Identifier: Apache-2.0
// The baseband processor: bytes written to it, bytes read from it, the level of its reset line, its
// power, and time that passes. It knows no descriptor and no clock of its own.
#ifndef SIM_CHIP_MODEL_H
#define SIM_CHIP_MODEL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/LogicalMessage.h"
#include "sim/WireTime.h"

namespace sim {

// What a chip reports whose flash holds no complete firmware: its loader is all that runs.
extern const char LOADER_VERSION[];

// How long the chip takes for a new image, once it has all of it.
struct BurnTimes {
    Duration erase = std::chrono::seconds(4);
    Duration program = std::chrono::seconds(8);
    Duration verify = std::chrono::seconds(3);
};

struct ChipConfig {
    // What the chip reports while `flash` is empty: a firmware whose bytes nobody knows.
    std::string installed = "1.0.0";
    // What it reports after programming; what the image's label stands for if not set.
    std::optional<std::string> reports;
    BurnTimes burn;
    std::vector<std::uint8_t> flash;
    Duration start_up = std::chrono::milliseconds(1200);  // from reset to the first answer
    Duration response = std::chrono::microseconds(400);   // from a request to its reply
};

// What goes wrong with one burn.
struct BurnPlan {
    bool reject_image = false;
    bool verify_fails = false;
    std::optional<unsigned> die_erasing;      // per cent of the erase
    std::optional<unsigned> die_programming;  // per cent of the programming
};

// What becomes of one segment that the chip has received soundly.
enum class Treatment { Take, Refuse, Forget };

class ChipModel {
  public:
    explicit ChipModel(ChipConfig config);

    // A write to the chip's address. False: not acknowledged. Whatever the bytes are, the chip
    // stays in one piece and says in its reply what it made of them.
    bool Write(const std::uint8_t* bytes, std::size_t size, Treatment treatment = Treatment::Take);

    // A read from the chip's address. False: not acknowledged. Without a reply, or before it is
    // ready, the count byte is 0. A reply stays readable until the next write; one that is longer
    // than a read comes in pieces, and then once more from its beginning.
    bool Read(std::uint8_t* bytes, std::size_t size);

    // The reset line: the chip is held in reset while it is low.
    void SetReset(bool high);

    // The chip restarts as if the line had been pulsed, or is without power for good.
    void Restart();
    void LosePower();

    void Elapse(Duration time);

    // Whether it acknowledges its address.
    bool Answers() const;

    // For faults: the next start takes this long, the next burn goes so, the burn stands still.
    void SetNextStart(Duration start_up) { next_start_ = start_up; }
    void SetNextBurn(const BurnPlan& plan) { next_plan_ = plan; }
    void SetFrozen(bool frozen) { frozen_ = frozen; }

    // The version that it reports, what its flash holds (until a burn ends or is interrupted: what
    // it held before) and its programming status.
    const std::string& Version() const { return version_; }
    const std::vector<std::uint8_t>& Flash() const { return flash_; }
    std::uint8_t Status() const;

    // Since it was switched on.
    unsigned Burns() const { return burns_; }        // downloads that came to their last segment
    unsigned Segments() const { return segments_; }  // taken, of all downloads
    unsigned FlashChanges() const {
        return flash_changes_;
    }                                                      // how often Flash() has become another
    std::size_t ImageSize() const { return image_size_; }  // bytes of the last complete download

  private:
    enum class Phase { Idle, Erasing, Programming, Verifying, Complete, Failed };

    void Stop();
    void Start();
    void Boot();

    bool Burning() const;
    std::optional<unsigned> DeathInPhase() const;
    Duration PhaseLength() const;
    Duration PhaseEnd() const;
    void EndPhase();
    void InterruptBurn();
    void EraseFrontPart();
    void ProgramFrontPart();
    void Invalidate();

    std::uint8_t Check(const std::uint8_t* bytes, std::size_t size);
    std::uint8_t CheckCounter(std::uint8_t count);
    std::uint8_t Perform(const std::uint8_t* bytes, std::size_t size, Treatment treatment);
    bool TakeSegment(const std::uint8_t* bytes, std::size_t size, Treatment treatment);
    bool Expects(unsigned segment, unsigned total, std::size_t payload) const;
    void StartBurn();
    void Reply(const std::uint8_t* request, std::size_t size, std::uint8_t status);
    void Append(std::uint8_t byte) { reply_[reply_size_++] = byte; }
    void AppendPayload(Request request);

    ChipConfig config_;
    bool powered_ = true;
    bool line_high_ = true;
    bool hung_ = false;
    Duration until_started_{0};
    std::optional<Duration> next_start_;

    std::vector<std::uint8_t> flash_;
    bool bootable_ = true;
    bool programmed_ = false;  // since it was switched on
    std::string version_;

    std::uint8_t expected_count_ = 0;
    bool unprotected_ = false;

    bool downloading_ = false;
    unsigned total_segments_ = 0;
    unsigned next_segment_ = 0;
    bool complete_ = true;  // no segment of the download was forgotten
    std::vector<std::uint8_t> image_;

    Phase phase_ = Phase::Idle;
    Duration in_phase_{0};
    bool frozen_ = false;
    BurnPlan plan_;
    BurnPlan next_plan_;

    std::array<std::uint8_t, 512> reply_{};
    std::size_t reply_size_ = 0;
    std::size_t reply_read_ = 0;
    Duration until_reply_{0};

    unsigned burns_ = 0;
    unsigned segments_ = 0;
    unsigned flash_changes_ = 0;
    std::size_t image_size_ = 0;
};

}  // namespace sim

#endif
