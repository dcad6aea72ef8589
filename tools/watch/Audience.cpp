// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Audience.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <limits>

#include "common/Failure.h"
#include "tools/watch/JsonReporter.h"
#include "tools/watch/Reporters.h"

namespace tools {

namespace {

// An update that nobody ends goes on for ever, and so does what it says.
constexpr std::size_t TEMPORARY_LOG_SIZE = 4 << 20;  // bytes

const char LOG_CUT[] = "(no more is kept)\n";

bool IsTerminal() {
    const char* const kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && kind != nullptr && std::string(kind) != "dumb";
}

bool HasColour() {
    const char* const refused = std::getenv("NO_COLOR");
    return refused == nullptr || *refused == '\0';
}

int TerminalWidth() {
    winsize size = {};
    const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return is_known ? size.ws_col : 80;
}

// "2026-11-20T12:34:56.789Z"
std::string TimeOfDay() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<Milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    char text[40];
    const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + size, sizeof text - size, ".%03dZ", static_cast<int>(milliseconds));
    return text;
}

}  // namespace

void LogFile::Write(const std::string& line) {
    if (room_ == 0) {
        return;
    }
    const bool fits = line.size() <= room_;
    const std::string text = fits ? line : LOG_CUT;
    room_ = fits ? room_ - line.size() : 0;
    [[maybe_unused]] const ssize_t count = write(descriptor_.Get(), text.data(), text.size());
}

Audience::Audience(bool as_json) : output_(STDOUT_FILENO) {
    const auto put = [this](const std::string& text) { output_.Put(text); };
    if (as_json) {
        owned_.push_back(std::make_unique<JsonReporter>(put));
    } else if (IsTerminal()) {
        owned_.push_back(std::make_unique<TerminalReporter>(put, TerminalWidth, HasColour()));
    } else {
        owned_.push_back(std::make_unique<PlainReporter>(put));
    }
}

void Audience::AddLog(const std::string& path) {
    common::UniqueFd log(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    if (!log) {
        throw common::ErrnoFailure("opening the log " + path, errno);
    }
    AddLog(std::move(log), std::numeric_limits<std::size_t>::max());
}

std::string Audience::AddTemporaryLog() {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    std::string path = (folder / "bbpwatch-XXXXXX.log").string();
    common::UniqueFd log(error ? -1 : mkostemps(path.data(), 4, O_CLOEXEC));
    if (!log) {
        return "";
    }
    AddLog(std::move(log), TEMPORARY_LOG_SIZE);
    return path;
}

void Audience::AddLog(common::UniqueFd descriptor, std::size_t room) {
    const auto file = std::make_shared<LogFile>(std::move(descriptor), room);
    owned_.push_back(std::make_unique<LogReporter>(
        [file](const std::string& line) { file->Write(line); }, TimeOfDay));
}

std::vector<Reporter*> Audience::All() const {
    std::vector<Reporter*> all;
    for (const auto& reporter : owned_) {
        all.push_back(reporter.get());
    }
    return all;
}

}  // namespace tools
