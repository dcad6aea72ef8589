// SPDX-License-Identifier: Apache-2.0
// What a person can see of a head unit's bus: logs, captures, a waveform.
#ifndef SIM_HOST_VIEWS_H
#define SIM_HOST_VIEWS_H

#include <fstream>
#include <optional>

#include "sim/HeadUnit.h"
#include "sim/LogView.h"
#include "sim/PcapWriter.h"
#include "sim/VcdWriter.h"
#include "sim/host/Options.h"

namespace sim {

class Views {
  public:
    // Opens what the options name and lets it watch the head unit, which must not outlive this
    // object's observers' last call. Throws std::runtime_error if a file cannot be written.
    Views(const Options& options, HeadUnit& unit);

    // Completes the files. Throws std::runtime_error if one could not be written whole.
    void Close();

  private:
    std::optional<LogView> log_;
    std::ofstream log_stream_;
    std::optional<LogView> log_file_;
    std::optional<PcapWriter> pcap_;
    std::optional<VcdWriter> vcd_;
    std::string log_path_;
};

}  // namespace sim

#endif
