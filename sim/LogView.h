// SPDX-License-Identifier: Apache-2.0
// Tells people what goes over the bus: one line a transfer.
#ifndef SIM_LOG_VIEW_H
#define SIM_LOG_VIEW_H

#include <functional>
#include <string>

#include "sim/Observer.h"

namespace sim {

class LogView : public Observer {
  public:
    // `print` gets each line, without a newline.
    explicit LogView(std::function<void(const std::string& line)> print)
        : print_(std::move(print)) {}

    void OnTransfer(const Transfer& transfer) override;
    void OnReset(bool high, Duration at) override;

  private:
    std::function<void(const std::string& line)> print_;
};

// A transfer in words: direction, command by name, segment, payload in brief, verdict. Segments are
// counted from 1, as faults count them.
std::string TransferText(const Transfer& transfer);

}  // namespace sim

#endif
