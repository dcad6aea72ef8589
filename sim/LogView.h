// SPDX-License-Identifier: Apache-2.0
// Tells people what goes over the bus: one line a transfer.
#ifndef SIM_LOG_VIEW_H
#define SIM_LOG_VIEW_H

#include <functional>
#include <string>

#include "sim/HeadUnit.h"
#include "sim/LogicalMessage.h"

namespace sim {

class LogView : public TransferObserver {
  public:
    // `print` gets each line, without a newline.
    explicit LogView(std::function<void(const std::string& line)> print)
        : print_(std::move(print)) {}

    void OnTransfer(const Transfer& transfer) override;
    void OnReset(bool high, Duration at) override;

  private:
    std::function<void(const std::string& line)> print_;
    Request asked_ = Request::None;
};

// A transfer in words: direction, command by name, segment, payload in brief, verdict. Segments are
// counted from 1, as faults count them. `asked` is what the last message asked for: a reply does
// not say it.
std::string TransferText(const Transfer& transfer, Request asked);

}  // namespace sim

#endif
