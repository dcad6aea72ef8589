// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Views.h"

#include <cstdio>
#include <stdexcept>

namespace sim {

Views::Views(const Options& options, HeadUnit& unit) : log_path_(options.log_file) {
    if (options.log) {
        log_.emplace([](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); });
        unit.AddObserver(&*log_);
    }
    if (!log_path_.empty()) {
        log_stream_.open(log_path_);
        if (!log_stream_) {
            throw std::runtime_error("cannot write " + log_path_);
        }
        log_file_.emplace([this](const std::string& line) { log_stream_ << line << std::endl; });
        unit.AddObserver(&*log_file_);
    }
    if (!options.pcap.empty()) {
        const Duration epoch = std::chrono::system_clock::now().time_since_epoch();
        pcap_.emplace(options.pcap, epoch);
        unit.AddObserver(&*pcap_);
    }
    if (!options.vcd.empty()) {
        vcd_.emplace(options.vcd, options.bus_hz, options.vcd_window);
        unit.AddObserver(&*vcd_);
    }
}

void Views::Close() {
    if (pcap_) {
        pcap_->Close();
    }
    if (vcd_) {
        vcd_->Close();
    }
    if (log_file_) {
        log_stream_.close();
        if (!log_stream_) {
            throw std::runtime_error("cannot write " + log_path_);
        }
    }
}

}  // namespace sim
