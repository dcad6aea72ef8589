// SPDX-License-Identifier: Apache-2.0
#include "tests/system/UpdateRuns.h"

#include <unistd.h>

#include <vector>

#include "sim/SampleImage.h"

namespace system_test {

void Runs::SetUp() {
    const std::vector<std::uint8_t> image = sim::MakeSampleImage("2.0.0");
    folder_.Write("image.bin", std::string(image.begin(), image.end()));
    folder_.Write("short.bin", std::string(image.begin(), image.begin() + sim::LABEL_OFFSET));
    folder_.Write("uptodate.flash", std::string(image.begin(), image.end()));
    folder_.Write("force.flash", std::string(image.begin(), image.end()));

    Start("default", {}, {Image()});
    Start("status", {}, {"-s", Image()});
    Start("info", {"--installed", "1.4.2"}, {"-i", Missing()});
    Start("verbose", {}, {"-vvvvvv", Image()});
    Start("force", {}, {"-f", Image()});
    Start("uptodate", {}, {Image()});
    Start("uptodate-status", {"--installed", "2.0.0"}, {"-s", Image()});
    Start("never", {"--reports", "other", "--burn", "0,0,0"}, {Image()});
    Start("missing", {}, {Missing()});
    Start("missing-force", {}, {"-f", Missing()});
    Start("short", {}, {"-s", Short()});
    Start("no-argument", {}, {});
    StartAsNobody();
    if (OutsideIsSafe()) {
        processes_["outside"] =
            std::make_unique<Process>(Words{ProgramFolder() + "/bbpflash", Image()});
    }
}

// Somebody without privileges may not even read where the programs were built.
void Runs::StartAsNobody() {
    namespace fs = std::filesystem;
    const fs::path home = folder_.Path("nobody");
    fs::permissions(folder_.Path(""), fs::perms::others_exec | fs::perms::others_read,
                    fs::perm_options::add);
    fs::create_directory(home);
    fs::permissions(home, fs::perms::all);
    for (const char* const program : {"bbpsim", "bbpflash"}) {
        fs::copy(ProgramFolder() + "/" + program, home);
    }
    fs::copy(Image(), home / "image.bin");
    const Words words = {home / "bbpsim", "--pace",       "none", "--burn",   "0,0,0",
                         "--flash",       home / "flash", "--",   "bbpflash", home / "image.bin"};
    processes_["nobody"] = std::make_unique<Process>(words, getuid() == 0);
}

}  // namespace system_test
