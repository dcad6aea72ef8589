// SPDX-License-Identifier: Apache-2.0
// What a program's words mean. CLI11 does the work; it is compiled in one source alone, as that
// takes longer than the whole updater.
#ifndef COMMON_COMMANDLINE_H
#define COMMON_COMMANDLINE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace common {

// The words that a program takes, each bound to a variable that outlives the parsing. A name with
// hyphens, such as "-o,--output", is an option's, one without that of a word without an option.
class CommandLine {
  public:
    using Text = std::string;
    using Texts = std::vector<std::string>;

    // One option, described further.
    class Word {
      public:
        explicit Word(CLI::Option* option) : option_(option) {}

        Word Required();
        // What the help calls its value.
        Word Named(const Text& name);
        // That the help shows beside the name: the variable's value as it is now, or this text.
        Word WithDefault();
        Word WithDefault(const Text& shown);
        Word OneOf(const Texts& values);
        // `check` returns what is wrong with a value, or nothing.
        Word Checked(const std::function<Text(const Text&)>& check);

      private:
        CLI::Option* option_;
    };

    // `version` is what --version prints; empty for a program without.
    CommandLine(const Text& about, const Text& program, const Text& version);

    Word Flag(const Text& name, bool& given, const Text& help);
    Word Value(const Text& name, Text& value, const Text& help);
    Word Value(const Text& name, std::optional<Text>& value, const Text& help);
    Word Value(const Text& name, Texts& values, const Text& help);
    // `take` may throw a Failure for a value.
    Word Value(const Text& name, const std::function<void(const Text&)>& take, const Text& help);
    // Each time that it is given, with one value.
    Word Each(const Text& name, const std::function<void(const Text&)>& take, const Text& help);
    // From `lowest` to `highest`.
    Word Value(const Text& name, int& value, int lowest, int highest, const Text& help);
    Word Value(const Text& name, unsigned& value, unsigned lowest, unsigned highest,
               const Text& help);
    Word Value(const Text& name, std::int64_t& value, std::int64_t lowest, std::int64_t highest,
               const Text& help);
    Word Value(const Text& name, double& value, double lowest, double highest, const Text& help);
    // Prints a text and ends the program.
    void Asked(const Text& name, const std::function<Text()>& answer, const Text& help);

    // A command of the program; one of those that are added must be given.
    CommandLine Command(const Text& name, const Text& help);
    // Whether this command was given.
    bool IsGiven() const;

    // Of an option that is added from here on and given twice, the last value counts. Without this
    // it is a mistake to give it twice.
    void LetTheLastCount();
    // What is behind the first word that belongs to no option belongs to none, either.
    void EndWithWords();

    void Footer(const Text& text);
    Text Help() const;

    // Returns the exit status where the words ask for a text, which is then printed, and else
    // nothing. Throws a Failure with this status for words that are not understood; its text ends
    // in `hint`.
    std::optional<int> Parse(int argc, const char* const* argv, int status, const Text& hint);

  private:
    explicit CommandLine(CLI::App* command) : app_(command) {}

    std::shared_ptr<CLI::App> owned_;
    CLI::App* app_;
};

}  // namespace common

#endif
