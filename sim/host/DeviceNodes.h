// SPDX-License-Identifier: Apache-2.0
// The device nodes of a head unit, /dev/i2c1 and /dev/gpio/HD_DAB2Reset, for the processes that are
// started in their environment. They need no privilege and nothing of the kernel.
#ifndef SIM_HOST_DEVICE_NODES_H
#define SIM_HOST_DEVICE_NODES_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace sim {

// What is behind the nodes. The calls come from threads of the nodes', one at a time. Results are 0
// or an errno value.
class DeviceHandler {
  public:
    virtual ~DeviceHandler() = default;
    virtual int WriteBus(unsigned address7, const std::uint8_t* bytes, std::size_t size) = 0;
    virtual int ReadBus(unsigned address7, std::uint8_t* bytes, std::size_t size) = 0;
    virtual int WriteReset(const char* text, std::size_t size) = 0;
};

class DeviceNodes {
  public:
    // Keeps what they need on disk in `folder`. The handler is not owned and must outlive the
    // nodes. Throws common::Failure.
    DeviceNodes(const std::string& folder, DeviceHandler& handler);
    ~DeviceNodes();

    // No call reaches the handler any more.
    void Shut();

    DeviceNodes(const DeviceNodes&) = delete;
    DeviceNodes& operator=(const DeviceNodes&) = delete;

    // The folder of the nodes themselves.
    const std::string& Folder() const { return folder_; }

    // The file that stands for the bus: who locks it, locks the bus.
    std::string BusFile() const;

  private:
    struct Testbed;
    std::unique_ptr<Testbed> testbed_;
    std::string folder_;
};

// The library that shows the nodes to a process that is started with it in LD_PRELOAD, and the
// variable that tells it the nodes' folder.
extern const char PRELOADED_LIBRARY[];
extern const char FOLDER_VARIABLE[];

}  // namespace sim

#endif
