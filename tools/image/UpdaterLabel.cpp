// SPDX-License-Identifier: Apache-2.0
#include "tools/image/UpdaterLabel.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "tools/image/updater_platform.h"

namespace tools {

namespace {

// The child's answer on the pipe: the result, the label, then each message, as netstrings.
void PutText(std::string& answer, const std::string& text) {
    answer += std::to_string(text.size()) + ":" + text;
}

bool TakeText(const std::string& answer, std::size_t& at, std::string& text) {
    const std::size_t colon = answer.find(':', at);
    if (colon == std::string::npos) {
        return false;
    }
    const std::size_t size = std::stoul(answer.substr(at, colon - at));
    text = answer.substr(colon + 1, size);
    at = colon + 1 + size;
    return true;
}

LabelReading CallUpdater(const std::string& path) {
    char name[] = "bbpflash";
    char* arguments[] = {name, nullptr};
    hutil_init(1, arguments);
    filename = path;

    LabelReading reading;
    try {
        if (get_bin_file_version(reading.label, filename)) {
            reading.result = LabelReading::Result::Read;
        }
    } catch (const std::out_of_range&) {
        reading.result = LabelReading::Result::BreaksDown;
        reading.label.clear();
    }
    const std::string prefix = std::string(name) + " ERROR: ";
    for (const std::string& message : LoggedMessages()) {
        const std::size_t position = message.rfind(" @");
        reading.messages.push_back(message.substr(prefix.size(), position - prefix.size()));
    }
    return reading;
}

[[noreturn]] void AnswerAndExit(const std::string& path, int pipe_end) {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);

    const LabelReading reading = CallUpdater(path);
    std::string answer;
    PutText(answer, std::to_string(static_cast<int>(reading.result)));
    PutText(answer, reading.label);
    for (const std::string& message : reading.messages) {
        PutText(answer, message);
    }
    std::size_t written = 0;
    while (written < answer.size()) {
        const ssize_t count = write(pipe_end, answer.data() + written, answer.size() - written);
        if (count <= 0) {
            break;
        }
        written += static_cast<std::size_t>(count);
    }
    _exit(0);
}

std::string ReadAll(int descriptor) {
    std::string all;
    char buffer[4096];
    for (;;) {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count > 0) {
            all.append(buffer, static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return all;
        }
    }
}

}  // namespace

LabelReading ReadLabelAsUpdater(const std::string& path) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "making a pipe");
    }
    // What standard output holds back must not be written twice.
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == -1) {
        const int error = errno;
        close(ends[0]);
        close(ends[1]);
        throw std::system_error(error, std::generic_category(), "making a process");
    }
    if (child == 0) {
        AnswerAndExit(path, ends[1]);
    }
    close(ends[1]);
    const std::string answer = ReadAll(ends[0]);
    close(ends[0]);
    while (waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
    }

    LabelReading reading;
    reading.result = LabelReading::Result::BreaksDown;
    std::size_t at = 0;
    std::string text;
    if (TakeText(answer, at, text)) {
        reading.result = static_cast<LabelReading::Result>(std::stoi(text));
        TakeText(answer, at, reading.label);
    }
    while (TakeText(answer, at, text)) {
        reading.messages.push_back(text);
    }
    return reading;
}

}  // namespace tools
