// SPDX-License-Identifier: Apache-2.0
#include "tools/image/UpdaterLabel.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/Spawn.h"
#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "tools/image/updater_platform.h"

namespace tools {

namespace {

using Result = LabelReading::Result;

const char NAME[] = "bbpflash";

// The words of the updater's last message.
std::string LastMessage() {
    const std::vector<std::string>& messages = LoggedMessages();
    if (messages.empty()) {
        return std::string();
    }
    const std::string prefix = std::string(NAME) + " ERROR: ";
    const std::string& text = messages.back();
    return text.substr(prefix.size(), text.rfind(" @") - prefix.size());
}

// In the child: sends the label, or the message that stands for it, and returns the result.
int CallUpdater(const std::string& path, int pipe_end) {
    const common::UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (!nowhere || dup2(nowhere.Get(), STDOUT_FILENO) < 0) {
        throw common::ErrnoFailure("opening /dev/null", errno);
    }
    std::string name = NAME;
    char* arguments[] = {name.data(), nullptr};
    hutil_init(1, arguments);
    filename = path;

    std::string label;
    Result result = Result::BreaksDown;
    try {
        result = get_bin_file_version(label, filename) ? Result::Read : Result::Refused;
    } catch (const std::out_of_range&) {
        label.clear();
    }
    common::WriteAll(pipe_end, result == Result::Refused ? LastMessage() : label, "the label");
    return static_cast<int>(result);
}

}  // namespace

LabelReading ReadLabelAsUpdater(const std::string& path) {
    common::Pipe pipe = common::MakePipe();
    const pid_t child = common::Fork([&] { return CallUpdater(path, pipe.write_end.Get()); });
    pipe.write_end.Reset();
    const std::string answer = common::ReadAll(pipe.read_end.Get(), "the label");
    const int status = common::WaitForEnd(child);
    LabelReading reading;
    switch (static_cast<Result>(status)) {
        case Result::Read:
            reading.label = answer;
            break;
        case Result::Refused:
            reading.message = answer;
            break;
        case Result::BreaksDown:
            break;
    }
    if (status > static_cast<int>(Result::BreaksDown)) {
        throw common::Failure("the label of " + path +
                              " cannot be looked at: the process that reads it ended with " +
                              (status > common::STATUS_SIGNAL
                                   ? "signal " + std::to_string(status - common::STATUS_SIGNAL)
                                   : "status " + std::to_string(status)));
    }
    reading.result = static_cast<Result>(status);
    return reading;
}

}  // namespace tools
