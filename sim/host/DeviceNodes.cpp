// SPDX-License-Identifier: Apache-2.0
#include "sim/host/DeviceNodes.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <umockdev.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

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

gboolean OnBusIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer handler) {
    if (umockdev_ioctl_client_get_request(client) != I2C_RDWR) {
        Complete(client, 0, ENOTTY);
        return TRUE;
    }
    unsigned count = 0;
    const int result = CarryAll(*static_cast<DeviceHandler*>(handler),
                                umockdev_ioctl_client_get_arg(client), &count);
    Complete(client, static_cast<glong>(count), result);
    return TRUE;
}

gboolean OnResetWrite(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer handler) {
    const UMockdevIoctlData* const text = umockdev_ioctl_client_get_arg(client);
    const int result = static_cast<DeviceHandler*>(handler)->WriteReset(
        reinterpret_cast<const char*>(text->data), static_cast<std::size_t>(text->data_len));
    Complete(client, text->data_len, result);
    return TRUE;
}

// The library ends the process where it cannot make its folder.
UMockdevTestbed* MakeTestbed() {
    const char* const folder = g_get_tmp_dir();
    if (access(folder, W_OK | X_OK) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                std::string("the devices need a folder for temporary files, and ") +
                                    folder + " is none");
    }
    return umockdev_testbed_new();
}

}  // namespace

struct DeviceNodes::Testbed {
    std::unique_ptr<UMockdevTestbed, Unref> testbed{MakeTestbed()};
    std::unique_ptr<UMockdevIoctlBase, Unref> bus{umockdev_ioctl_base_new()};
    std::unique_ptr<UMockdevIoctlBase, Unref> reset{umockdev_ioctl_base_new()};
};

DeviceNodes::DeviceNodes(DeviceHandler& handler) : testbed_(std::make_unique<Testbed>()) {
    UMockdevTestbed* const testbed = testbed_->testbed.get();
    gchar* const root = umockdev_testbed_get_root_dir(testbed);
    folder_ = root;
    g_free(root);

    g_signal_connect(testbed_->bus.get(), "handle-ioctl", G_CALLBACK(OnBusIoctl), &handler);
    g_signal_connect(testbed_->reset.get(), "handle-write", G_CALLBACK(OnResetWrite), &handler);
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed, NODES, &error) ||
        !umockdev_testbed_attach_ioctl(testbed, BUS_NODE, testbed_->bus.get(), &error) ||
        !umockdev_testbed_attach_ioctl(testbed, RESET_NODE, testbed_->reset.get(), &error)) {
        const std::string text = error->message;
        g_clear_error(&error);
        throw std::runtime_error("the device nodes cannot be made: " + text);
    }
}

DeviceNodes::~DeviceNodes() {
    UMockdevTestbed* const testbed = testbed_->testbed.get();
    umockdev_testbed_detach_ioctl(testbed, BUS_NODE, nullptr);
    umockdev_testbed_detach_ioctl(testbed, RESET_NODE, nullptr);
}

std::string DeviceNodes::BusFile() const {
    return folder_ + BUS_NODE;
}

}  // namespace sim
