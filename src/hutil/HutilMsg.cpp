// SPDX-License-Identifier: Apache-2.0
#include "hutil/HutilMsg.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <new>
#include <string>

#include "platform/platform.h"

namespace {

// Added to the source line, it is the system logger's opcode of a message.
const int LOG_OPCODE_BASE = 11000;

const unsigned int HIGHEST_LEVEL = 5;

// By level; a level without a prefix prints nothing.
const char* const PREFIXES[HIGHEST_LEVEL + 1] = {
    "%s MSG: ", "%s CRITICAL: ", "%s ERROR: ", "%s WRN: ", nullptr, "%s INF: "};

// One line of text in a buffer on the stack: what does not fit is cut at the buffer's end.
class Text {
  public:
    Text() : length(0) { buffer[0] = '\0'; }

    // Appends the formatted text. Returns its full length, or a negative number on a failure.
    int Append(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        va_list arguments;
        va_start(arguments, format);
        const int result = AppendList(format, arguments);
        va_end(arguments);
        return result;
    }

    int AppendList(const char* format, va_list arguments) __attribute__((format(printf, 2, 0))) {
        const int room = static_cast<int>(sizeof buffer) - length;
        const int result = vsnprintf(buffer + length, static_cast<size_t>(room), format, arguments);
        if (result > 0) {
            length += result < room ? result : room - 1;
        }
        return result;
    }

    // Ends the text a second time, `offset` bytes past its end, where the buffer reaches that far.
    void EndAgain(int offset) {
        if (length + offset < static_cast<int>(sizeof buffer)) {
            buffer[length + offset] = '\0';
        }
    }

    const char* Get() const { return buffer; }

  private:
    char buffer[HutilMsg::TEXT_SIZE];
    int length;
};

std::string BaseName(const char* path) {
    const char* slash = strrchr(path, '/');
    return std::string(slash != nullptr ? slash + 1 : path);
}

}  // namespace

HutilMsg::HutilMsg(HutilOptions* opts) : options(opts) {}

HutilMsg::HutilMsg(int argc, char** argv) : options(new (std::nothrow) HutilOptions(argc, argv)) {}

HutilMsg::HutilMsg() : options(new (std::nothrow) HutilOptions()) {}

HutilMsg::~HutilMsg() = default;

void HutilMsg::displayMessage(int level, const char* file, int line, const char* format, ...) {
    const std::string name = BaseName(file);

    if (static_cast<unsigned int>(level) > HIGHEST_LEVEL) {
        return;
    }
    const char* const prefix = PREFIXES[level];
    if (prefix == nullptr) {
        return;
    }
    if (level == INFO && options->verbosity <= INFO_VERBOSITY) {
        return;
    }

    Text text;
    if (text.Append(prefix, options->progName.c_str()) < 0) {
        perror("hutil error");
        return;
    }

    va_list arguments;
    va_start(arguments, format);
    const int message_length = text.AppendList(format, arguments);
    va_end(arguments);
    if (message_length < 0) {
        perror("hutil error");
        return;
    }

    const bool is_failure = level == CRITICAL || level == ERROR;
    if (is_failure || options->verbosity > INFO_VERBOSITY) {
        if (text.Append(" @%s:%d", name.c_str(), line) < 0) {
            perror("hutil error");
            return;
        }
    } else {
        // Kept: a line without a position is ended twice, the second time past what is shown; a
        // dump of the memory shows it where it has always been.
        text.EndAgain(message_length);
    }

    printf("%s\n", text.Get());
    slogf(line + LOG_OPCODE_BASE, level, "%s", text.Get());

    if (is_failure) {
        options->verbosity = ERROR_VERBOSITY;
    }
}
