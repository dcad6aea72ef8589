// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Bench.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "common/Failure.h"
#include "common/UniqueFd.h"
#include "sim/HeadUnit.h"
#include "sim/host/Child.h"
#include "sim/host/DeviceNodes.h"
#include "sim/host/FlashFile.h"
#include "sim/host/OutputFile.h"
#include "sim/host/RealTimeUnit.h"
#include "sim/host/ReportText.h"
#include "sim/host/Shell.h"
#include "sim/host/Views.h"
#include "sim/host/WorkFolder.h"

namespace sim {

namespace {

using common::Variable;

std::string Joined(const std::string& first, const char* variable, char separator) {
    const char* const value = std::getenv(variable);
    return value == nullptr || *value == '\0' ? first : first + separator + value;
}

// What makes a process see the nodes, and find the programs beside this one.
std::vector<Variable> MakeEnvironment(const DeviceNodes& nodes) {
    const std::string here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    return {{FOLDER_VARIABLE, nodes.Folder()},
            {"LD_PRELOAD", Joined(PRELOADED_LIBRARY, "LD_PRELOAD", ':')},
            {"PATH", Joined(here, "PATH", ':')}};
}

// Runs the command, or a shell, with these nodes. Returns its exit status.
int RunInside(const DeviceNodes& nodes, Child& child, std::vector<std::string> command) {
    std::vector<Variable> environment = MakeEnvironment(nodes);
    if (command.empty()) {
        const Shell shell = MakeShell(nodes.Folder());
        command = shell.command;
        environment.insert(environment.end(), shell.variables.begin(), shell.variables.end());
        child.EndWith(SIGHUP);
    }
    child.Start(command, environment);
    return child.Wait();
}

// The bus's lock, for as long as the result lives.
common::UniqueFd TakeLock(const std::string& bus_file) {
    common::UniqueFd lock(open(bus_file.c_str(), O_RDWR | O_CLOEXEC));
    if (!lock || flock(lock.Get(), LOCK_EX) != 0) {
        throw common::ErrnoFailure("locking the bus", errno);
    }
    return lock;
}

// Does one of the things that are done at the end, whatever became of those before. Returns
// `status`, or STATUS_OWN_FAILURE if this one fails.
int Conclude(int status, const std::function<void()>& step) {
    return common::RunProgram("bbpsim", STATUS_OWN_FAILURE, [&] {
        step();
        return status;
    });
}

class Bench {
  public:
    explicit Bench(const Options& options) : options_(options), unit_(MakeChip(), options.faults) {
        unit_.SetBusHz(options.bus_hz);
        if (saver_) {
            unit_.AddObserver(&*saver_);
        }
        for (Observer* const observer : views_.Observers()) {
            unit_.AddObserver(observer);
        }
        if (!options.json.empty()) {
            CheckWritable(options.json, JSON_NAME);
        }
    }

    int Run() {
        RealTimeUnit real_time(unit_, options_.paced);
        // Without devices the command has nothing more to do, and is asked to end.
        DeviceNodes nodes(folder_.Path(), real_time, [] { kill(getpid(), SIGTERM); });
        common::UniqueFd lock;
        if (LockIsTaken(options_.faults)) {
            lock = TakeLock(nodes.BusFile());
        }
        const int command_status = common::RunProgram("bbpsim", STATUS_OWN_FAILURE, [&] {
            return RunInside(nodes, child_, options_.command);
        });
        const int status = Conclude(command_status, [&] { nodes.Shut(); });
        real_time.KeepTime();
        unit_.SwitchOff();
        return WriteResults(command_status, status);
    }

  private:
    static constexpr char JSON_NAME[] = "the JSON file";

    ChipConfig MakeChip() {
        ChipConfig config;
        config.installed = options_.installed;
        config.reports = options_.reports;
        config.burn = options_.burn;
        if (!options_.flash.empty()) {
            flash_file_.emplace(options_.flash);
            saver_.emplace(*flash_file_);
            config.flash = flash_file_->Load();
        }
        return config;
    }

    int WriteResults(int command_status, int status) {
        for (const std::function<void()>& close : views_.Closings()) {
            status = Conclude(status, close);
        }
        const Report report = unit_.GetReport();
        if (options_.report) {
            std::fputs(ReportText(report).c_str(), stderr);
        }
        if (!options_.json.empty()) {
            status = Conclude(status, [&] {
                WriteFile(options_.json, JSON_NAME, ReportJson(report, command_status));
            });
        }
        return saver_ && !saver_->IsSaved() ? STATUS_OWN_FAILURE : status;
    }

    const Options& options_;
    Child child_;
    WorkFolder folder_;
    std::optional<FlashFile> flash_file_;
    std::optional<FlashSaver> saver_;
    Views views_{options_};
    HeadUnit unit_;
};

}  // namespace

int RunBench(const Options& options) {
    return Bench(options).Run();
}

}  // namespace sim
