// SPDX-License-Identifier: Apache-2.0
#include "sim/host/DeviceNodes.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <umockdev.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "common/Failure.h"
#include "sim/host/Child.h"
#include "sim/host/ResetPipe.h"

namespace sim {

const char PRELOADED_LIBRARY[] = "libumockdev-preload.so.0";
const char FOLDER_VARIABLE[] = "UMOCKDEV_DIR";

namespace {

// A content given with "=" makes a node a plain file, which needs no pseudo-terminal.
const char NODES[] =
    "P: /devices/platform/i2c-1/i2c-dev/i2c1\n"
    "N: i2c1=00\n"
    "E: DEVNAME=/dev/i2c1\n"
    "E: MAJOR=89\n"
    "E: MINOR=1\n"
    "E: SUBSYSTEM=i2c-dev\n"
    "A: dev=89:1\\n\n"
    "\n"
    "P: /devices/platform/gpio/HD_DAB2Reset\n"
    "N: gpio/HD_DAB2Reset=00\n"
    "E: DEVNAME=/dev/gpio/HD_DAB2Reset\n"
    "E: SUBSYSTEM=gpio\n";
const char BUS_NODE[] = "/dev/i2c1";
const char FOLDER_OF_TEMPORARY_FILES[] = "TMPDIR";
const char RESET_NODE[] = "/dev/gpio/HD_DAB2Reset";

// What i2c-dev takes at most.
constexpr unsigned MOST_MESSAGES = 42;
constexpr unsigned LONGEST_I2C_MESSAGE = 8192;

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
using Data = std::unique_ptr<UMockdevIoctlData, Unref>;

// `size` bytes of the client's memory, to which the pointer at `offset` of `data` points. Null if
// the client has no such memory.
Data Resolve(UMockdevIoctlData* data, std::size_t offset, std::size_t size) {
    GError* error = nullptr;
    Data resolved(umockdev_ioctl_data_resolve(data, offset, size, &error));
    g_clear_error(&error);
    return resolved;
}

// Carries out one message of a transfer. Returns 0 or an errno value.
int Carry(DeviceHandler& handler, const i2c_msg& message, UMockdevIoctlData* messages,
          std::size_t pointer_offset) {
    if (message.len > LONGEST_I2C_MESSAGE) {
        return EINVAL;
    }
    Data buffer;
    std::uint8_t none = 0;
    std::uint8_t* bytes = &none;
    if (message.len > 0) {
        buffer = Resolve(messages, pointer_offset, message.len);
        if (!buffer) {
            return EFAULT;
        }
        bytes = buffer->data;
    }
    if ((message.flags & I2C_M_RD) != 0) {
        return handler.ReadBus(message.addr, bytes, message.len);
    }
    return handler.WriteBus(message.addr, bytes, message.len);
}

// Carries out an I2C_RDWR. Returns 0 or an errno value, and how many messages there were.
int CarryAll(DeviceHandler& handler, UMockdevIoctlData* argument, unsigned* count) {
    const Data transfer = Resolve(argument, 0, sizeof(i2c_rdwr_ioctl_data));
    if (!transfer) {
        return EFAULT;
    }
    *count = reinterpret_cast<const i2c_rdwr_ioctl_data*>(transfer->data)->nmsgs;
    if (*count > MOST_MESSAGES) {
        return EINVAL;
    }
    if (*count == 0) {
        return 0;
    }
    const Data messages =
        Resolve(transfer.get(), offsetof(i2c_rdwr_ioctl_data, msgs), *count * sizeof(i2c_msg));
    if (!messages) {
        return EFAULT;
    }
    const auto* const list = reinterpret_cast<const i2c_msg*>(messages->data);
    for (unsigned i = 0; i < *count; ++i) {
        const std::size_t pointer_offset = i * sizeof(i2c_msg) + offsetof(i2c_msg, buf);
        const int result = Carry(handler, list[i], messages.get(), pointer_offset);
        if (result != 0) {
            return result;
        }
    }
    return 0;
}

void Complete(UMockdevIoctlClient* client, glong success, int result) {
    umockdev_ioctl_client_complete(client, result == 0 ? success : -1, result);
}

// The way to the handler, open as long as the nodes exist: the library's thread may have a client's
// call in hand while they go.
class Gate {
  public:
    explicit Gate(DeviceHandler& handler) : handler_(&handler) {}

    void Shut() {
        const std::lock_guard<std::mutex> guard(mutex_);
        handler_ = nullptr;
    }

    // Returns what `call` returns for the handler, or ENODEV.
    int Pass(const std::function<int(DeviceHandler&)>& call) {
        const std::lock_guard<std::mutex> guard(mutex_);
        return handler_ != nullptr ? call(*handler_) : ENODEV;
    }

