// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/UpdaterProcess.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "common/Failure.h"
#include "common/Spawn.h"
#include "tools/stream/bbpflash_stream.h"

namespace tools {

namespace {

// Of an updater that ended and that nobody could wait for.
constexpr int STATUS_LOST = BBPFLASH_STATUS_UNKNOWN;

// A pipe whose reading never waits.
common::Pipe MakeOutputPipe() {
    common::Pipe pipe = common::MakePipe();
    if (fcntl(pipe.read_end.Get(), F_SETFL, O_NONBLOCK) != 0) {
        throw common::ErrnoFailure("preparing a pipe", errno);
    }
    return pipe;
}

}  // namespace

UpdaterProcess::UpdaterProcess(const std::vector<std::string>& words) {
    const common::UniqueFd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!nothing) {
        throw common::ErrnoFailure("opening /dev/null", errno);
    }
    common::Pipe output = MakeOutputPipe();
    common::Pipe error_output = MakeOutputPipe();
    common::Start start;
    start.words = words;
    start.standard_input = nothing.Get();
    start.standard_output = output.write_end.Get();
    start.standard_error = error_output.write_end.Get();
    start.new_session = true;
    start.ignored_signals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE};
    start.signal_mask.emplace();
    sigemptyset(&*start.signal_mask);
    id_ = common::Spawn(start);
    output_ = std::move(output.read_end);
    error_output_ = std::move(error_output.read_end);
}

void UpdaterProcess::Look(int flags) {
    int state = 0;
    pid_t result;
    do {
        result = waitpid(id_, &state, flags);
    } while (result == -1 && errno == EINTR);
    if (result == id_) {
        status_ = common::ExitStatus(state);
    } else if (result == -1 && kill(id_, 0) != 0 && errno == ESRCH) {
        status_ = STATUS_LOST;
    }
}

void UpdaterProcess::Kill() {
    kill(-id_, SIGKILL);
    if (!status_) {
        Look(0);
    }
}

std::optional<int> UpdaterProcess::Status() {
    if (!status_) {
        Look(WNOHANG);
    }
    return status_;
}

}  // namespace tools
