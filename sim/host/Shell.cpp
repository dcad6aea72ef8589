// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Shell.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace sim {

namespace {

const char SIGN[] = "(head unit) ";

std::string Get(const char* variable, const char* otherwise) {
    const char* const value = std::getenv(variable);
    return value == nullptr || *value == '\0' ? otherwise : value;
}

// Writes a start file that reads the user's own one and puts the sign before the prompt.
void WriteStartFile(const std::string& path, const std::string& own) {
    std::ofstream(path) << "if [ -r '" << own << "' ]; then . '" << own << "'; fi\n"
                        << "PS1='" << SIGN << "'\"$PS1\"\n";
}

}  // namespace

Shell MakeShell(const std::string& folder) {
    const std::string path = Get("SHELL", "/bin/sh");
    const std::string name = std::filesystem::path(path).filename();
    const std::string home = Get("HOME", "/");
    if (name == "bash") {
        const std::string start_file = std::filesystem::path(folder) / "bashrc";
        WriteStartFile(start_file, home + "/.bashrc");
        return {{path, "--rcfile", start_file, "-i"}, {}};
    }
    if (name == "zsh") {
        WriteStartFile(std::filesystem::path(folder) / ".zshrc",
                       Get("ZDOTDIR", home.c_str()) + "/.zshrc");
        return {{path, "-i"}, {{"ZDOTDIR", folder}}};
    }
    return {{path, "-i"}, {{"PS1", std::string(SIGN) + "$ "}}};
}

}  // namespace sim
