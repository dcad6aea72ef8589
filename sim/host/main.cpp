// SPDX-License-Identifier: Apache-2.0
// bbpsim: runs a command in a simulated head unit.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>

#include "sim/HeadUnit.h"
#include "sim/host/Child.h"
#include "sim/host/Cleaner.h"
#include "sim/host/DeviceNodes.h"
#include "sim/host/FlashFile.h"
#include "sim/host/Options.h"
#include "sim/host/RealTimeUnit.h"
#include "sim/host/ReportText.h"
#include "sim/host/Shell.h"

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

int Run(const Options& options) {
    Child child;
    Cleaner cleaner;
    const FlashFile flash_file(options.flash);
    HeadUnit unit(MakeChip(options, flash_file));
    unit.SetBusHz(options.bus_hz);
    RealTimeUnit real_time(unit, options.paced);
    unsigned saved = 0;
    const auto save = [&](HeadUnit& now) {
        if (now.Chip().FlashChanges() != saved) {
            saved = now.Chip().FlashChanges();
            if (!flash_file.Save(now.Chip().Flash())) {
                std::fprintf(stderr, "bbpsim: %s: %s\n", options.flash.c_str(), strerror(errno));
            }
        }
    };
    real_time.AfterEach(save);
    int status = 0;
    {
        const DeviceNodes nodes(real_time);
        cleaner.Watch(nodes.Folder());
        status = RunInside(nodes, child, options.command);
    }
    real_time.With([&](HeadUnit& now) {
        // Whoever leaves switches the head unit off, whatever the chip is doing.
        now.Chip().LosePower();
        save(now);
        if (options.report) {
            std::fputs(ReportText(now.GetReport()).c_str(), stderr);
        }
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
