// SPDX-License-Identifier: Apache-2.0
// The program bbpwatch as it is, over a stand-in for the updater that goes on when it is told to,
// and over the updater itself in the simulated head unit.
#ifndef BBPFLASH_TESTS_TOOLS_BBPWATCHFIXTURE_H
#define BBPFLASH_TESTS_TOOLS_BBPWATCHFIXTURE_H

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "sim/SampleImage.h"
#include "tests/system/Process.h"
#include "tests/tools/TemporaryFolder.h"
#include "tools/image/ImageWriter.h"

class BbpwatchFixture : public testing::Test {
  protected:
    using Outcome = system_test::Outcome;
    using Process = system_test::Process;
    using Words = system_test::Words;

    BbpwatchFixture() {
        tools::WriteSample("2.0.0", sim::SAMPLE_IMAGE_SIZE, {folder_.Path("image.bin")}, false);
        mkfifo(folder_.Path("go").c_str(), 0600);
    }

    // bbpwatch with these arguments, a lock and a folder for logs of its own.
    Words Watch(const Words& arguments) const {
        Words words = {"env", "TMPDIR=" + folder_.Path(""),
                       system_test::ProgramFolder() + "/bbpwatch", "--lock", folder_.Path("lock")};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return words;
    }

    Words Command(Words options, const Words& updater) const {
        options.emplace_back("--");
        options.insert(options.end(), updater.begin(), updater.end());
        return Watch(options);
    }

    // The words in a simulated head unit, of which the report follows on standard error.
    Words Simulated(const Words& options, const Words& command) const {
        Words words = {system_test::ProgramFolder() + "/bbpsim",
                       "--pace",
                       "none",
                       "--burn",
                       "1,1,1",
                       "--report"};
        words.insert(words.end(), options.begin(), options.end());
        words.emplace_back("--");
        words.insert(words.end(), command.begin(), command.end());
        return words;
    }

    // An updater in status mode that writes `first`, waits for Go, writes `then` and, last, the
    // file "end".
    Words StandIn(const std::string& first, const std::string& then) const {
        const std::string script = "printf '" + first + "'; read x <" + folder_.Path("go") +
                                   "; printf '" + then + "'; echo >" + folder_.Path("end");
        return {"sh", "-c", script, "bbpflash", "-s", folder_.Path("image.bin")};
    }

    // One that writes this and ends so.
    Words Saying(const std::string& output, int status) const {
        return {"sh",       "-c", "printf '" + output + "'; exit " + std::to_string(status),
                "bbpflash", "-s", folder_.Path("image.bin")};
    }

    void Go() const { folder_.Write("go", "\n"); }

    // Waits until the program has written this.
    static void Await(const Process& process, const std::string& text) {
        while (process.Output().find(text) == std::string::npos) {
            usleep(2000);
        }
    }

    bool Exists(const std::string& name) const {
        return std::filesystem::exists(folder_.Path(name));
    }

    // The events in this output, all of which keep to the schema and the last of which alone is the
    // end.
    std::vector<nlohmann::json> Events(const std::string& output) const {
        const Outcome check = system_test::RunToEnd(
            {"python3", EVENT_VALIDATOR, EVENT_SCHEMA, folder_.Write("events", output)});
        EXPECT_EQ(0, check.status) << check.out << check.err;
        std::vector<nlohmann::json> events;
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            events.push_back(nlohmann::json::parse(line, nullptr, false));
        }
        return events;
    }

    TemporaryFolder folder_;
};

// What updaters write before, in and after the burn.
constexpr char BURNING[] = "79\\n80\\n85\\n";
constexpr char BURNT[] = "90\\n95\\n99\\n100\\nDONE\\n";

#endif
