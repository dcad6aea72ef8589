// SPDX-License-Identifier: Apache-2.0
// bbpsim: runs a command in a simulated head unit.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "sim/HeadUnit.h"
#include "sim/host/Child.h"
#include "sim/host/Cleaner.h"
#include "sim/host/DeviceNodes.h"
#include "sim/host/FlashFile.h"
#include "sim/host/Options.h"
#include "sim/host/RealTimeUnit.h"
#include "sim/host/ReportText.h"
#include "sim/host/Shell.h"
#include "sim/host/Views.h"

namespace {

using namespace sim;

ChipConfig MakeChip(const Options& options, const FlashFile& flash_file) {
    ChipConfig config;
    config.installed = options.installed;
    config.reports = options.reports;
    config.burn = options.burn;
    config.flash = flash_file.Load();
    return config;
}

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

// Runs the command, or a shell, with these nodes. Returns its exit status or one of our own.
int RunInside(const DeviceNodes& nodes, Child& child, std::vector<std::string> command) {
    std::vector<Variable> environment = MakeEnvironment(nodes);
    if (command.empty()) {
        Shell shell = MakeShell(nodes.Folder());
        command = std::move(shell.command);
        environment.insert(environment.end(), shell.environment.begin(), shell.environment.end());
        child.EndWith(SIGHUP);
    }
    const int status = child.Start(command, environment);
    if (status != 0) {
        std::fprintf(stderr, "bbpsim: %s: %s\n", command[0].c_str(), strerror(errno));
        return status;
    }
    return child.Wait();
}

// Keeps the bus's lock from everybody as long as it lives, if it is to.
class LockTaker {
  public:
    LockTaker(const std::string& bus_file, bool take) {
        if (take) {
            descriptor_ = open(bus_file.c_str(), O_RDWR | O_CLOEXEC);
            flock(descriptor_, LOCK_EX);
        }
    }
    ~LockTaker() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    LockTaker(const LockTaker&) = delete;
    LockTaker& operator=(const LockTaker&) = delete;

  private:
    int descriptor_ = -1;
};

// Writes the flash to its file whenever it has changed.
class FlashSaver {
  public:
    explicit FlashSaver(const FlashFile& file) : file_(file) {}

    void Save(HeadUnit& unit) {
        if (unit.Chip().FlashChanges() == saved_) {
            return;
        }
        saved_ = unit.Chip().FlashChanges();
        if (!file_.Save(unit.Chip().Flash())) {
            std::fprintf(stderr, "bbpsim: %s: %s\n", file_.Path().c_str(), strerror(errno));
        }
    }

  private:
    const FlashFile& file_;
    unsigned saved_ = 0;
};

void WriteReports(const Options& options, const Report& report, int status) {
    if (options.report) {
        std::fputs(ReportText(report).c_str(), stderr);
    }
    if (!options.json.empty()) {
        std::ofstream file(options.json);
        file << ReportJson(report, status);
        file.close();
        if (!file) {
            throw std::runtime_error("cannot write " + options.json);
        }
    }
}

int Run(const Options& options) {
    Child child;
    Cleaner cleaner;
    const FlashFile flash_file(options.flash);
    HeadUnit unit(MakeChip(options, flash_file), options.faults);
    unit.SetBusHz(options.bus_hz);
    Views views(options, unit);
    RealTimeUnit real_time(unit, options.paced);
    FlashSaver saver(flash_file);
    real_time.AfterEach([&](HeadUnit& now) { saver.Save(now); });
    int status = 0;
    {
        const DeviceNodes nodes(real_time);
        cleaner.Watch(nodes.Folder());
        const LockTaker lock(nodes.BusFile(), LockIsTaken(options.faults));
        status = RunInside(nodes, child, options.command);
    }
    real_time.With([&](HeadUnit& now) {
        // Whoever leaves switches the head unit off, whatever the chip is doing.
        now.Chip().LosePower();
        saver.Save(now);
        views.Close();
        WriteReports(options, now.GetReport(), status);
    });
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    const std::optional<Options> options = ParseOptions(argc, argv, &status);
    if (!options) {
        return status;
    }
    try {
        return Run(*options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bbpsim: %s\n", error.what());
        return STATUS_OWN_FAILURE;
    }
}
