// SPDX-License-Identifier: Apache-2.0
#include "tests/support/FakePlatform.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace fake {

namespace {

const std::size_t HEADER = 16;  // of a chunk
const std::size_t CALL_LIMIT = 1000000;

Platform* g_current = nullptr;

std::string Name(int dcmd) {
    switch (dcmd) {
        case DCMD_I2C_SET_BUS_SPEED:
            return "SPEED";
        case DCMD_I2C_LOCK:
            return "LOCK";
        case DCMD_I2C_UNLOCK:
            return "UNLOCK";
        case DCMD_I2C_SEND:
            return "SEND";
        case DCMD_I2C_RECV:
            return "RECV";
        default:
            return "devctl " + std::to_string(dcmd);
    }
}

std::string Describe(const DevctlCall& call) {
    std::string text = Name(call.dcmd);
    if (call.dcmd == DCMD_I2C_SET_BUS_SPEED && call.data.size() == 4) {
        unsigned speed = 0;
        for (std::size_t i = 4; i > 0; --i) {
            speed = speed << 8 | call.data[i - 1];
        }
        return text + " " + std::to_string(speed);
    }
    return call.nbytes == 0 ? text : text + " " + std::to_string(call.nbytes);
}

// Whether `text` is a source position: "HdChip.cpp:123".
bool IsPosition(const std::string& text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos || colon + 1 == text.size()) {
        return false;
    }
    const bool is_line = text.find_first_not_of("0123456789", colon + 1) == std::string::npos;
    return is_line && text.find(' ') == std::string::npos && text.find('.') < colon;
}

// Sends a standard stream to a file as long as the object lives.
class Redirection {
  public:
    explicit Redirection(FILE* stream)
        : stream_(stream), file_(tmpfile()), saved_(fdopen(dup(fileno(stream)), "w")) {
        fflush(stream_);
        dup2(fileno(file_), fileno(stream_));
    }

    ~Redirection() {
        fflush(stream_);
        dup2(fileno(saved_), fileno(stream_));
        fclose(saved_);
        fclose(file_);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

    std::string Text() const {
        fflush(stream_);
        struct stat status;
        fstat(fileno(file_), &status);
        std::string text(static_cast<std::size_t>(status.st_size), '\0');
        if (pread(fileno(file_), &text[0], text.size(), 0) != status.st_size) {
            ADD_FAILURE() << "cannot read back a captured stream";
        }
        return text;
    }

  private:
    FILE* stream_;
    FILE* file_;
    FILE* saved_;
};

}  // namespace

Platform::Platform() {
    g_current = this;
}

Platform::~Platform() {
    g_current = nullptr;
}

void Platform::Fail(int dcmd, int error, int index) {
    errors_[{dcmd, index}] = error;
}

void Platform::FailAlways(int dcmd, int error) {
    constant_errors_[dcmd] = error;
}

std::vector<DevctlCall> Platform::Calls(int dcmd) const {
    std::vector<DevctlCall> calls;
    std::copy_if(devctls.begin(), devctls.end(), std::back_inserter(calls),
                 [dcmd](const DevctlCall& call) { return call.dcmd == dcmd; });
    return calls;
}

std::vector<Bytes> Platform::Requests() const {
    std::vector<Bytes> requests;
    for (const DevctlCall& call : Calls(DCMD_I2C_SEND)) {
        requests.emplace_back(call.data.begin() + HEADER, call.data.end());
    }
    return requests;
}

std::vector<std::string> Platform::Messages() const {
    std::vector<std::string> messages;
    for (const LogEntry& entry : log) {
        const std::string text = WithoutPositions(entry.text);
        messages.push_back(text.substr(text.find(' ') + 1));
    }
    return messages;
}

