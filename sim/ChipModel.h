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

#include "sim/Burn.h"
#include "sim/LogicalMessage.h"
#include "sim/WireTime.h"

namespace sim {

// What a chip reports whose flash holds no complete firmware: its loader is all that runs.
extern const char LOADER_VERSION[];

struct ChipConfig {
    // What the chip reports without `flash`: a firmware whose bytes nobody knows.
    std::string installed = "1.0.0";
    // What it reports after programming; what the image's label stands for if not set.
    std::optional<std::string> reports;
    BurnTimes burn;
    std::optional<FlashBytes> flash;
    Duration start_up = std::chrono::milliseconds(1200);  // from reset to the first answer
    Duration response = std::chrono::microseconds(400);   // from a request to its reply
};

// What becomes of one segment that the chip has received soundly.
enum class Treatment { Take, Refuse, Forget };

class ChipModel {
  public:
    explicit ChipModel(ChipConfig config);

    // A write to the chip's address, classified. False: not acknowledged. Whatever the bytes are,
    // the chip stays in one piece and says in its reply what it made of them.
    bool Write(const WrittenMessage& message, Treatment treatment = Treatment::Take);

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

    // The time until a burn gets into another phase; nothing if it does not by itself.
    std::optional<Duration> UntilNextPhase() const;

    // Whether it acknowledges its address.
    bool Answers() const;

    // For faults: the next start takes this long, the next burn goes so, the burn stands still.
    void SetNextStart(Duration start_up) { next_start_ = start_up; }
    void SetNextBurn(const BurnPlan& plan) { next_plan_ = plan; }
    void SetFrozen(bool frozen) { burn_.SetFrozen(frozen); }

    const std::string& Version() const { return version_; }  // that it reports
    const Burn& Memory() const { return burn_; }
    const FlashBytes& Flash() const { return burn_.Flash(); }

    // Since it was switched on.
    unsigned Burns() const { return burns_; }        // downloads that came to their last segment
    unsigned Segments() const { return segments_; }  // taken, of all downloads

  private:
    // The download that is coming in.
    struct Incoming {
        bool running = false;
        unsigned total = 0;
        unsigned next = 0;
        bool complete = true;  // no segment was forgotten
        FlashBytes image;
    };

    void Stop();
    void Start();
    void Boot();

    std::uint8_t Check(const WrittenMessage& message) const;
    std::uint8_t CheckCounter(std::uint8_t count);
    std::uint8_t Perform(const WrittenMessage& message, Treatment treatment);
    bool TakeSegment(const WrittenMessage& message, Treatment treatment);
    bool Expects(unsigned segment, unsigned total, std::size_t payload) const;
    void StartDownload(unsigned total);
    void StartBurn();
    void Reply(const WrittenMessage& request, std::uint8_t status);
    void Append(std::uint8_t byte) { reply_[reply_size_++] = byte; }
    void AppendPayload(Request request);

    ChipConfig config_;
    bool powered_ = true;
    bool line_high_ = true;
    bool hung_ = false;
    Duration until_started_{0};
    std::optional<Duration> next_start_;
    std::string version_;

    Burn burn_;
    BurnPlan next_plan_;
    Incoming incoming_;
    bool unprotected_ = false;
    std::uint8_t expected_count_ = 0;

    std::array<std::uint8_t, 512> reply_{};
    std::size_t reply_size_ = 0;
    std::size_t reply_read_ = 0;
    Duration until_reply_{0};

    unsigned burns_ = 0;
    unsigned segments_ = 0;
};

}  // namespace sim

#endif
