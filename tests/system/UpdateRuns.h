// SPDX-License-Identifier: Apache-2.0
// The updater's runs that the tests look at.
#ifndef TESTS_SYSTEM_UPDATE_RUNS_H
#define TESTS_SYSTEM_UPDATE_RUNS_H

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "tests/system/Process.h"

namespace system_test {

// The runs mostly wait, so they all go at once; each test then looks at one.
class Runs : public ::testing::Environment {
  public:
    void SetUp() override;
    void TearDown() override { processes_.clear(); }

    const Outcome& Of(const std::string& name) {
        if (outcomes_.count(name) == 0) {
            outcomes_[name] = processes_.at(name)->Wait();
        }
        return outcomes_[name];
    }
    std::string Image() const { return folder_.Path("image.bin"); }
    std::string Short() const { return folder_.Path("short.bin"); }
    std::string Missing() const { return folder_.Path("missing.bin"); }
    bool FlashIsImage(const std::string& name) const {
        return folder_.Read(name + ".flash") == folder_.Read("image.bin");
    }
    bool HasFlash(const std::string& name) const {
        return std::filesystem::exists(folder_.Path(name + ".flash"));
    }
    bool OutsideIsSafe() const { return !std::filesystem::exists("/dev/i2c1"); }

  private:
    // Starts the updater with these arguments in a head unit with these options.
    void Start(const std::string& name, const Words& options, const Words& arguments) {
        const Words unit = {ProgramFolder() + "/bbpsim",
                            "--pace",
                            "none",
                            "--burn",
                            "2,2,2",
                            "--report",
                            "--flash",
                            folder_.Path(name + ".flash")};
        processes_[name] =
            std::make_unique<Process>(unit + options + Words{"--", "bbpflash"} + arguments);
    }
    void StartAsNobody();

    TemporaryFolder folder_;
    std::map<std::string, std::unique_ptr<Process>> processes_;
    std::map<std::string, Outcome> outcomes_;
};

}  // namespace system_test

#endif
