// SPDX-License-Identifier: Apache-2.0
#include "tests/support/VirtualHeadUnit.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <new>
#include <stdexcept>

#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "tests/support/StreamChecker.h"
#include "tests/support/virtual_calls.h"

// The program's main, renamed in its object.
extern "C" int bbpflash_main(int argc, char** argv);

namespace virt {

namespace {

// What a pipe's stream buffers.
constexpr std::size_t STREAM_BUFFER = 4096;

// A program that makes so many calls while no time passes never stops.
constexpr int MOST_IDLE_CALLS = 10000;

// Every global as at the start of a process. What the strings held went with the run's memory.
void ResetProgram() {
    new (&installed_version) std::string;
    new (&file_version) std::string;
    new (&filename) std::string;
    p_ischip = nullptr;
    std::fill(std::begin(g_options), std::end(g_options), false);
    state = 0;
    g_p_hutil_opt = nullptr;
    g_p_hutil_msg = nullptr;
    // Makes getopt forget where in which arguments it was.
    optind = 0;
    optarg = nullptr;
    errno = 0;
}

}  // namespace

const char* NameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::Exit:
            return "exit";
        case Outcome::OutOfRange:
            return "uncaught out_of_range";
        case Outcome::BadAlloc:
            return "uncaught bad_alloc";
        case Outcome::OtherException:
            return "uncaught exception";
        case Outcome::SigPipe:
            return "SIGPIPE";
        case Outcome::Endless:
            return "endless";
        case Outcome::Blocked:
            return "blocked";
    }
    return "";
}

VirtualHeadUnit::VirtualHeadUnit(sim::ChipConfig config, std::vector<sim::Fault> faults)
    : unit_(std::move(config), std::move(faults)),
      stdout_buffer_(STREAM_BUFFER),
      stderr_buffer_(STREAM_BUFFER) {}

VirtualHeadUnit::~VirtualHeadUnit() = default;

RunResult VirtualHeadUnit::Run(const std::vector<std::string>& arguments) {
    std::vector<std::vector<char>> words;
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        words.emplace_back(argument.c_str(), argument.c_str() + argument.size() + 1);
        argv.push_back(words.back().data());
    }
    argv.push_back(nullptr);
    const int argc = static_cast<int>(arguments.size());
    RunResult result = RunPiece([argc, &argv] { return bbpflash_main(argc, argv.data()); });
    CheckOutput(arguments, result);
    return result;
}

void VirtualHeadUnit::CheckOutput(const std::vector<std::string>& arguments,
                                  const RunResult& result) const {
    const auto is_struck = [](const Call& call) {
        return call.kind == CallKind::Output && call.struck;
    };
    const std::vector<Call>& calls = log_.Calls();
    if (!checks_output || std::any_of(calls.begin(), calls.end(), is_struck)) {
        return;
    }
    // As a shell would see it: every other end is a signal's.
    const int status = result.outcome == Outcome::Exit ? result.status : 128 + SIGKILL;
    EXPECT_TRUE(ConformsToContract(result.out, ModeOf(arguments), status));
}

RunResult VirtualHeadUnit::RunPiece(const std::function<int()>& piece) {
    log_.Clear();
    files.Restart();
    result_ = RunResult();
    started_ = unit_.Now();
    last_pulse_ = started_;
    bus_descriptor_ = -1;
    line_descriptors_.clear();
    next_descriptor_ = STDERR_FILENO + 1;
    idle_calls_ = 0;
    discard_output_ = false;
    ResetProgram();
    OpenStreams();
    Perform(piece);
    EndProgram();
    // Unbuffered for the program, collected for speed.
    std::fflush(stderr);
    CloseStreams();
    ResetProgram();
    memory_.ReleaseAll();
    return std::move(result_);
}

void VirtualHeadUnit::Perform(const std::function<int()>& piece) {
    if (setjmp(leave_) != 0) {
        return;
    }
    StartProgram(this);
    try {
        Exit(piece());
    } catch (const std::out_of_range&) {
        result_.outcome = Outcome::OutOfRange;
    } catch (const std::bad_alloc&) {
        result_.outcome = Outcome::BadAlloc;
    } catch (...) {
        result_.outcome = Outcome::OtherException;
    }
}

void VirtualHeadUnit::Leave(Outcome outcome) {
    result_.outcome = outcome;
    std::longjmp(leave_, 1);
}

void VirtualHeadUnit::Exit(int status) {
    std::fflush(stdout);
    result_.status = status & 0xFF;
    Leave(Outcome::Exit);
}

Call& VirtualHeadUnit::Begin(CallKind kind, std::int64_t argument, std::int64_t detail) {
    CountIdle();
    const int error = errno;
    Call& call = log_.Add(kind, unit_.Now() - started_);
    call.error_before = error;
    errno = error;
    call.argument = argument;
    call.detail = detail;
    return call;
}

Strike VirtualHeadUnit::Ask(Call& call) {
    if (hook_ == nullptr) {
        return Strike();
    }
    const Strike strike = hook_->OnCall(call, log_.Total() - 1, log_.Count(call.kind) - 1);
    call.struck = strike.how != Strike::How::None;
    return strike;
}

void VirtualHeadUnit::CountIdle() {
    if (++idle_calls_ > MOST_IDLE_CALLS) {
        Leave(Outcome::Endless);
    }
}

void VirtualHeadUnit::Pass(Duration time) {
    idle_calls_ = 0;
    unit_.Advance(time);
    if (unit_.Now() - last_pulse_ > time_limit_) {
        Leave(Outcome::Endless);
    }
}

void VirtualHeadUnit::OpenStreams() {
    real_stdout_ = stdout;
    real_stderr_ = stderr;
    stdout = OpenCapture(this, false, stdout_buffer_.data(), stdout_buffer_.size());
    stderr = OpenCapture(this, true, stderr_buffer_.data(), stderr_buffer_.size());
}

void VirtualHeadUnit::CloseStreams() {
    // What a stream still holds after an end that does not flush is lost.
    discard_output_ = true;
    std::fclose(stdout);
    std::fclose(stderr);
    stdout = real_stdout_;
    stderr = real_stderr_;
}

}  // namespace virt
