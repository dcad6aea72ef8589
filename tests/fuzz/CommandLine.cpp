// SPDX-License-Identifier: Apache-2.0
// An input is the command line behind the program's name, each argument ended by a NUL.
#include <string>
#include <vector>

#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "tests/fuzz/Require.h"
#include "tests/fuzz/Surroundings.h"
#include "tools/stream/UpdaterOptions.h"

extern "C" int bbpflash_main(int argc, char** argv);

namespace {

using Words = std::vector<std::string>;
using fuzz::Require;

Words Split(const std::uint8_t* data, std::size_t size) {
    Words words = {"bbpflash"};
    std::string word;
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            words.push_back(word);
            word.clear();
        } else {
            word += static_cast<char>(data[i]);
        }
    }
    if (!word.empty()) {
        words.push_back(word);
    }
    return words;
}

// What the program must take from its command line.
struct Settings {
    int verbosity = 0;
    std::string log;
    std::string trace;
    bool force = false;
    bool info = false;
    bool status = false;
};

// Calls `take(letter, argument)` for each option in front of the first word that is none; the
// letters of `with_argument` take the rest of their word or the next word, and are left out when
// there is neither.
template <class Take>
void Scan(const Words& words, const std::string& with_argument, const Take& take) {
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (words[i].size() < 2 || words[i][0] != '-' || words[i] == "--") {
            return;
        }
        for (std::size_t at = 1; at < words[i].size(); ++at) {
            const char letter = words[i][at];
            if (with_argument.find(letter) == std::string::npos) {
                take(letter, std::string());
                continue;
            }
            if (at + 1 < words[i].size()) {
                take(letter, words[i].substr(at + 1));
            } else if (i + 1 < words.size()) {
                take(letter, words[++i]);
            }
            break;
        }
    }
}

// The program scans its command line twice: for the utility's options, then for the driver's. To
// the second scan a word behind -l or -t is no option, and ends it.
Settings Expect(const Words& words) {
    Settings settings;
    Scan(words, "lt", [&](char letter, const std::string& argument) {
        settings.verbosity += letter == 'v' ? 1 : 0;
        if (letter == 'l') {
            settings.log = argument;
        } else if (letter == 't') {
            settings.trace = argument;
        }
    });
    Scan(words, "", [&](char letter, const std::string&) {
        settings.force = settings.force || letter == 'f';
        settings.info = settings.info || letter == 'i';
        settings.status = settings.status || letter == 's';
    });
    return settings;
}

// A bus that fails at its first command, when the command line has been taken.
class DeadBus : public fuzz::Surroundings {
  public:
    explicit DeadBus(const Words& words) : words_(words) {}

    int Devctl(int, std::uint8_t*, std::size_t) override {
        const Settings expected = Expect(words_);
        Require(g_p_hutil_opt->verbosity == expected.verbosity, "-v");
        Require(g_p_hutil_opt->logFile == expected.log, "-l");
        Require(g_p_hutil_opt->traceFile == expected.trace, "-t");
        Require(g_p_hutil_opt->progName == words_.front(), "the program's name");
        Require(g_options[OPTION_FORCE] == expected.force, "-f");
        Require(g_options[OPTION_INFO_ONLY] == expected.info, "-i");
        Require(g_options[OPTION_STATUS] == expected.status, "-s");
        Require(filename == words_.back(), "the last argument is the image's path");
        const tools::UpdaterOptions others = tools::ParseUpdaterOptions(words_);
        Require(others.force == expected.force && others.info_only == expected.info &&
                    others.status == expected.status && others.image == filename,
                "what watches the updater reads its command line as it does");
        reached_ = true;
        return 5;
    }

    std::size_t ImageSize() const override { return 0; }
    std::size_t ReadImage(std::size_t, char*, std::size_t) const override { return 0; }

    bool Reached() const { return reached_; }

  private:
    const Words& words_;
    bool reached_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Words words = Split(data, size);
    std::vector<std::string> texts = words;
    std::vector<char*> argv;
    for (std::string& text : texts) {
        argv.push_back(&text[0]);
    }
    argv.push_back(nullptr);

    DeadBus bus(words);
    const fuzz::Outcome outcome =
        fuzz::Run(bus, [&] { bbpflash_main(static_cast<int>(words.size()), argv.data()); });
    Require(outcome.end == fuzz::End::Exited && outcome.status == 1, "a dead bus ends with 1");
    Require(bus.Reached() == (words.size() > 1), "the bus only with an argument");
    return 0;
}