int Platform::Devctl(int fd, int dcmd, void* data, std::size_t nbytes, int* info) {
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    DevctlCall call{fd,
                    dcmd,
                    data != nullptr ? Bytes(bytes, bytes + nbytes) : Bytes(),
                    nbytes,
                    data == nullptr,
                    info == nullptr};
    devctls.push_back(call);
    Note(Describe(call));
    if (devctls.size() > CALL_LIMIT) {
        std::fprintf(stderr, "more than %zu devctl calls: the code under test does not end\n",
                     CALL_LIMIT);
        std::abort();
    }
    if (on_devctl) {
        on_devctl(call);
    }
    if (info != nullptr) {
        *info = 0;
    }

    const int index = counts_[dcmd]++;
    const auto constant = constant_errors_.find(dcmd);
    if (constant != constant_errors_.end()) {
        return constant->second;
    }
    const auto error = errors_.find({dcmd, index});
    if (error != errors_.end()) {
        return error->second;
    }
    if (dcmd == DCMD_I2C_SEND && nbytes >= HEADER) {
        last_request_.assign(call.data.begin() + HEADER, call.data.end());
    }
    if (dcmd == DCMD_I2C_RECV) {
        Reply reply = default_reply;
        if (!replies.empty()) {
            reply = replies.front();
            replies.pop_front();
        }
        const Bytes answer = reply.Answer(last_request_);
        const std::size_t room = nbytes > HEADER ? nbytes - HEADER : 0;
        std::copy_n(answer.begin(), std::min(answer.size(), room),
                    static_cast<std::uint8_t*>(data) + HEADER);
    }
    return 0;
}

unsigned Platform::Delay(unsigned milliseconds) {
    delays.push_back(milliseconds);
    Note("delay " + std::to_string(milliseconds));
    return delay_result;
}

int Platform::Usleep(useconds_t microseconds) {
    sleeps.push_back(microseconds);
    Note("usleep " + std::to_string(microseconds));
    return 0;
}

int Platform::Slogf(int opcode, int severity, const std::string& text) {
    log.push_back({opcode, severity, text});
    return slogf_result;
}

Platform& Current() {
    if (g_current == nullptr) {
        std::fprintf(stderr, "a platform call without a fake::Platform\n");
        std::abort();
    }
    return *g_current;
}

Output Capture(const std::function<void()>& code) {
    Redirection out(stdout);
    Redirection err(stderr);
    code();
    return {out.Text(), err.Text()};
}

std::string WithoutPositions(const std::string& text) {
    std::string result;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        const std::size_t at = line.rfind(" @");
        if (at != std::string::npos && IsPosition(line.substr(at + 2))) {
            line.erase(at);
        }
        result += line;
        if (!lines.eof()) {
            result += '\n';
        }
    }
    return result;
}

void JoinOutputs() {
    fflush(stdout);
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

testing::Matcher<const std::string&> Prints(const std::string& text) {
    return testing::ResultOf("the output", &WithoutPositions, testing::Eq(text));
}

PlatformTest::PlatformTest() {
    g_p_hutil_opt = new HutilOptions();
    g_p_hutil_opt->progName = "bbpflash";
    g_p_hutil_msg = new HutilMsg(g_p_hutil_opt);
}

PlatformTest::~PlatformTest() {
    delete g_p_hutil_msg;
    delete g_p_hutil_opt;
    g_p_hutil_msg = nullptr;
    g_p_hutil_opt = nullptr;
}

}  // namespace fake

extern "C" {

// What the core leaves to the end of the process: received chunks, and the chip's engine.
const char* __lsan_default_suppressions();
const char* __lsan_default_options();

const char* __lsan_default_suppressions() {
    return "leak:HcLogical::Receive\nleak:HdChip::HdChip\n";
}

const char* __lsan_default_options() {
    return "print_suppressions=0";
}

int devctl(int fd, int dcmd, void* data, size_t nbytes, int* info) {
    return fake::Current().Devctl(fd, dcmd, data, nbytes, info);
}

unsigned int delay(unsigned int milliseconds) {
    return fake::Current().Delay(milliseconds);
}

int slogf(int opcode, int severity, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, arguments);
    std::string text(static_cast<std::size_t>(std::max(length, 0)) + 1, '\0');
    vsnprintf(&text[0], text.size(), format, again);
    va_end(again);
    va_end(arguments);
    text.pop_back();
    return fake::Current().Slogf(opcode, severity, text);
}

int __wrap_usleep(useconds_t microseconds);

int __wrap_usleep(useconds_t microseconds) {
    return fake::Current().Usleep(microseconds);
}
}