  private:
    std::mutex mutex_;
    DeviceHandler* handler_;
};
using SharedGate = std::shared_ptr<Gate>;

// Tells what the adapter can do. Returns 0 or an errno value.
int TellFunctions(UMockdevIoctlData* argument) {
    const Data functions = Resolve(argument, 0, sizeof(unsigned long));
    if (!functions) {
        return EFAULT;
    }
    *reinterpret_cast<unsigned long*>(functions->data) = I2C_FUNC_I2C;
    return 0;
}

gboolean OnBusIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer gate) {
    const gulong request = umockdev_ioctl_client_get_request(client);
    if (request == I2C_FUNCS) {
        Complete(client, 0, TellFunctions(umockdev_ioctl_client_get_arg(client)));
        return TRUE;
    }
    if (request != I2C_RDWR) {
        Complete(client, 0, ENOTTY);
        return TRUE;
    }
    unsigned count = 0;
    const int result = (*static_cast<SharedGate*>(gate))->Pass([&](DeviceHandler& handler) {
        return CarryAll(handler, umockdev_ioctl_client_get_arg(client), &count);
    });
    Complete(client, static_cast<glong>(count), result);
    return TRUE;
}

gboolean OnResetWrite(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer gate) {
    const UMockdevIoctlData* const text = umockdev_ioctl_client_get_arg(client);
    const int result = (*static_cast<SharedGate*>(gate))->Pass([&](DeviceHandler& handler) {
        return handler.WriteReset(reinterpret_cast<const char*>(text->data),
                                  static_cast<std::size_t>(text->data_len));
    });
    Complete(client, text->data_len, result);
    return TRUE;
}

void ForgetGate(gpointer gate, GClosure*) {
    delete static_cast<SharedGate*>(gate);
}

// `callback` gets the gate with each `signal` until the source goes, and the gate with it.
void Connect(UMockdevIoctlBase* source, const char* signal, GCallback callback,
             std::unique_ptr<SharedGate> gate) {
    g_signal_connect_data(source, signal, callback, gate.release(), ForgetGate, GConnectFlags(0));
}

// The library's warnings go nowhere: errors are told by whoever meets them. After an error it would
// end the process by a signal.
void HearLibrary(const gchar*, GLogLevelFlags level, const gchar* message, gpointer) {
    if ((level & (G_LOG_LEVEL_ERROR | G_LOG_FLAG_FATAL)) != 0) {
        std::fprintf(stderr, "bbpsim: the simulated devices: %s\n", message);
        _exit(STATUS_OWN_FAILURE);
    }
}

GLogWriterOutput HearWriter(GLogLevelFlags level, const GLogField* fields, gsize count, gpointer) {
    for (gsize i = 0; i < count; ++i) {
        if (std::string(fields[i].key) == "MESSAGE") {
            HearLibrary(nullptr, level, static_cast<const gchar*>(fields[i].value), nullptr);
        }
    }
    return G_LOG_WRITER_HANDLED;
}

// The library makes its folder in `folder`, which it knows by a variable only.
UMockdevTestbed* MakeTestbed(const std::string& folder) {
    g_log_set_default_handler(HearLibrary, nullptr);
    g_log_set_writer_func(HearWriter, nullptr, nullptr);
    const char* const value = std::getenv(FOLDER_OF_TEMPORARY_FILES);
    const std::optional<std::string> before =
        value != nullptr ? std::optional<std::string>(value) : std::nullopt;
    setenv(FOLDER_OF_TEMPORARY_FILES, folder.c_str(), 1);
    UMockdevTestbed* const testbed = umockdev_testbed_new();
    if (before) {
        setenv(FOLDER_OF_TEMPORARY_FILES, before->c_str(), 1);
    } else {
        unsetenv(FOLDER_OF_TEMPORARY_FILES);
    }
    return testbed;
}

}  // namespace

struct DeviceNodes::Testbed {
    Testbed(const std::string& folder, DeviceHandler& handler)
        : gate(std::make_shared<Gate>(handler)), testbed(MakeTestbed(folder)) {}

    // Made before the library's thread, which uses them.
    SharedGate gate;
    std::unique_ptr<SharedGate> bus_gate{std::make_unique<SharedGate>(gate)};
    std::unique_ptr<SharedGate> reset_gate{std::make_unique<SharedGate>(gate)};
    std::unique_ptr<UMockdevTestbed, Unref> testbed;
    std::unique_ptr<UMockdevIoctlBase, Unref> bus{umockdev_ioctl_base_new()};
    std::unique_ptr<UMockdevIoctlBase, Unref> reset{umockdev_ioctl_base_new()};
    std::unique_ptr<ResetPipe> pipe;
};

DeviceNodes::DeviceNodes(const std::string& folder, DeviceHandler& handler)
    : testbed_(std::make_unique<Testbed>(folder, handler)) {
    UMockdevTestbed* const testbed = testbed_->testbed.get();
    gchar* const root = umockdev_testbed_get_root_dir(testbed);
    folder_ = root;
    g_free(root);

    Connect(testbed_->bus.get(), "handle-ioctl", G_CALLBACK(OnBusIoctl),
            std::move(testbed_->bus_gate));
    Connect(testbed_->reset.get(), "handle-write", G_CALLBACK(OnResetWrite),
            std::move(testbed_->reset_gate));
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed, NODES, &error) ||
        !umockdev_testbed_attach_ioctl(testbed, BUS_NODE, testbed_->bus.get(), &error) ||
        !umockdev_testbed_attach_ioctl(testbed, RESET_NODE, testbed_->reset.get(), &error)) {
        const std::string text = error->message;
        g_clear_error(&error);
        throw common::Failure("the device nodes cannot be made: " + text);
    }
    // The library would take the requests to all other devices, too.
    unlink((folder_ + "/ioctl/_default").c_str());
    testbed_->pipe = std::make_unique<ResetPipe>(
        folder_ + RESET_NODE, [gate = testbed_->gate](const char* text, std::size_t size) {
            gate->Pass([&](DeviceHandler& present) { return present.WriteReset(text, size); });
        });
}

void DeviceNodes::Shut() {
    testbed_->pipe.reset();
    testbed_->gate->Shut();
}

DeviceNodes::~DeviceNodes() {
    Shut();
    UMockdevTestbed* const testbed = testbed_->testbed.get();
    umockdev_testbed_detach_ioctl(testbed, BUS_NODE, nullptr);
    umockdev_testbed_detach_ioctl(testbed, RESET_NODE, nullptr);
}

std::string DeviceNodes::BusFile() const {
    return folder_ + BUS_NODE;
}

}  // namespace sim
