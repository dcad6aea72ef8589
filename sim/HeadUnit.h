// SPDX-License-Identifier: Apache-2.0
// The chip where it sits: behind an I2C bus and a reset line, with faults, watched by observers, in
// virtual time.
#ifndef SIM_HEAD_UNIT_H
#define SIM_HEAD_UNIT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/ChipModel.h"
#include "sim/Fault.h"
#include "sim/WireTime.h"

namespace sim {

constexpr int BUS_HZ = 400000;

// What Lock() returns when the caller would wait for ever: no errno value.
constexpr int NEVER_RETURNS = -1;

enum class Direction { Write, Read };

// One transfer as it was on the bus. The bytes are valid during the call only: all `size` of a
// write, the first `moved` of a read.
struct Transfer {
    Duration start;
    Duration end;
    Direction direction;
    unsigned address;  // 7-bit
    const std::uint8_t* bytes;
    std::size_t size;   // of the transfer that was asked for
    std::size_t moved;  // bytes that went over the bus
    bool acknowledged;  // the address was
    int result;         // 0 or an errno value
    bool faulty;        // a fault had its hand in it
};

class TransferObserver {
  public:
    virtual ~TransferObserver() = default;
    virtual void OnTransfer(const Transfer& transfer) = 0;
    // The reset line has got this level, or keeps it.
    virtual void OnReset(bool high, Duration at) = 0;
};

// What a head unit has seen since it was switched on.
struct Report {
    unsigned resets = 0;    // pulses that the chip got
    unsigned messages = 0;  // writes that the chip acknowledged
    unsigned reads = 0;     // reads that it acknowledged
    unsigned segments = 0;  // of downloads, taken by the chip
    unsigned burns = 0;     // downloads that came to their last segment
    unsigned polls = 0;
    unsigned faults = 0;                               // how often one happened
    bool locked = false;                               // the bus lock is held
    std::size_t image_size = 0;                        // bytes of the last complete download
    std::string version;                               // what the chip reports
    const std::vector<std::uint8_t>* flash = nullptr;  // the head unit's
};

class HeadUnit {
  public:
    explicit HeadUnit(ChipConfig config, std::vector<Fault> faults = {});

    // Results are 0 or an errno value, as devctl's.
    int Lock();  // or NEVER_RETURNS
    int Unlock();
    int Send(unsigned address7, const std::uint8_t* bytes, std::size_t size);
    // On success all `size` bytes are set, else none.
    int Receive(unsigned address7, std::uint8_t* bytes, std::size_t size);
    // The text's first character is the line's level, '0' or '1'; anything else is EINVAL.
    int WriteReset(const char* text, std::size_t size);

    // Time passes. Transfers advance it by themselves by their WireTime; with a bus of 0 Hz they
    // take none.
    void Advance(Duration time);
    Duration Now() const { return now_; }
    void SetBusHz(int bus_hz) { bus_hz_ = bus_hz; }

    ChipModel& Chip() { return chip_; }
    const ChipModel& Chip() const { return chip_; }
    bool ResetLine() const { return line_high_; }
    Report GetReport() const;

    // Observers are not owned and must outlive the head unit.
    void AddObserver(TransferObserver* observer) { observers_.push_back(observer); }

  private:
    // The event of a write beside Event::Write, if it has one, and which of them it is.
    struct Kind {
        std::optional<Event> event;
        unsigned ordinal = 0;
    };

    unsigned& Count(Event event) { return counts_[static_cast<std::size_t>(event)]; }
    unsigned Counted(Event event) const { return counts_[static_cast<std::size_t>(event)]; }
    Kind CountKind(Request request);

    bool HitsLastWrite(const Fault& fault) const;
    const Fault* FindAt(Event event) const;
    const Fault* FindForWrite() const;
    const Fault* FindForRead() const;

    void SendWith(const Fault& fault, const std::uint8_t* bytes, Transfer& transfer);
    void ReceiveWith(const Fault& fault, std::uint8_t* bytes, Transfer& transfer);
    bool WriteToChip(const std::uint8_t* bytes, std::size_t size, Treatment treatment);
    bool ReadFromChip(std::uint8_t* bytes, std::size_t size);
    void Strike(const Fault& fault);
    bool ChangeReply(std::uint8_t* bytes, std::size_t size);
    int SetLine(Event event, bool high);
    void PlanBurn();
    void PlanPoll();
    void Finish(Transfer& transfer);

    ChipModel chip_;
    std::vector<Fault> faults_;
    std::vector<TransferObserver*> observers_;
    int bus_hz_ = BUS_HZ;
    Duration now_{0};
    bool locked_ = false;
    bool line_high_ = true;

    std::array<unsigned, EVENTS> counts_{};
    Kind last_kind_;
    std::array<std::uint8_t, READ_SIZE> last_read_{};  // as the chip sent it
    unsigned pulses_ = 0;
    unsigned messages_ = 0;
    unsigned reads_ = 0;
    unsigned hits_ = 0;
};

}  // namespace sim

#endif
