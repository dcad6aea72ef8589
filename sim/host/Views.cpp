// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Views.h"

#include <cstdio>

#include "sim/LogView.h"
#include "sim/OutputStream.h"
#include "sim/PcapWriter.h"
#include "sim/VcdWriter.h"

namespace sim {

Views::Views(const Options& options) {
    if (options.log) {
        observers_.push_back(std::make_shared<LogView>(
            [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); }));
    }
    if (!options.log_file.empty()) {
        OpenLog(options.log_file);
    }
    if (!options.pcap.empty()) {
        const Duration epoch = std::chrono::system_clock::now().time_since_epoch();
        Keep(std::make_shared<PcapWriter>(options.pcap, epoch));
    }
    if (!options.vcd.empty()) {
        Keep(std::make_shared<VcdWriter>(options.vcd, options.bus_hz, options.vcd_window));
    }
}

void Views::OpenLog(const std::string& path) {
    const auto stream = std::make_shared<OutputStream>(path, "the log");
    observers_.push_back(std::make_shared<LogView>([stream](const std::string& line) {
        stream->Write(line + "\n");
        stream->Flush();
    }));
    closings_.emplace_back([stream] { stream->Close(); });
}

template <typename Writer>
void Views::Keep(std::shared_ptr<Writer> writer) {
    observers_.push_back(writer);
    closings_.emplace_back([writer] { writer->Close(); });
}

std::vector<Observer*> Views::Observers() const {
    std::vector<Observer*> all;
    for (const std::shared_ptr<Observer>& observer : observers_) {
        all.push_back(observer.get());
    }
    return all;
}

}  // namespace sim
