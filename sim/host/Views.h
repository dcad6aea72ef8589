// SPDX-License-Identifier: Apache-2.0
// What a person can see of a head unit's bus: logs, captures, a waveform.
#ifndef SIM_HOST_VIEWS_H
#define SIM_HOST_VIEWS_H

#include <functional>
#include <memory>
#include <vector>

#include "sim/Observer.h"
#include "sim/host/Options.h"

namespace sim {

class Views {
  public:
    // Opens what the options name. Throws common::Failure if a file cannot be written.
    explicit Views(const Options& options);

    // All of them; they are this object's.
    std::vector<Observer*> Observers() const;

    // What completes each file; it throws common::Failure if the file could not be written whole.
    // To be called when nothing more is to be seen.
    const std::vector<std::function<void()>>& Closings() const { return closings_; }

  private:
    void OpenLog(const std::string& path);
    template <typename Writer>
    void Keep(std::shared_ptr<Writer> writer);

    std::vector<std::shared_ptr<Observer>> observers_;
    std::vector<std::function<void()>> closings_;
};

}  // namespace sim

#endif
