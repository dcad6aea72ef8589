// SPDX-License-Identifier: Apache-2.0
#ifndef SIM_VCD_WRITER_H
#define SIM_VCD_WRITER_H

#include <string>
#include <vector>

#include "sim/Observer.h"
#include "sim/OutputStream.h"

namespace sim {

// Writes the waveform of the bus and the reset line, wires SDA, SCL and RESET, as a value change
// dump, timescale 1 ns: what a logic analyser would have seen.
//
// A waveform is large (0.65 MB for a full segment), so only some transfers are written, and time in
// which nothing happens is shortened; comments at the file's end say where, and how long it was.
class VcdWriter : public Observer {
  public:
    struct Window {
        unsigned first = 1;   // the first transfer that is written, counted from 1
        unsigned count = 20;  // how many are
    };

    // Creates or replaces the file `path`. The bits are drawn for a bus of `bus_hz` bits per
    // second, more than 0. Throws common::Failure when the file cannot be written.
    VcdWriter(const std::string& path, int bus_hz, Window window);

    void OnTransfer(const Transfer& transfer) override;
    void OnReset(bool high, Duration at) override;

    // Writes what is pending and closes the file. Throws common::Failure when not all of the
    // waveform could be written. Nothing may follow.
    void Close();

  private:
    enum Wire { SDA, SCL, RESET };

    // A pause that was shortened: where it ends in the file, and how long it was.
    struct Pause {
        Duration end;
        Duration length;
    };

    // Goes on to the moment `at` of the head unit, or sooner where nothing happens.
    void MoveTo(Duration at);
    void Set(Duration after, Wire wire, bool level);
    void DrawByte(std::uint8_t byte, bool acknowledged);
    void DrawBit(bool level);

    OutputStream file_;
    Duration bit_;
    Window window_;
    unsigned transfers_ = 0;
    Duration at_{0};    // of the head unit
    Duration time_{0};  // in the file
    std::vector<Pause> shortened_;
    bool levels_[3] = {true, true, true};
};

}  // namespace sim

#endif
