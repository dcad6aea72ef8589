// SPDX-License-Identifier: Apache-2.0
#ifndef SIM_HOST_DEVICE_HANDLER_H
#define SIM_HOST_DEVICE_HANDLER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace sim {

// What is behind the device nodes. All calls come from one thread. Results are 0 or an errno value.
class DeviceHandler {
  public:
    using Clock = std::chrono::steady_clock;

    virtual ~DeviceHandler() = default;
    virtual int WriteBus(unsigned address7, const std::uint8_t* bytes, std::size_t size) = 0;
    virtual int ReadBus(unsigned address7, std::uint8_t* bytes, std::size_t size) = 0;
    virtual int WriteReset(const char* text, std::size_t size) = 0;

    // When whoever made the last of these calls is to learn its result.
    virtual Clock::time_point Release() const = 0;

    // When KeepTime() is to be called, even if nobody uses the devices. Nothing: not at all.
    virtual std::optional<Clock::time_point> NextEvent() const = 0;

    // Brings the devices to the present time.
    virtual void KeepTime() = 0;
};

}  // namespace sim

#endif
