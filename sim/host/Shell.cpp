// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Shell.h"

#include <cstdlib>
#include <filesystem>

#include "sim/host/OutputFile.h"

namespace sim {

namespace {

const char SIGN[] = "(head unit) ";

std::string Get(const char* variable, const char* otherwise) {
    const char* const value = std::getenv(variable);
    return value == nullptr || *value == '\0' ? otherwise : value;
}

// The text as one word of a shell's language.
std::string Quoted(const std::string& text) {
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return word + "'";
}

// Writes a start file that reads the user's own one and puts the sign before the prompt.
void WriteStartFile(const std::string& path, const std::string& own) {
    const std::string word = Quoted(own);
    WriteFile(
        path, "the shell's start file",
        "if [ -r " + word + " ]; then . " + word + "; fi\nPS1=" + Quoted(SIGN) + "\"$PS1\"\n");
}

}  // namespace

Shell MakeShell(const std::string& folder) {
    const std::string path = Get("SHELL", "/bin/sh");
    const std::string name = std::filesystem::path(path).filename();
    const std::string home = Get("HOME", "/");
    Shell shell;
    shell.command = {path, "-i"};
    if (name == "bash") {
        const std::string start_file = std::filesystem::path(folder) / "bashrc";
        WriteStartFile(start_file, home + "/.bashrc");
        shell.command = {path, "--rcfile", start_file, "-i"};
        return shell;
    }
    if (name == "zsh") {
        WriteStartFile(std::filesystem::path(folder) / ".zshrc",
                       Get("ZDOTDIR", home.c_str()) + "/.zshrc");
        shell.variables = {{"ZDOTDIR", folder}};
    } else {
        shell.variables = {{"PS1", std::string(SIGN) + "$ "}};
    }
    return shell;
}

}  // namespace sim
