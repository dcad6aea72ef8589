// SPDX-License-Identifier: Apache-2.0
#ifndef SIM_PCAP_WRITER_H
#define SIM_PCAP_WRITER_H

#include <memory>
#include <string>
#include <vector>

#include "sim/Observer.h"
#include "sim/OutputStream.h"

struct pcap;
struct pcap_dumper;

namespace sim {

// Writes every transfer to a capture that Wireshark reads: link type I2C_LINUX, one frame each with
// its start as its time to the nanosecond. A transfer that the chip does not acknowledge is its
// address byte alone. The reset line is not in it.
class PcapWriter : public Observer {
  public:
    // Creates or replaces the file `path`. `epoch` is the calendar time of the head unit's start,
    // since 1970. Throws common::Failure when the file cannot be written.
    explicit PcapWriter(const std::string& path, Duration epoch = Duration::zero());

    void OnTransfer(const Transfer& transfer) override;

    // Writes what is pending and closes the file. Throws common::Failure when not all of the
    // capture could be written. Nothing may follow.
    void Close();

  private:
    struct CloseCapture {
        void operator()(pcap* capture) const;
    };

    Duration epoch_;
    OutputStream file_;
    std::unique_ptr<pcap, CloseCapture> capture_;
    pcap_dumper* dumper_;  // is the file
    std::vector<std::uint8_t> frame_;
};

}  // namespace sim

#endif
