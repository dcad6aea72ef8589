// SPDX-License-Identifier: Apache-2.0
// A head unit as an updater sees it: the bus with the chip on it, the lock of the bus, the reset
// line. Time passes only as its user says, so updates can be run in no time at all.
#ifndef SIM_HEAD_UNIT_H
#define SIM_HEAD_UNIT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/ChipModel.h"
#include "sim/Fault.h"
#include "sim/FaultScript.h"
#include "sim/Observer.h"
#include "sim/WireTime.h"

namespace sim {

constexpr int BUS_HZ = 400000;

// What a head unit has seen since it was switched on.
struct Report {
    unsigned resets = 0;    // pulses that the chip got
    unsigned messages = 0;  // writes that reached the chip whole
    unsigned reads = 0;     // reads that it acknowledged
    unsigned segments = 0;  // of downloads, taken by the chip
    unsigned burns = 0;     // downloads that came to their last segment
    unsigned polls = 0;
    unsigned faults = 0;                // how often one happened
    bool locked = false;                // the bus lock is held
    std::size_t image_size = 0;         // bytes of the last complete download
    std::string version;                // what the chip reports
    const FlashBytes* flash = nullptr;  // the head unit's; null while nobody knows it
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

    // Whoever leaves switches it off, whatever the chip is doing.
    void SwitchOff();

    ChipModel& Chip() { return chip_; }
    const ChipModel& Chip() const { return chip_; }
    bool ResetLine() const { return line_high_; }
    Report GetReport() const;

    // Observers are not owned and must outlive the head unit.
    void AddObserver(Observer* observer) { observers_.push_back(observer); }

  private:
    void SendToChip(const Strike& strike, const WrittenMessage& message, Transfer* transfer);
    void PassOverWire(Transfer* transfer);
    void ReceiveFromChip(const Strike& strike, std::uint8_t* bytes, Transfer* transfer);
    void BreakOff(const Strike& strike, std::size_t at, Transfer* transfer);
    void Apply(Upset upset);
    void PlanBurn();
    void Finish(Transfer* transfer);
    void TellOfFlash();

    ChipModel chip_;
    FaultScript script_;
    std::vector<Observer*> observers_;
    int bus_hz_ = BUS_HZ;
    Duration now_{0};
    bool locked_ = false;
    bool line_high_ = true;
    unsigned flash_changes_ = 0;

    unsigned pulses_ = 0;
    unsigned messages_ = 0;
    unsigned reads_ = 0;
};

}  // namespace sim

#endif
