// SPDX-License-Identifier: Apache-2.0
#include "sim/host/DeviceNodes.h"

#include <dlfcn.h>

#include <utility>

#include "common/Failure.h"
#include "sim/host/NodeFolder.h"

namespace sim {

const char PRELOADED_LIBRARY[] = "libumockdev-preload.so.0";
const char FOLDER_VARIABLE[] = "UMOCKDEV_DIR";

namespace {

// A program that is started without the library would find the machine's own devices.
void RequireLibrary() {
    void* const library = dlopen(PRELOADED_LIBRARY, RTLD_LAZY | RTLD_LOCAL);
    if (library == nullptr) {
        throw common::Failure(std::string("the device nodes need umockdev: ") + dlerror());
    }
    dlclose(library);
}

std::string MakeFiles(const std::string& folder) {
    RequireLibrary();
    MakeNodeFolder(folder);
    return folder;
}

}  // namespace

DeviceNodes::DeviceNodes(const std::string& folder, DeviceHandler& handler,
                         std::function<void()> on_failure)
    : folder_(MakeFiles(folder)),
      pipe_(folder_ + RESET_FILE),
      server_(handler, pipe_, std::move(on_failure)) {
    server_.Listen(folder_ + BUS_SOCKET, Node::Bus);
    server_.Listen(folder_ + RESET_SOCKET, Node::Reset);
    server_.Start();
}

std::string DeviceNodes::BusFile() const {
    return folder_ + BUS_FILE;
}

}  // namespace sim
