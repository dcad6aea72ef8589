// SPDX-License-Identifier: Apache-2.0
// An input is a home folder's name. The start file that bbpsim writes for a shell names exactly
// this folder, whatever characters it has, and holds nothing else than it should.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "sim/host/Shell.h"
#include "tests/fuzz/Require.h"

namespace {

using fuzz::Require;

// Takes one quoted word of a shell's language from the front of `text`. Only quotes and the
// backslash before a quote can be there; anything else ends the word.
std::string TakeWord(std::string* text) {
    std::string word;
    std::size_t at = 0;
    bool is_quoted = false;
    for (; at < text->size(); ++at) {
        const char c = (*text)[at];
        if (c == '\'') {
            is_quoted = !is_quoted;
        } else if (is_quoted) {
            word += c;
        } else if (c == '\\' && at + 1 < text->size()) {
            word += (*text)[++at];
        } else {
            break;
        }
    }
    text->erase(0, at);
    return word;
}

void Expect(std::string* text, const std::string& beginning) {
    Require(text->compare(0, beginning.size(), beginning) == 0, "the start file's own words");
    text->erase(0, beginning.size());
}

// A folder that goes with the process.
class Folder {
  public:
    Folder() { Require(mkdtemp(name_.data()) != nullptr, "a folder can be made"); }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(name_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& Name() const { return name_; }

  private:
    std::string name_ = std::filesystem::temp_directory_path() / "start_file.XXXXXX";
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string home =
        std::string(reinterpret_cast<const char*>(data), size).c_str();  // to its first NUL
    setenv("HOME", home.c_str(), 1);
    setenv("SHELL", "/bin/bash", 1);
    static const Folder FOLDER;
    sim::MakeShell(FOLDER.Name());

    std::ifstream file(FOLDER.Name() + "/bashrc", std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::string own = (home.empty() ? "/" : home) + "/.bashrc";
    Expect(&text, "if [ -r ");
    Require(TakeWord(&text) == own, "it asks for the user's own start file");
    Expect(&text, " ]; then . ");
    Require(TakeWord(&text) == own, "it reads the user's own start file");
    Expect(&text, "; fi\nPS1='(head unit) '\"$PS1\"\n");
    Require(text.empty(), "nothing else is in the start file");
    return 0;
}
