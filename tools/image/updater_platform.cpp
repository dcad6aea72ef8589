// SPDX-License-Identifier: Apache-2.0
#include "tools/image/updater_platform.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "hutil/HutilMsg.h"
#include "platform/platform.h"

namespace {

std::vector<std::string>& Messages() {
    static std::vector<std::string> messages;
    return messages;
}

}  // namespace

extern "C" int devctl(int, int, void*, size_t, int*) {
    return ENODEV;
}

extern "C" unsigned int delay(unsigned int) {
    return 0;
}

extern "C" int slogf(int, int, const char* format, ...) {
    char text[HutilMsg::TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Messages().emplace_back(text);
    return 0;
}

const std::vector<std::string>& tools::LoggedMessages() {
    return Messages();
}
