// SPDX-License-Identifier: Apache-2.0
// The device nodes with devices behind them that only remember.
#ifndef TESTS_UNIT_SIM_DEVICENODESFIXTURE_H
#define TESTS_UNIT_SIM_DEVICENODESFIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sim/host/DeviceNodes.h"
#include "tests/tools/TemporaryFolder.h"
#include "tests/unit/sim/NodeClient.h"

namespace sim {

// Remembers what is written, and reads the same byte as often as it is asked to.
struct Devices : DeviceHandler {
    std::vector<std::string> written;
    std::string levels;
    std::uint8_t byte = 'r';
    int read_error = 0;
    Clock::time_point release;
    // How long after a level is set something happens; zero: nothing does.
    std::chrono::milliseconds until_event{0};
    std::promise<void> time_was_kept;
    // The next level that a program sets is not taken before this happens.
    std::future<void> hold;
    std::promise<void> is_held;

    int WriteBus(unsigned, const std::uint8_t* bytes, std::size_t size) override {
        written.emplace_back(reinterpret_cast<const char*>(bytes), size);
        return 0;
    }
    int ReadBus(unsigned, std::uint8_t* bytes, std::size_t size) override {
        std::fill_n(bytes, size, byte);
        return read_error;
    }
    int WriteReset(const char* text, std::size_t size) override {
        levels.append(text, size);
        if (const std::future<void> held = std::move(hold); held.valid()) {
            is_held.set_value();
            held.wait();
        }
        if (until_event > std::chrono::milliseconds(0)) {
            event_ = Clock::now() + until_event;
        }
        return 0;
    }
    Clock::time_point Release() const override { return release; }
    std::optional<Clock::time_point> NextEvent() const override { return event_; }
    void KeepTime() override {
        if (event_ && *event_ <= Clock::now()) {
            event_.reset();
            time_was_kept.set_value();
        }
    }

  private:
    std::optional<Clock::time_point> event_;
};

// Whether it does while somebody would wait for it.
inline bool Happens(std::promise<void>* promise) {
    return promise->get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

class SimNodes : public ::testing::Test {
  protected:
    NodeClient Open(const char* socket) const { return NodeClient(folder_.Path("") + socket); }

    TemporaryFolder folder_;
    Devices devices_;
    std::promise<void> failed_;
    DeviceNodes nodes_{folder_.Path(""), devices_, [this] { failed_.set_value(); }};
    NodeClient bus_ = Open("/ioctl/dev/i2c1");
    NodeClient reset_ = Open("/ioctl/dev/gpio/HD_DAB2Reset");
};

}  // namespace sim

#endif
